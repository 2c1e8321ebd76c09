// One table of an open database, found by the name that a user gives: its number, its fields, its indexes.
#ifndef CACHET_TOOLS_ZT_TABLE_H
#define CACHET_TOOLS_ZT_TABLE_H

#include <string>

#include "zt/context.h"
#include "zt/database.h"
#include "zt/fields.h"

namespace zt {

class Table {
 public:
  // `name` as on the command line. Throws NotFound, naming the tables that there are. `context` outlives it.
  Table(const Context& context, const Database& database, const std::string& name);

  int id() const { return id_; }
  // UTF-8.
  const std::string& name() const { return name_; }
  const Fields& fields() const { return fields_; }

  // By its name on the command line. Throws NotFound, naming those that there are.
  int index_named(const std::string& name) const;
  // By its name in UTF-8; likewise.
  int field_named(const std::string& utf8_name) const;
  // The fields of an index, most significant first.
  const std::vector<int>& key_of(int index) const;

 private:
  Table(const Context& context, const Database& database, int id);

  const Context& context_;
  const cachet::inspect::Table& table_;  // the database's
  int id_;
  std::string name_;
  Fields fields_;
};

}  // namespace zt

#endif
