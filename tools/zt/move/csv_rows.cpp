// Rows of a CSV file: its first record names the fields, in any order.
#include <algorithm>

#include "zt/move/csv_reader.h"
#include "zt/move/make_readers.h"

namespace zt {
namespace {

constexpr int skipped = -1;

class CsvRows final : public RowReader {
 public:
  CsvRows(const ReaderOptions& options, const Encoding& encoding, const Fields& fields, Input& input)
      : lenient_(options.lenient), encoding_(encoding), fields_(fields), csv_(input) {
    input.skip_byte_order_mark();
    read_head();
  }

  bool next() override {
    values_.clear();
    if (!csv_.next()) return false;
    check_count();
    for (std::size_t i = 0; i < field_of_column_.size(); ++i) take(csv_.values()[i], field_of_column_[i]);
    return true;
  }

  const std::vector<InputValue>& values() const override { return values_; }
  TextPlace place() const override { return csv_.place(); }
  const std::string& raw() const override { return csv_.raw(); }

 private:
  void read_head() {
    try {
      if (!csv_.next()) throw BrokenText({}, tr("there is no line with the names of the fields"));
      for (const CsvValue& name : csv_.values()) field_of_column_.push_back(field_of(name));
    } catch (const BadRow& bad) {
      throw BrokenText(bad.place, bad.what());
    }
    for (int id = 0; id < fields_.count() && !lenient_; ++id) {
      if (std::ranges::count(field_of_column_, id) == 0) {
        throw BrokenText(csv_.place(),
                         tr("the field {} is missing; to leave it 0 or empty: --lenient", fields_.name(id)));
      }
    }
  }

  int field_of(const CsvValue& name) const {
    const std::string utf8 = utf8_of(name);
    const int id = fields_.id_of(utf8);
    if (id < 0 && !lenient_) {
      throw BrokenText(name.place, tr("the table has no field \"{}\", it has {}; to skip it: --lenient", utf8,
                                      names_of(fields_)));
    }
    if (id >= 0 && std::ranges::count(field_of_column_, id) > 0)
      throw BrokenText(name.place, tr("the field {} is named twice", utf8));
    return id < 0 ? skipped : id;
  }

  void check_count() const {
    const std::size_t expected = field_of_column_.size(), found = csv_.values().size();
    if (found == expected) return;
    const TextPlace place = found > expected ? csv_.values()[expected].place : csv_.values().back().place;
    throw BadRow(place, trn("{} value, where the first line names {}",
                            "{} values, where the first line names {}", found, expected));
  }

  void take(const CsvValue& value, int field) {
    if (field == skipped) return;
    if (lenient_ && value.bytes.empty()) return;
    values_.push_back({field, utf8_of(value), value.place});
  }

  std::string utf8_of(const CsvValue& value) const {
    if (auto utf8 = encoding_.exactly_from_outside(value.bytes)) return *std::move(utf8);
    throw BadRow(value.place, tr("\"{}\" is no text in the encoding of the file; to name another: --encoding",
                                 encoding_.from_outside(value.bytes)));
  }

  bool lenient_;
  const Encoding& encoding_;
  const Fields& fields_;
  CsvReader csv_;
  std::vector<int> field_of_column_;
  std::vector<InputValue> values_;
};

}  // namespace

std::unique_ptr<RowReader> make_csv_rows(const ReaderOptions& options, const Encoding& encoding,
                                         const Fields& fields, Input& input) {
  if (!encoding.outside_keeps_ascii())
    throw UsageError(tr("CSV needs an encoding that keeps ASCII, such as UTF-8 or GBK"));
  return std::make_unique<CsvRows>(options, encoding, fields, input);
}

}  // namespace zt
