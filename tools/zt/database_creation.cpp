// Making a database with an ordinary handle. It is attached until its tables stand; a creation that fails takes
// everything away with it.
#include <utility>

#include "zt/database.h"
#include "zt/quiet.h"

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

}  // namespace

Database::Database(const Context& context, const std::string& path, NewDatabase what)
    : context_(context), path_(inspect::BasePath::parse(path)), was_orphan_(true) {
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
  throw_if_failed("cannot make " + shown_path());
  ZtLoadDb(handle_);
  ZtUnLockDb(handle_);
}

}  // namespace zt
