// The records of one table as a file: the database's version in 32 bytes, then the data of every live record,
// all of one length. Record ids, marks and deleted records are left out.
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <string>

#include "base/file.h"
#include "base/transfer.h"
#include "cache/each_record.h"
#include "cache/heads.h"
#include "cache/image.h"
#include "cache/work.h"
#include "cache/write.h"
#include "rb_fronts.h"

using namespace cachet;

namespace {

constexpr std::size_t version_bytes = sizeof(Rb_memory::version);

std::string file_of(const char* path, const ZtTable& table) {
  return std::string(path) + "//" + table.name + ".table";
}

// Whether there is a folder to name files in, and the handle knows the tree heads of all tables.
bool may_visit_folder(ZtDbHandle database, const char* path) {
  if (path == nullptr) return report(database, ZT_ERR_GENERAL, message::open_failed, "");
  const auto count = static_cast<std::size_t>(database->base.memory->tablecount);
  const bool loaded =
      database->database.size() == count && (count == 0 || database->database.back().listindex != nullptr);
  return loaded || report(database, ZT_ERR_GENERAL, message::database_not_open);
}

// ---- writing ----

bool write_records(const ZtDb* database, const ZtTable& table, int descriptor) {
  FileWriter writer(descriptor);
  writer.put(database->base.memory->version, version_bytes);
  for_each_record(database, table, [&](ZtRecord* record) {
    if (!is_deleted(record)) {
      writer.put(bytes_of(record) + ZT_RECORD_HEADER, static_cast<std::size_t>(table.recordlength));
    }
  });
  return writer.finish();
}

bool write_table(ZtDbHandle database, const ZtTable& table, const char* filename) {
  return write_image_file(database, filename,
                          [&](int descriptor) { return write_records(database, table, descriptor); });
}

// ---- reading ----

// An open table image behind its header.
class TableImage {
 public:
  TableImage(ZtDbHandle database, const char* filename)
      : database_(database),
        filename_(or_empty(filename)),
        file_(open_file(filename, O_RDONLY)),
        reader_(file_.get()) {}

  // Whether there is an image; reported otherwise. The version is nobody's business here.
  bool begin() {
    if (!file_) return report(database_, ZT_ERR_GENERAL, message::open_failed, filename_.c_str());
    std::array<char, version_bytes> version;
    return reader_.read(version.data(), version.size()) == version.size() || malformed();
  }

  // Loads its records into the table, to those that are there. A refused record has reported why; those
  // before it stay.
  bool load(int tableid) {
    const ZtTable& table = database_->database[static_cast<std::size_t>(tableid)];
    for (std::int64_t left = count_records(table); left > 0; --left) {
      if (!load_record(table, tableid)) return false;
    }
    return true;
  }

 private:
  // A tail that is no whole record is nothing.
  std::int64_t count_records(const ZtTable& table) const {
    struct stat status {};
    if (table.recordlength <= 0 || fstat(file_.get(), &status) != 0) return 0;
    return (status.st_size - static_cast<std::int64_t>(version_bytes)) / table.recordlength;
  }

  bool load_record(const ZtTable& table, int tableid) {
    Rb_base& base = database_->base;
    const int bytes = stored_bytes(table);
    const std::int64_t data_front = base.memory->dataoffset;
    if (!require_room_for_record(database_, bytes)) return false;
    ZtRecordRow row;
    row.record = reinterpret_cast<ZtRecord*>(Rb_data_malloc(&base, bytes, 8, true));
    row.tableid = tableid;
    row.newrow = true;
    if (fill(table, row.record) && link(&row)) return true;
    store_release<ZTINT8>(&base.memory->dataoffset, data_front);
    return false;
  }

  // The block is zeroed: the header needs nothing but the id.
  bool fill(const ZtTable& table, ZtRecord* record) {
    const auto length = static_cast<std::size_t>(table.recordlength);
    set_id(record, -1);
    if (reader_.read(bytes_of(record) + ZT_RECORD_HEADER, length) != length) return malformed();
    for (const ZtDataField& field : table.fielddescrible) {
      if (field.type == FIELD_STRING && field.length > 0) field_bytes(record, field)[field.length - 1] = 0;
    }
    return true;
  }

  // The table is not marked, so the epoch is what keeps readers off trees that are being changed.
  bool link(ZtRecordRow* row) {
    database_->lock.MakeEpochOdd();
    const bool loaded = ZtLoadRecord(database_, row);
    database_->lock.MakeEpochEven();
    return loaded;
  }

  bool malformed() { return report(database_, ZT_ERR_GENERAL, message::bad_format, filename_.c_str()); }

  ZtDbHandle database_;
  std::string filename_;
  Descriptor file_;
  FileReader reader_;
};

// Calls `visit(file, tableid)` for every table's file in the folder, until one fails.
template <class Visit>
bool for_each_file(ZtDbHandle database, const char* path, const Visit& visit) {
  int tableid = 0;
  for (const ZtTable& table : database->database) {
    if (!visit(file_of(path, table), tableid++)) return false;
  }
  return true;
}

}  // namespace

bool ZtWriteDbTable(ZtDbHandle database, int tableid, const char* tablefile) {
  const ZtTable* const table = loaded_table(database, tableid);
  return table != nullptr && write_table(database, *table, tablefile);
}

bool ZtWriteDbDir(ZtDbHandle database, const char* path) {
  if (!database->opened) return report(database, ZT_ERR_GENERAL, message::database_not_open);
  if (!may_visit_folder(database, path)) return false;
  mkdir(path, 0777);  // it may exist; what else is wrong with it, the files will tell
  return for_each_file(database, path, [=](const std::string& file, int tableid) {
    return ZtWriteDbTable(database, tableid, file.c_str());
  });
}

bool ZtReadDbTable(ZtDbHandle database, int tableid, const char* tablefile) {
  if (forwards_changes(database)) {
    return ZtRemoteReadDbTable(database, tableid, const_cast<char*>(tablefile));
  }
  if (loaded_table(database, tableid) == nullptr) return false;
  ZtRecordRow row;
  row.tableid = tableid;
  if (writable_table(database, &row) == nullptr) return false;
  TableImage image(database, tablefile);
  return image.begin() && image.load(tableid);
}

bool ZtReadDbDir(ZtDbHandle database, const char* path) {
  if (forwards_changes(database)) return ZtRemoteReadDbDir(database, const_cast<char*>(path));
  if (!require_writable(database) || !may_visit_folder(database, path)) return false;
  const bool sound = for_each_file(database, path, [=](const std::string& file, int) {
    return TableImage(database, file.c_str()).begin();
  });
  if (!sound) return false;
  const Work work(database, work_load);
  abandon_records(database, database->base.memory->dataoffset);
  return for_each_file(database, path, [=](const std::string& file, int tableid) {
    TableImage image(database, file.c_str());
    return image.begin() && image.load(tableid);
  });
}
