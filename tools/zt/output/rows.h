// What a command prints: rows of typed cells under named columns, written by one sink in whatever format was asked
// for. Texts are UTF-8 here.
#ifndef CACHET_TOOLS_ZT_OUTPUT_ROWS_H
#define CACHET_TOOLS_ZT_OUTPUT_ROWS_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "inspect/stop.h"
#include "zt/output/encoding.h"

namespace zt {

enum class Kind {
  text,
  state,  // a text that colour makes stand out
  integer,
  real,
  exact,  // a real number with all its digits
  bytes,  // "1.5 MiB" for people, a number for programs
  percent,
  seconds,
  time,  // seconds since 1970; for programs in ISO 8601
  yes_no
};

struct Column {
  std::string name;  // lower case, words joined by "_"
  Kind kind = Kind::text;
};

// std::monostate: there is no value.
using Cell = std::variant<std::monostate, bool, std::int64_t, double, std::string>;
using Row = std::vector<Cell>;

enum class Format { box, tabs, json, csv, markdown, line };

// Whether there are many rows, or one thing with many properties.
enum class Shape { table, record };

struct Style {
  Format format = Format::tabs;
  Shape shape = Shape::table;
  bool color = false;
  int width = 0;  // of the terminal; 0 = without limit
};

class RowSink {
 public:
  virtual ~RowSink() = default;
  // A cell for each column. Throws Stopped when the process is asked to stop.
  void row(const Row& cells) {
    cachet::inspect::stop_if_asked();
    write(cells);
  }
  // Behind the last row, once.
  virtual void end() = 0;

 private:
  virtual void write(const Row& cells) = 0;
};

// `encoding` and `out` outlive the sink.
std::unique_ptr<RowSink> make_sink(const Style& style, std::vector<Column> columns, const Encoding& encoding,
                                   std::FILE* out);

// For the sinks: a cell as people and as programs read it.
std::string for_people(const Cell& cell, Kind kind);
std::string for_programs(const Cell& cell, Kind kind);
bool is_number(Kind kind);

}  // namespace zt

#endif
