#include "zt/move/row_writer.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "zt/status.h"

namespace zt {
namespace {

class CsvWriter final : public RowWriter {
 public:
  CsvWriter(const Encoding& encoding, std::vector<Column> columns)
      : encoding_(encoding), columns_(std::move(columns)) {
    if (!encoding.outside_keeps_ascii())
      throw UsageError(tr("CSV needs an encoding that keeps ASCII, such as UTF-8 or GBK"));
  }

  std::string head() override {
    return joined([&](std::size_t i) { return columns_[i].name; });
  }
  std::string line(const Row& cells) override {
    return joined([&](std::size_t i) { return for_programs(cells[i], columns_[i].kind); });
  }

 private:
  template <class TextOf>
  std::string joined(const TextOf& text_of) const {
    std::string line;
    for (std::size_t i = 0; i < columns_.size(); ++i)
      line += (i > 0 ? "," : "") + csv_value(outside(text_of(i), i));
    // A blank line is no row: the one value that is empty shows by its quotes.
    return (line.empty() ? "\"\"" : line) + "\r\n";
  }

  std::string outside(const std::string& utf8, std::size_t column) const {
    if (auto text = encoding_.exactly_to_outside(utf8)) return *std::move(text);
    throw Failure(tr(
        "field {}: \"{}\" has a character that the encoding of the file lacks; to name another: --encoding",
        columns_[column].name, utf8));
  }

  const Encoding& encoding_;
  std::vector<Column> columns_;
};

class JsonWriter final : public RowWriter {
 public:
  explicit JsonWriter(std::vector<Column> columns) : columns_(std::move(columns)) {
    for (const Column& column : columns_) names_.push_back(nlohmann::json(column.name).dump());
  }

  std::string head() override { return ""; }
  std::string line(const Row& cells) override {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      line += (i > 0 ? "," : "{") + names_[i] + ":" + value(cells[i], columns_[i].kind);
    }
    return line + "}\n";
  }

 private:
  // JSON has no infinity: what is no finite number is a text.
  static std::string value(const Cell& cell, Kind kind) {
    const auto* const real = std::get_if<double>(&cell);
    const bool bare = real != nullptr ? std::isfinite(*real) : std::holds_alternative<std::int64_t>(cell);
    const std::string text = for_programs(cell, kind);
    return bare ? text : nlohmann::json(text).dump();
  }

  std::vector<Column> columns_;
  std::vector<std::string> names_;
};

}  // namespace

std::string csv_value(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char byte : text) quoted += byte == '"' ? std::string("\"\"") : std::string(1, byte);
  return quoted + "\"";
}

std::unique_ptr<RowWriter> make_row_writer(FileFormat format, const Encoding& encoding,
                                           std::vector<Column> columns) {
  if (format == FileFormat::json_lines) return std::make_unique<JsonWriter>(std::move(columns));
  return std::make_unique<CsvWriter>(encoding, std::move(columns));
}

}  // namespace zt
