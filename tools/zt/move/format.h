// The formats in which a table can be a file, and which one a file has.
#ifndef CACHET_TOOLS_ZT_MOVE_FORMAT_H
#define CACHET_TOOLS_ZT_MOVE_FORMAT_H

#include <CLI/App.hpp>
#include <string>

namespace zt {

enum class FileFormat {
  csv,         // .csv
  json_lines,  // .jsonl, .ndjson
  text,        // .txt: the library's lines of pairs
  binary,      // .bin: the same, each with its length
  image,       // .table: the library's image of one table
  dump         // .dump: the library's picture for an engineer; nobody reads it back
};

// Whether the library reads and writes it by itself, by the file's name.
inline bool is_of_library(FileFormat format) {
  return format != FileFormat::csv && format != FileFormat::json_lines;
}

// FILE and --format.
struct FileChoice {
  std::string file, format;

  void declare(CLI::App& app, const char* what);
  bool is_standard() const { return file == "-"; }
  // By its option, else by the file's extension; CSV for standard input and output. Throws UsageError when neither
  // tells, and when a format of the library's own is to go through a pipe.
  FileFormat chosen() const;
};

}  // namespace zt

#endif
