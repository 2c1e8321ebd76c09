// Which rows of a table a command is about, as its options name them, and the walk over them.
#ifndef CACHET_TOOLS_ZT_CURSOR_H
#define CACHET_TOOLS_ZT_CURSOR_H

#include <cachet.h>

#include <CLI/App.hpp>
#include <string>
#include <vector>

#include "zt/table.h"

namespace zt {

// All rows by their record ids; one of them; or those of an index, in the order of its keys.
struct RowChoice {
  std::vector<std::string>
      index;  // its name; without more the whole index; an operator and a value for each field
  int record_id = -1;
  bool reverse = false;

  // The options --index and --id.
  void declare(CLI::App& app);
  // What --index has taken beyond its key: words that were meant as others. They are taken off it.
  std::vector<std::string> take_surplus(const Table& table);
  bool is_whole_table() const { return index.empty() && record_id < 0; }
};

// Streams: nothing is kept of the rows that it has left. On a read-only handle every step is validated by itself, and
// waits while somebody has the table marked as being changed; what a writer commits meanwhile may or may not be met.
class Cursor {
 public:
  // All of them outlive it. Throws UsageError, NotFound and BadValue for a choice that the table does not allow, and
  // Damaged when a read-only handle would wait for a dead writer.
  Cursor(const Context& context, const Database& database, const Table& table, const RowChoice& choice);
  ~Cursor();
  Cursor(const Cursor&) = delete;
  Cursor& operator=(const Cursor&) = delete;

  // Goes on to the next row, first to the first one; false when there is none. Throws Failure, and
  // Damaged where broken links end the walk, or would never.
  bool next();
  // The row where it stands, until it goes on. On a read-write handle it is the stored one.
  ZtRecordHandle row();

 private:
  void add_key(const Context& context, const std::vector<std::string>& values);
  bool find_first();
  bool find_record();
  void count_rows();
  [[noreturn]] void refuse_broken_links(const std::string& how) const;

  const Database& database_;
  const Table& table_;
  int index_ = -1;      // -1 = the list of all records
  int operator_ = 0;    // 0 = without a key
  int record_id_ = -1;  // -1 = not by record id
  bool reverse_;
  bool began_ = false;
  long steps_ = 0, most_steps_ = 0;
  ZtConditionHandle condition_ = nullptr;
  ZtRecordHandle record_ = nullptr;
};

}  // namespace zt

#endif
