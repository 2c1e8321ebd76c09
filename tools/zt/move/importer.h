// Stores the rows of a text file in a table: all of them in one transaction or, when it is to keep going, those that can
// be stored, in transactions of so many rows.
#ifndef CACHET_TOOLS_ZT_MOVE_IMPORTER_H
#define CACHET_TOOLS_ZT_MOVE_IMPORTER_H

#include <string>
#include <utility>
#include <vector>

#include "zt/move/import_counts.h"
#include "zt/move/reject_file.h"
#include "zt/move/row_reader.h"
#include "zt/new_row.h"
#include "zt/table.h"

namespace zt {

struct ImportOptions {
  std::string file;
  ReaderOptions reader;
  std::int64_t rows_of_a_transaction =
      0;  // 0 = one transaction for all, taken back at the first row that is refused
};

class Importer {
 public:
  // All of them outlive it.
  Importer(const Context& context, const Database& database, const Table& table, const ImportOptions& options,
           Input& input, RejectFile& rejects);

  // Reads every row and stores none; ends at the first one that is refused, unless somebody wants all of them.
  void check();
  // Reads every row and stores it, until nothing more can be read or stored. Throws Failure when it is interrupted: then
  // all is as it was, or as it was after the last whole transaction.
  void store();

  const ImportCounts& counts() const { return counts_; }
  // "FILE:LINE:COLUMN: REASON" of the first row that was refused; empty when none was.
  const std::string& first_refusal() const { return first_refusal_; }
  // The same of the row behind which nothing was read; empty when it was not given up.
  const std::string& broken_off() const { return broken_off_; }

 private:
  enum class Step { row, refused, broken, end };

  template <class Each>
  void for_each_row(const std::string& doing, bool stop_at_refusal, const Each& each);
  Step read(RowReader& reader);
  void convert(const RowReader& reader);
  Step put(const NewRow& row, const RowReader& reader);
  void refuse(TextPlace place, const std::string& reason, const std::string& raw);
  Step break_off(TextPlace place, const std::string& reason, const std::string& raw);
  [[noreturn]] void end_interrupted() const;

  const Context& context_;
  const Database& database_;
  const Table& table_;
  const ImportOptions& options_;
  Input& input_;
  RejectFile& rejects_;
  ImportCounts counts_;
  std::int64_t pending_ = 0;                         // stored, not committed
  std::vector<std::pair<int, std::string>> stored_;  // the row's values in their stored form, by field
  std::string first_refusal_, broken_off_;
};

}  // namespace zt

#endif
