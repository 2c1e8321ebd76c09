// The catalog of a database as names and numbers, read from raw memory that may be anything.
#ifndef CACHET_TOOLS_INSPECT_SCHEMA_H
#define CACHET_TOOLS_INSPECT_SCHEMA_H

#include <cstdint>
#include <string>
#include <vector>

#include "rb.h"

namespace cachet::inspect {

struct Field {
  std::string name;  // as stored: GBK
  int type = 0;
  int length_bytes = 0;
  int decimals = 0;
  std::int64_t offset = 0;  // in the record's data part
};

struct Index {
  std::string name;
  bool unique = false;
  std::vector<int> fields;  // ids, most significant first; each one exists
  std::uint32_t head = 0;   // node number of its tree's head
};

struct Table {
  std::string name;
  const Rb_tablename* record = nullptr;  // in the shared memory
  std::int64_t record_bytes = 0;         // of the data part
  std::vector<Field> fields;
  std::vector<Index> indexes;
  std::uint32_t list_head = 0;  // of the record-id tree
};

struct Schema {
  std::vector<Table> tables;
  std::vector<std::string> faults;  // what in the catalog contradicts itself; that part is left out
  // Bytes of header and catalog by its counts.
  std::int64_t catalog_bytes = 0;
  std::int64_t heads = 0;

  // -1 without one.
  int table_named(const std::string& stored_name) const;
};

Schema read_schema(const Rb_base& view);

// "INT", "STRING", ...; the number of an unknown type.
std::string type_name(int type);

}  // namespace cachet::inspect

#endif
