// What every command is given: how to print, in which encoding, and how to say something beside the output.
#ifndef CACHET_TOOLS_ZT_CONTEXT_H
#define CACHET_TOOLS_ZT_CONTEXT_H

#include <memory>
#include <string>
#include <vector>

#include "inspect/raw_database.h"
#include "zt/output/rows.h"
#include "zt/translation.h"

namespace zt {

// The options that every command takes.
struct Settings {
  bool box = false, tabs = false, json = false, csv = false, markdown = false, line = false;
  std::string color = "auto";
  std::string encoding;  // outside; empty = the locale's
  std::string stored_encoding = "GBK";

  bool has_format() const { return box || tabs || json || csv || markdown || line; }
  void take_format(const Settings& other);
};

class Context {
 public:
  explicit Context(const Settings& settings);

  const Settings& settings() const { return settings_; }
  const Encoding& encoding() const { return encoding_; }
  Format format() const { return style_.format; }
  bool color() const { return style_.color; }
  // Whether people read the output.
  bool for_people() const { return style_.format == Format::box; }

  std::unique_ptr<RowSink> rows(std::vector<Column> columns, Shape shape = Shape::table) const;
  // Text beside the rows on standard output, for people: nothing in other formats.
  void print(const std::string& utf8) const;
  // "zt: TEXT" on standard error.
  void say(const std::string& utf8) const;
  // The same for a text of the library, which is stored text.
  std::string from_stored(std::string_view text) const { return encoding_.from_stored(text); }

  // What was written on the command line, in UTF-8. Throws UsageError when it is no text in the encoding outside: what
  // is looked for or stored is never guessed.
  std::string argument(std::string_view text) const;

  // Says that the memory stays behind, because the last regular user left while it was looked at.
  void say_left_alone(const std::string& shown_path) const;

 private:
  Settings settings_;
  Encoding encoding_;
  Style style_;
};

// A database to look at for the time of one scope; what closing it finds is said.
class Look {
 public:
  Look(const Context& context, const std::string& path)
      : context_(context), database_(cachet::inspect::BasePath::parse(path)) {}
  ~Look() { close(); }
  Look(const Look&) = delete;
  Look& operator=(const Look&) = delete;

  cachet::inspect::RawDatabase* operator->() { return &database_; }
  cachet::inspect::RawDatabase& operator*() { return database_; }
  // Detaches before the scope's end; what was copied stays.
  void close() {
    if (database_.close()) context_.say_left_alone(database_.path().shown());
  }

 private:
  const Context& context_;
  cachet::inspect::RawDatabase database_;
};

}  // namespace zt

#endif
