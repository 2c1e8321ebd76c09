// Rows of a file of JSON lines: an object of names and values on each line, in UTF-8. Numbers are taken as they are
// spelled, so that no digit is lost on the way.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "zt/move/longest_row.h"
#include "zt/move/make_readers.h"

namespace zt {
namespace {

using Json = nlohmann::json;

// Bytes of a line; where its reader stands tells where in the line something was found.
class Walker {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  Walker(const char* at, const char** reached) : at_(at), reached_(reached) {}
  reference operator*() const { return *at_; }
  Walker& operator++() {
    *reached_ = ++at_;
    return *this;
  }
  Walker operator++(int) {
    Walker before = *this;
    ++*this;
    return before;
  }
  bool operator==(const Walker& other) const { return at_ == other.at_; }

 private:
  const char* at_;
  const char** reached_;
};

// Takes one flat object. A value's place is where its name ends.
class ObjectTaker final : public nlohmann::json_sax<Json> {
 public:
  ObjectTaker(bool lenient, const Fields& fields, std::vector<InputValue>& values)
      : lenient_(lenient), fields_(fields), values_(values) {}

  void begin(TextPlace line, const char* text) {
    line_ = line;
    text_ = reached_ = text;
    depth_ = 0;
    field_ = -1;
  }
  const char** reached() { return &reached_; }
  TextPlace here() const { return {line_.line, 1 + (reached_ - text_)}; }

  bool null() override {
    if (!lenient_ && field_ >= 0) {
      throw BadRow(at_, tr("field {}: null, and there are no nulls; to leave it 0 or empty: --lenient",
                           fields_.name(field_)));
    }
    return take_nothing();
  }
  bool boolean(bool value) override {
    if (field_ >= 0) throw BadRow(at_, tr("{} is neither a number nor a text", value ? "true" : "false"));
    return take_nothing();
  }
  bool number_integer(number_integer_t number) override { return take(std::to_string(number)); }
  bool number_unsigned(number_unsigned_t number) override { return take(std::to_string(number)); }
  bool number_float(number_float_t, const string_t& spelled) override { return take(spelled); }
  bool string(string_t& text) override { return take(text); }
  bool binary(binary_t&) override { return false; }

  bool start_object(std::size_t) override {
    if (depth_++ > 0 && field_ >= 0) throw BadRow(at_, tr("an object in a row"));
    return true;
  }
  bool start_array(std::size_t) override {
    if (depth_++ == 0) throw BadRow(here(), tr("an array, where a row is an object"));
    if (field_ >= 0) throw BadRow(at_, tr("an array in a row"));
    return true;
  }
  bool end_object() override { return leave(); }
  bool end_array() override { return leave(); }

  bool key(string_t& name) override {
    if (depth_ > 1) return true;  // inside of what is skipped
    at_ = here();
    field_ = fields_.id_of(name);
    if (field_ < 0 && !lenient_) {
      throw BadRow(at_, tr("the table has no field \"{}\", it has {}; to skip it: --lenient", name,
                           names_of(fields_)));
    }
    const bool twice =
        std::ranges::any_of(values_, [&](const InputValue& each) { return each.field == field_; });
    if (twice) throw BadRow(at_, tr("the field {} is named twice", name));
    return true;
  }
  bool parse_error(std::size_t, const std::string& token, const nlohmann::detail::exception&) override {
    throw BadRow(here(), tr("this is no JSON, from \"{}\" on", token));
  }

 private:
  bool leave() {
    --depth_;
    return true;
  }
  bool take(std::string text) {
    if (depth_ == 0) throw BadRow(here(), tr("a row is an object"));
    if (field_ < 0) return take_nothing();
    values_.push_back({field_, std::move(text), at_});
    return true;
  }
  bool take_nothing() const {
    if (depth_ == 0) throw BadRow(here(), tr("a row is an object"));
    return true;
  }

  bool lenient_;
  const Fields& fields_;
  std::vector<InputValue>& values_;
  TextPlace line_, at_;
  const char* text_ = nullptr;
  const char* reached_ = nullptr;
  int depth_ = 0;
  int field_ = -1;
};

class JsonRows final : public RowReader {
 public:
  JsonRows(const ReaderOptions& options, const Fields& fields, Input& input)
      : lenient_(options.lenient), fields_(fields), input_(input), taker_(options.lenient, fields, values_) {
    input.skip_byte_order_mark();
  }

  bool next() override {
    values_.clear();
    do {
      if (!read_line()) return false;
    } while (line_.find_first_not_of(" \t\r") == std::string::npos);
    taker_.begin(place_, line_.data());
    const Walker begin(line_.data(), taker_.reached()), end(line_.data() + line_.size(), taker_.reached());
    Json::sax_parse(begin, end, &taker_);
    check_missing();
    return true;
  }

  const std::vector<InputValue>& values() const override { return values_; }
  TextPlace place() const override { return place_; }
  const std::string& raw() const override { return line_; }

 private:
  bool read_line() {
    line_.clear();
    place_ = input_.place();
    if (input_.peek() == Input::end) return false;
    for (int byte = input_.next(); byte != Input::end && byte != '\n'; byte = input_.next()) {
      if (line_.size() == longest_row_bytes) throw BrokenText(place_, tr("a line of more than 16 MiB"));
      line_ += static_cast<char>(byte);
    }
    return true;
  }

  void check_missing() const {
    if (lenient_ || values_.size() == static_cast<std::size_t>(fields_.count())) return;
    for (int id = 0; id < fields_.count(); ++id) {
      const bool named =
          std::ranges::any_of(values_, [&](const InputValue& each) { return each.field == id; });
      if (!named) {
        throw BadRow(taker_.here(),
                     tr("the field {} is missing; to leave it 0 or empty: --lenient", fields_.name(id)));
      }
    }
  }

  bool lenient_;
  const Fields& fields_;
  Input& input_;
  std::vector<InputValue> values_;
  ObjectTaker taker_;
  std::string line_;
  TextPlace place_;
};

}  // namespace

std::unique_ptr<RowReader> make_json_rows(const ReaderOptions& options, const Fields& fields, Input& input) {
  return std::make_unique<JsonRows>(options, fields, input);
}

}  // namespace zt
