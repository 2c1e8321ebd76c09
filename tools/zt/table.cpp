#include "zt/table.h"

#include <algorithm>

namespace zt {

namespace inspect = cachet::inspect;

namespace {

// Where among `all`, which have names as stored, the one is that the user calls `wanted`.
template <class Named>
int place_of(const Context& context, const std::vector<Named>& all, const std::string& wanted,
             const std::string& whose, const std::string& what) {
  std::string names;
  for (const Named& each : all) {
    const std::string shown = context.from_stored(each.name);
    if (shown == wanted) return static_cast<int>(&each - all.data());
    names += (names.empty() ? "" : ", ") + shown;
  }
  throw inspect::NotFound(names.empty() ? tr("{} has no {} {}; it has none", whose, what, wanted)
                                        : tr("{} has no {} {}; it has {}", whose, what, wanted, names));
}

}  // namespace

Table::Table(const Context& context, const Database& database, const std::string& name)
    : Table(context, database,
            place_of(context, database.schema().tables, context.argument(name), database.shown_path(),
                     tr("table"))) {}

Table::Table(const Context& context, const Database& database, int id)
    : context_(context),
      table_(database.schema().tables[static_cast<std::size_t>(id)]),
      id_(id),
      name_(context.from_stored(table_.name)),
      fields_(context.encoding(), table_) {}

int Table::field_named(const std::string& utf8_name) const {
  return place_of(context_, table_.fields, utf8_name, tr("table {}", name_), tr("field"));
}

int Table::index_named(const std::string& name) const {
  return place_of(context_, table_.indexes, context_.argument(name), tr("table {}", name_), tr("index"));
}

const std::vector<int>& Table::key_of(int index) const {
  return table_.indexes[static_cast<std::size_t>(index)].fields;
}

}  // namespace zt
