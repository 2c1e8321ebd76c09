// Making a database with an ordinary handle. It is attached until its tables stand; a creation that fails takes
// everything away with it, and two that are tried at once do not replace one another's.
#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "inspect/file_lock.h"
#include "zt/database.h"
#include "zt/quiet.h"
#include "zt/status.h"

namespace zt {

namespace inspect = cachet::inspect;

namespace {

void define(ZtDbHandle database, const inspect::Schema& schema) {
  for (int table = 0; const inspect::Table& each : schema.tables) {
    ZtAddTable(database, each.name.c_str());
    for (const inspect::Field& field : each.fields) {
      ZtAddField(database, table, field.name.c_str(), field.type, field.length_bytes, field.decimals);
    }
    for (int index = 0; const inspect::Index& of : each.indexes) {
      ZtAddIndex(database, table, of.name.c_str(), of.unique ? ZT_INDEX_UNIQUE : ZT_INDEX_DUPLICATES);
      for (const int field : of.fields) ZtAddIndexField(database, table, index, field);
      ++index;
    }
    ++table;
  }
}

// So that two who make the same database meet at its lock file, which the library would make only later.
void make_lock_file(const inspect::BasePath& path) {
  const int file = open(path.text().c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (file >= 0) close(file);
}

}  // namespace

Database::Database(const Context& context, const std::string& path, NewDatabase what)
    : context_(context), path_(inspect::BasePath::parse(path)), was_orphan_(true) {
  make_lock_file(path_);
  const inspect::ExclusiveFileLock lock(path_);
  if (!lock.is_ours() || inspect::segment_of_file(path_.segment_file(0)) >= 0)
    throw Refused(tr("{} is there meanwhile, or somebody makes it just now", shown_path()));
  try {
    make(what);
  } catch (...) {
    const Quiet quiet;
    ZtDeleteDb(handle_);
    throw;
  }
  schema_ = std::move(what.schema);
}

void Database::make(const NewDatabase& what) {
  const Quiet quiet;
  const bool made = ZtCreateDb(&handle_, path_.directory.c_str(), path_.name.c_str(), what.version.c_str(),
                               what.size_bytes, 1);
  ZtSetErrorHandle(handle_, [](int, const char*) { return true; });
  if (made) {
    define(handle_, what.schema);
    ZtSaveDbInfo(handle_);
  }
  throw_if_failed(tr("cannot make {}", shown_path()));
  ZtLoadDb(handle_);
  ZtUnLockDb(handle_);
}

}  // namespace zt
