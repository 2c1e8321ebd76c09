// The formats for programs, each written row by row: tab-separated, CSV (RFC 4180), JSON, Markdown, and one property a
// line.
#include <nlohmann/json.hpp>
#include <utility>

#include "zt/output/box.h"
#include "zt/output/color.h"
#include "zt/output/rows.h"
#include "zt/output/width.h"

namespace zt {
namespace {

class TextSink : public RowSink {
 public:
  TextSink(std::vector<Column> columns, const Encoding& encoding, std::FILE* out)
      : columns_(std::move(columns)), encoding_(encoding), out_(out) {}
  void end() override {}

 protected:
  void print(const std::string& utf8) { print_bytes(encoding_.to_outside(utf8)); }
  void print_bytes(const std::string& bytes) { std::fwrite(bytes.data(), 1, bytes.size(), out_); }

  // One line of all columns, each made by `text_of`, with `between` between them.
  template <class TextOf>
  void print_line(const TextOf& text_of, const char* between, const char* ending) {
    std::string line;
    for (std::size_t i = 0; i < columns_.size(); ++i) line += (i > 0 ? between : "") + text_of(i);
    print(line + ending);
  }

  std::vector<Column> columns_;
  const Encoding& encoding_;
  std::FILE* out_;
};

// A tab, a line's end and a backslash in a text are written as "\t", "\n", "\r", "\\".
class TabSink final : public TextSink {
 public:
  TabSink(std::vector<Column> columns, const Encoding& encoding, std::FILE* out)
      : TextSink(std::move(columns), encoding, out) {
    print_line([&](std::size_t i) { return columns_[i].name; }, "\t", "\n");
  }

 private:
  void write(const Row& cells) override {
    print_line([&](std::size_t i) { return escaped(for_programs(cells[i], columns_[i].kind)); }, "\t", "\n");
  }

  static std::string escaped(const std::string& text) {
    std::string result;
    for (const char byte : text) {
      switch (byte) {
        case '\t':
          result += "\\t";
          break;
        case '\n':
          result += "\\n";
          break;
        case '\r':
          result += "\\r";
          break;
        case '\\':
          result += "\\\\";
          break;
        default:
          result += byte;
      }
    }
    return result;
  }
};

class CsvSink final : public TextSink {
 public:
  CsvSink(std::vector<Column> columns, const Encoding& encoding, std::FILE* out)
      : TextSink(std::move(columns), encoding, out) {
    print_line([&](std::size_t i) { return quoted(columns_[i].name); }, ",", "\r\n");
  }

 private:
  void write(const Row& cells) override {
    print_line([&](std::size_t i) { return quoted(for_programs(cells[i], columns_[i].kind)); }, ",", "\r\n");
  }

  static std::string quoted(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string result = "\"";
    for (const char byte : text) result += byte == '"' ? std::string("\"\"") : std::string(1, byte);
    return result + "\"";
  }
};

class MarkdownSink final : public TextSink {
 public:
  MarkdownSink(std::vector<Column> columns, const Encoding& encoding, std::FILE* out)
      : TextSink(std::move(columns), encoding, out) {
    print("| ");
    print_line([&](std::size_t i) { return columns_[i].name; }, " | ", " |\n|");
    print_line([&](std::size_t i) { return std::string(is_number(columns_[i].kind) ? "---:" : "---"); }, "|",
               "|\n");
  }

 private:
  void write(const Row& cells) override {
    print("| ");
    print_line([&](std::size_t i) { return escaped(visible(for_people(cells[i], columns_[i].kind))); }, " | ",
               " |\n");
  }

  static std::string escaped(const std::string& text) {
    std::string result;
    for (const char byte : text) result += byte == '|' ? std::string("\\|") : std::string(1, byte);
    return result;
  }
};

class LineSink final : public TextSink {
 public:
  LineSink(const Style& style, std::vector<Column> columns, const Encoding& encoding, std::FILE* out)
      : TextSink(std::move(columns), encoding, out), color_(style.color) {
    for (const Column& column : columns_) width_ = std::max(width_, column.name.size());
  }

 private:
  void write(const Row& cells) override {
    if (std::exchange(began_, true)) print("\n");
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const std::string text = visible(for_programs(cells[i], columns_[i].kind));
      const bool stands_out = color_ && columns_[i].kind == Kind::state;
      print(std::string(width_ - columns_[i].name.size(), ' ') + columns_[i].name + " = " +
            colored(text, stands_out ? color_of_state(text) : std::string_view()) + "\n");
    }
  }

  bool color_;
  bool began_ = false;
  std::size_t width_ = 0;
};

// An array of objects, one a line; a record is one object. Always UTF-8.
class JsonSink final : public TextSink {
 public:
  JsonSink(const Style& style, std::vector<Column> columns, const Encoding& encoding, std::FILE* out)
      : TextSink(std::move(columns), encoding, out), in_array_(style.shape == Shape::table) {}

  void end() override {
    if (in_array_) print_bytes(began_ ? "]\n" : "[]\n");
  }

 private:
  void write(const Row& cells) override {
    std::string line = !in_array_ ? "" : std::exchange(began_, true) ? ",\n " : "[";
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      line += (i > 0 ? "," : "{") + text_of(columns_[i].name) + ":" + value(cells[i], columns_[i].kind);
    }
    print_bytes(line + (in_array_ ? "}" : "}\n"));
  }

  static std::string text_of(const std::string& utf8) {
    return nlohmann::json(utf8).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }
  static std::string value(const Cell& cell, Kind kind) {
    if (std::holds_alternative<std::monostate>(cell)) return "null";
    if (kind == Kind::time || std::holds_alternative<std::string>(cell))
      return text_of(for_programs(cell, kind));
    const auto* const real = std::get_if<double>(&cell);
    if (real != nullptr && kind != Kind::percent) return nlohmann::json(*real).dump();
    return for_programs(cell, kind);
  }

  bool in_array_;
  bool began_ = false;
};

}  // namespace

std::unique_ptr<RowSink> make_sink(const Style& style, std::vector<Column> columns, const Encoding& encoding,
                                   std::FILE* out) {
  switch (style.format) {
    case Format::tabs:
      return std::make_unique<TabSink>(std::move(columns), encoding, out);
    case Format::csv:
      return std::make_unique<CsvSink>(std::move(columns), encoding, out);
    case Format::markdown:
      return std::make_unique<MarkdownSink>(std::move(columns), encoding, out);
    case Format::line:
      return std::make_unique<LineSink>(style, std::move(columns), encoding, out);
    case Format::json:
      return std::make_unique<JsonSink>(style, std::move(columns), encoding, out);
    case Format::box:
      break;
  }
  return std::make_unique<BoxSink>(style, std::move(columns), encoding, out);
}

}  // namespace zt
