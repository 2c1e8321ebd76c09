// One table as a file of `name=value` lines: text, with a line feed behind each, or binary, with each line's
// length before it and its NUL behind it. An import stores its rows as any insert does.
#include <fcntl.h>
#include <unistd.h>

#include "base/file.h"
#include "base/transfer.h"
#include "cache/each_record.h"
#include "cache/error.h"
#include "cache/row.h"
#include "cache/text.h"

using namespace cachet;

namespace {

constexpr int longest_line = 10240;  // characters; of a binary line, with its NUL

// ---- lines ----

// Reads byte by byte, so that the descriptor stands right behind what was read.
class UnbufferedReader {
 public:
  explicit UnbufferedReader(int descriptor) : descriptor_(descriptor) {}

  int next() const {
    unsigned char byte;
    return read_whole(descriptor_, &byte, 1) == 1 ? byte : FileReader::end;
  }
  std::size_t read(void* to, std::size_t size) const {
    const ssize_t came = read_whole(descriptor_, to, size);
    return came > 0 ? static_cast<std::size_t>(came) : 0;
  }

 private:
  int descriptor_;
};

// White space before the first character is skipped, line ends with it.
template <class Reader>
bool read_text_line(Reader& reader, char* buffer, int buffersize) {
  int collected = 0;
  for (int byte = reader.next(); byte != FileReader::end; byte = reader.next()) {
    const bool ends_line = byte == '\r' || byte == '\n';
    if (ends_line && collected > 0) break;
    if (ends_line || (collected == 0 && (byte == ' ' || byte == '\t'))) continue;
    if (collected >= buffersize) return false;
    buffer[collected++] = static_cast<char>(byte);
  }
  if (collected > 0) buffer[collected] = 0;
  return collected > 0;
}

template <class Reader>
bool read_binary_line(Reader& reader, char* buffer, int buffersize) {
  std::int32_t length = 0;
  if (reader.read(&length, sizeof length) != sizeof length) return false;
  if (length < 0 || length > buffersize) return false;
  const auto bytes = static_cast<std::size_t>(length);
  if (reader.read(buffer, bytes) != bytes) return false;
  buffer[bytes] = 0;
  return true;
}

// ---- export ----

// Appends the record's pairs.
void append_pairs(std::string& line, const ZtTable& table, ZtRecord* record) {
  const char* separator = "";
  for (const ZtDataField& field : table.fielddescrible) {
    line.append(separator).append(field.name).push_back('=');
    append_value(line, field, value_in(record, field), ZeroCharacter::left_out);
    separator = ";";
  }
}

void build_text_line(std::string& line, const ZtTable& table, ZtRecord* record) {
  line.clear();
  append_pairs(line, table, record);
  line.push_back('\n');
}

void build_binary_line(std::string& line, const ZtTable& table, ZtRecord* record) {
  std::int32_t length = 0;
  line.assign(sizeof length, 0);
  append_pairs(line, table, record);
  line.push_back(0);
  length = static_cast<std::int32_t>(line.size() - sizeof length);
  std::memcpy(line.data(), &length, sizeof length);
}

template <class BuildLine>
bool export_table(ZtDbHandle database, int tableid, const char* filename, const BuildLine& build_line) {
  const ZtTable* const table = loaded_table(database, tableid);
  if (table == nullptr) return false;
  Descriptor file = open_file(filename, O_RDWR | O_CREAT | O_TRUNC, 0666);
  if (!file) return report(database, ZT_ERR_GENERAL, message::open_export_failed);
  FileWriter writer(file.get());
  std::string line;
  for_each_record(database, *table, [&](ZtRecord* record) {
    if (is_deleted(record)) return;
    build_line(line, *table, record);
    writer.put(line);
  });
  return (writer.finish() && file.close()) ||
         report(database, ZT_ERR_GENERAL, message::write_failed, filename);
}

// ---- import ----

class Import {
 public:
  Import(ZtDbHandle database, const ZtTable& table, int tableid, ZtRecordRow* row)
      : database_(database), table_(table), tableid_(tableid), row_(row) {}

  // A refused row has reported why, and leaves the handle without one.
  void store(const char* line) {
    if (!ZtNewRecord(database_, tableid_, row_)) return;
    pairs_.look_at(line);
    for (std::size_t id = 0; id < table_.fielddescrible.size(); ++id) set_field(id);
    if (!ZtPutRecord(database_, row_) && row_->newrow) release_row(row_);
  }

 private:
  void set_field(std::size_t id) {
    const ZtDataField& field = table_.fielddescrible[id];
    const std::optional<std::string_view> text = pairs_.value_of(field.name);
    const char* const data = text.has_value() ? stored_form_.of(field, *text) : nullptr;
    if (data != nullptr) ZtSetField(database_, row_, static_cast<int>(id), data);
  }

  ZtDbHandle database_;
  const ZtTable& table_;
  int tableid_;
  ZtRecordRow* row_;
  Pairs pairs_;
  StoredForm stored_form_;
};

using ReadLine = bool (*)(FileReader& reader, char* buffer, int buffersize);

// Whether rows of the table may be imported through `row`. Where a row goes is decided as for every insert.
bool may_import(ZtDbHandle database, const ZtTable& table, const ZtRecordRow* row) {
  if (row == nullptr) return report(database, ZT_ERR_GENERAL, message::no_record);
  if (database->base.mode != ZT_MODE_READ_ONLY) return true;
  return report(database, ZT_ERR_READ_ONLY, message::table_read_only, table.name);
}

bool import_table(ZtDbHandle database, int tableid, ZtRecordRow* row, const char* filename,
                  ReadLine read_line) {
  const ZtTable* const table = loaded_table(database, tableid);
  if (table == nullptr || !may_import(database, *table, row)) return false;
  const Descriptor file = open_file(filename, O_RDONLY);
  if (!file) return report(database, ZT_ERR_GENERAL, message::open_failed, or_empty(filename));
  FileReader reader(file.get());
  Import import(database, *table, tableid, row);
  char line[longest_line + 1];
  while (read_line(reader, line, longest_line)) import.store(line);
  return !reader.failed() || report(database, ZT_ERR_GENERAL, message::read_failed, filename);
}

}  // namespace

bool ReadTableTxtFileLine(int fhandle, char* buffer, int buffersize) {
  UnbufferedReader reader(fhandle);
  return read_text_line(reader, buffer, buffersize);
}

bool ReadTableBinaryFileLine(int fhandle, char* buffer, int buffersize) {
  UnbufferedReader reader(fhandle);
  return read_binary_line(reader, buffer, buffersize);
}

bool ReadTableTxtFileLineValue(char* buffer, char* tag, char* value) {
  Pairs pairs;
  pairs.look_at(buffer);
  const std::optional<std::string_view> found = pairs.value_of(tag);
  if (!found.has_value()) return false;
  value[found->copy(value, found->size())] = 0;
  return true;
}

bool ZtWriteTableTxt(ZtDbHandle database, int tableid, const char* filename) {
  return export_table(database, tableid, filename, build_text_line);
}

bool ZtWriteTableBinary(ZtDbHandle database, int tableid, const char* filename) {
  return export_table(database, tableid, filename, build_binary_line);
}

bool ZtReadTableTxt(ZtDbHandle database, int tableid, ZtRecordHandle record, const char* filename) {
  return import_table(database, tableid, record, filename, read_text_line<FileReader>);
}

bool ZtReadTableBinary(ZtDbHandle database, int tableid, ZtRecordHandle record, const char* filename) {
  return import_table(database, tableid, record, filename, read_binary_line<FileReader>);
}
