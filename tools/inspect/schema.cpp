#include "inspect/schema.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "inspect/raw_database.h"
#include "inspect/translate.h"
#include "rb_fronts.h"

namespace cachet::inspect {

namespace {

constexpr std::int64_t header_bytes = sizeof(Rb_memory);

// The four runs behind the header. A count that is negative, or for which there is no room, counts as 0.
class Runs {
 public:
  Runs(const Rb_base& view, Schema& schema)
      : view_(view), limit_(std::min<std::int64_t>(view.attached_bytes, segment_bytes)), schema_(schema) {
    tables = run<Rb_tablename>(view.memory->tablecount, "tables");
    indexes = run<Rb_indexname>(view.memory->indexcount, "indexes");
    fields = run<Rb_tablefield>(view.memory->fieldcount, "fields");
    index_fields = run<Rb_indexfield>(view.memory->indexfieldcount, "index fields");
    schema.catalog_bytes = position_;
  }

  struct Run {
    std::int64_t offset = 0;
    std::int64_t count = 0;
  };
  Run tables, indexes, fields, index_fields;

  template <class Record>
  Record at(const Run& run, std::int64_t index) const {
    return load_unaligned<Record>(view_.share_memory_begin[0] + run.offset +
                                  index * static_cast<std::int64_t>(sizeof(Record)));
  }

 private:
  template <class Record>
  Run run(std::int64_t count, const char* what) {
    const std::int64_t bytes = sizeof(Record);
    if (count < 0 || count > (limit_ - position_) / bytes) {
      schema_.faults.push_back(tr("the header counts {} {}, for which there is no room", count, what));
      count = 0;
    }
    const Run run{position_, count};
    position_ += count * bytes;
    return run;
  }

  const Rb_base& view_;
  std::int64_t limit_;
  Schema& schema_;
  std::int64_t position_ = header_bytes;
};

// The table that a catalog record names; none, and a fault, when there is no such table.
Table* table_of(Schema& schema, int tableid, const char* what, std::int64_t index) {
  if (tableid >= 0 && static_cast<std::size_t>(tableid) < schema.tables.size()) {
    return &schema.tables[static_cast<std::size_t>(tableid)];
  }
  schema.faults.push_back(tr("{} {} belongs to table {}, which does not exist", what, index, tableid));
  return nullptr;
}

void add_tables(const Rb_base& view, const Runs& runs, Schema& schema) {
  for (std::int64_t i = 0; i < runs.tables.count; ++i) {
    const auto record = runs.at<Rb_tablename>(runs.tables, i);
    if (record.tableid != i) {
      schema.faults.push_back(tr("table {} calls itself {}", i, record.tableid));
    }
    Table& table = schema.tables.emplace_back();
    table.name = text_in(record.name, sizeof record.name);
    table.record = view.table + i;
  }
}

void add_fields(const Runs& runs, Schema& schema) {
  for (std::int64_t i = 0; i < runs.fields.count; ++i) {
    const auto record = runs.at<Rb_tablefield>(runs.fields, i);
    Table* const table = table_of(schema, record.tableid, "field", i);
    if (table == nullptr) continue;
    if (record.length < 0 || record.length > 0xffff) {
      schema.faults.push_back(tr("field {} has {} bytes", i, record.length));
      continue;
    }
    table->fields.push_back({text_in(record.fieldname, sizeof record.fieldname), record.type, record.length,
                             record.decimal, table->record_bytes});
    table->record_bytes += record.length;
  }
}

void add_indexes(const Runs& runs, Schema& schema) {
  for (std::int64_t i = 0; i < runs.indexes.count; ++i) {
    const auto record = runs.at<Rb_indexname>(runs.indexes, i);
    Table* const table = table_of(schema, record.tableid, "index", i);
    if (table == nullptr) continue;
    table->indexes.push_back(
        {text_in(record.name, sizeof record.name), record.type == ZT_INDEX_UNIQUE, {}, 0});
  }
}

void add_index_fields(const Runs& runs, Schema& schema) {
  for (std::int64_t i = 0; i < runs.index_fields.count; ++i) {
    const auto record = runs.at<Rb_indexfield>(runs.index_fields, i);
    Table* const table = table_of(schema, record.tableid, "index field", i);
    if (table == nullptr) continue;
    const auto index = static_cast<std::size_t>(record.indexid);
    if (record.indexid < 0 || index >= table->indexes.size() || record.fieldid < 0 ||
        static_cast<std::size_t>(record.fieldid) >= table->fields.size()) {
      schema.faults.push_back(
          tr("index field {} names index {} and field {}", i, record.indexid, record.fieldid));
      continue;
    }
    table->indexes[index].fields.push_back(record.fieldid);
  }
}

// By the rule that every process finds them with.
void place_heads(const Rb_base& view, Schema& schema) {
  const std::int64_t catalog =
      std::clamp<std::int64_t>(view.memory->memoryheadsize, header_bytes, segment_bytes);
  std::int64_t front = round_up(catalog, slot_bytes);
  const auto take = [&] {
    const std::int64_t slot = next_node_slot(front);
    front = slot + slot_bytes;
    ++schema.heads;
    return static_cast<std::uint32_t>(slot / slot_bytes);
  };
  for (Table& table : schema.tables) {
    table.list_head = take();
    for (Index& index : table.indexes) index.head = take();
  }
}

}  // namespace

int Schema::table_named(const std::string& stored_name) const {
  const auto found = std::find_if(tables.begin(), tables.end(),
                                  [&](const Table& table) { return table.name == stored_name; });
  return found == tables.end() ? -1 : static_cast<int>(found - tables.begin());
}

Schema read_schema(const Rb_base& view) {
  Schema schema;
  const Runs runs(view, schema);
  add_tables(view, runs, schema);
  add_fields(runs, schema);
  add_indexes(runs, schema);
  add_index_fields(runs, schema);
  place_heads(view, schema);
  return schema;
}

std::string type_name(int type) {
  static constexpr std::array<const char*, 10> names{"",     "SHORT", "INT",    "CHAR",   "USHORT",
                                                     "UINT", "UCHAR", "STRING", "DOUBLE", "INT8"};
  const bool known = type >= FIELD_SHORT && type <= FIELD_INT8;
  return known ? names[static_cast<std::size_t>(type)] : std::to_string(type);
}

}  // namespace cachet::inspect
