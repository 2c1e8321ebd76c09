#include "zt/move/library_files.h"

#include <fmt/format.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "inspect/walk.h"
#include "zt/move/input.h"
#include "zt/new_row.h"
#include "zt/status.h"
#include "zt/stop.h"
#include "zt/transaction.h"

namespace zt {
namespace {

using cachet::inspect::Damaged;

constexpr std::int64_t longest_line_bytes = 10240;  // the library ends an import there
constexpr std::int64_t image_head_bytes = 32;

// The library tells of each refused row, and goes on.
struct Refusals {
  std::int64_t count = 0;
  std::string first;
};
Refusals refusals;

bool note_refusal(int code, const char* text) {
  if (refusals.count++ == 0) refusals.first = fmt::format("{} ({})", text, code);
  return true;
}

std::int64_t records_ever(const Database& database, const Table& table) {
  long count = 0, size = 0;
  ZtTableSize(database, table.id(), count, size);
  return count;
}

void check_text_lines(const std::string& file) {
  Input input(file);
  std::int64_t bytes = 0;
  for (int byte = input.next(); byte != Input::end; byte = input.next()) {
    bytes = byte == '\n' || byte == '\r' ? 0 : bytes + 1;
    if (bytes > longest_line_bytes) {
      throw Damaged(tr("{}:{}: a line of more than {} bytes, and nothing was imported", file,
                       input.place().line, longest_line_bytes));
    }
  }
}

void check_binary_lines(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw Failure(tr("cannot open {}: {}", file, std::strerror(errno)));
  std::int32_t bytes = 0;
  for (std::int64_t row = 1; in.read(reinterpret_cast<char*>(&bytes), sizeof bytes); ++row) {
    const bool whole = bytes >= 0 && bytes <= longest_line_bytes && in.ignore(bytes).gcount() == bytes;
    if (!whole) throw Damaged(tr("{}: row {} is damaged, and nothing was imported", file, row));
  }
  if (in.gcount() != 0) throw Damaged(tr("{} is cut off, and nothing was imported", file));
}

void check_image(const Database& database, const cachet::inspect::Table& table, const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  char version[image_head_bytes + 1] = {};
  in.read(version, image_head_bytes);
  if (!in) throw Damaged(tr("{} is no image of a table", file));
  if (std::strcmp(version, ZtGetDbVersion(database)) != 0)
    throw Refused(tr("{} is of version \"{}\", the database is not", file, version));
  const auto bytes = static_cast<std::int64_t>(std::filesystem::file_size(file)) - image_head_bytes;
  if (table.record_bytes == 0 || bytes % table.record_bytes != 0) {
    throw Damaged(tr("{} is damaged, or of another table: its records do not have {} bytes each", file,
                     table.record_bytes));
  }
}

void refuse_full_table(const Context& context, const Database& database, const Table& table) {
  Look look(context, database.shown_path());
  const auto& of_database = database.schema().tables[static_cast<std::size_t>(table.id())];
  const auto live = cachet::inspect::count_records(look->view(), of_database).live;
  if (live > 0) {
    throw Refused(tr("table {} has {} records: an image, whose keys nobody checks, goes into an empty table",
                     table.name(), live));
  }
}

void check(const Context& context, const Database& database, const Table& table, FileFormat format,
           const std::string& file) {
  switch (format) {
    case FileFormat::text:
      return check_text_lines(file);
    case FileFormat::binary:
      return check_binary_lines(file);
    case FileFormat::image:
      refuse_full_table(context, database, table);
      return check_image(database, database.schema().tables[static_cast<std::size_t>(table.id())], file);
    default:
      throw UsageError(tr("a dump is for an engineer's eyes: nothing reads it back"));
  }
}

bool read_file(const Database& database, const Table& table, FileFormat format, const char* file) {
  if (format == FileFormat::image) return ZtReadDbTable(database, table.id(), file);
  const NewRow row(database);
  return format == FileFormat::text ? ZtReadTableTxt(database, table.id(), row, file)
                                    : ZtReadTableBinary(database, table.id(), row, file);
}

}  // namespace

void export_library_file(const Database& database, const Table& table, FileFormat format,
                         const std::string& file) {
  const auto write = format == FileFormat::text     ? ZtWriteTableTxt
                     : format == FileFormat::binary ? ZtWriteTableBinary
                     : format == FileFormat::image  ? ZtWriteDbTable
                                                    : ZtDumpTable;
  if (!write(database, table.id(), file.c_str())) database.fail(tr("cannot export {}", table.name()));
}

ImportCounts import_library_file(const Context& context, const Database& database, const Table& table,
                                 FileFormat format, const std::string& file, bool keep_going) {
  check(context, database, table, format, file);
  Transaction transaction(context, database);
  const std::int64_t before = records_ever(database, table);
  refusals = {};
  ZtSetErrorHandle(database, note_refusal);
  if (!read_file(database, table, format, file.c_str())) database.fail(tr("cannot import {}", file));
  if (refusals.count > 0 && !keep_going) {
    throw Failure(trn("{} row of {} is refused, and nothing was imported: {}",
                      "{} rows of {} are refused, and nothing was imported; the first: {}", refusals.count,
                      file, context.from_stored(refusals.first)));
  }
  if (format != FileFormat::image) transaction.go_on();
  transaction.commit();
  const std::int64_t stored = records_ever(database, table) - before;
  return {stored + refusals.count, stored, refusals.count};
}

}  // namespace zt
