// The schema in shared memory and back.
#include "cache/catalog.h"

#include <algorithm>
#include <cstring>

#include "cache/error.h"

using namespace cachet;

namespace {

template <class Record>
std::span<Record> next_run(char*& position, std::int64_t count) {
  const std::span<Record> run(reinterpret_cast<Record*>(position), static_cast<std::size_t>(count));
  position += run.size_bytes();
  return run;
}

CatalogCounts counts_of(const std::vector<ZtTable>& tables) {
  CatalogCounts counts;
  counts.tables = static_cast<std::int64_t>(tables.size());
  for (const ZtTable& table : tables) {
    counts.fields += static_cast<std::int64_t>(table.fielddescrible.size());
    counts.indexes += static_cast<std::int64_t>(table.indexdescrible.size());
    for (const ZtIndexDescrible& index : table.indexdescrible) {
      counts.index_fields += static_cast<std::int64_t>(index.indexdescrible.size());
    }
  }
  return counts;
}

std::int64_t first_segment_bytes(const Rb_base& base) {
  return std::min<std::int64_t>(base.attached_bytes, segment_bytes);
}

// The name with zeros behind it, cut to the record's room.
template <std::size_t size>
void write_name(char (&destination)[size], const char* name) {
  std::memset(destination, 0, size);
  std::memcpy(destination, name, strnlen(name, size - 1));
}

class Writer {
 public:
  explicit Writer(const Catalog& catalog) : catalog_(catalog) {}

  void write(const ZtTable& table) {
    Rb_tablename& record = catalog_.tables[static_cast<std::size_t>(tableid_)];
    write_name(record.name, table.name);
    record.tableid = tableid_;
    record.recordcount = 0;
    record.duty = 0;
    record.updateno = 0;
    int fieldid = 0;
    for (const ZtDataField& field : table.fielddescrible) write(field, fieldid++);
    int indexid = 0;
    for (const ZtIndexDescrible& index : table.indexdescrible) write(index, indexid++);
    ++tableid_;
  }

 private:
  void write(const ZtDataField& field, int fieldid) {
    Rb_tablefield& record = catalog_.fields[fields_++];
    record.tableid = tableid_;
    record.fieldid = fieldid;
    write_name(record.fieldname, field.name);
    record.type = field.type;
    record.length = field.length;
    record.decimal = field.decimal;
  }

  void write(const ZtIndexDescrible& index, int indexid) {
    Rb_indexname& record = catalog_.indexes[indexes_++];
    write_name(record.name, index.name);
    record.type = index.indextype;
    record.indexid = indexid;
    record.tableid = tableid_;
    for (const int fieldid : index.indexdescrible) {
      Rb_indexfield& link = catalog_.index_fields[index_fields_++];
      link.tableid = tableid_;
      link.indexid = indexid;
      link.fieldid = fieldid;
    }
  }

  Catalog catalog_;
  int tableid_ = 0;
  std::size_t fields_ = 0;
  std::size_t indexes_ = 0;
  std::size_t index_fields_ = 0;
};

}  // namespace

namespace cachet {

CatalogCounts CatalogCounts::of(const Rb_memory& header) {
  return {header.tablecount, header.indexcount, header.fieldcount, header.indexfieldcount};
}

std::int64_t CatalogCounts::bytes() const {
  return static_cast<std::int64_t>(sizeof(Rb_memory)) +
         tables * static_cast<std::int64_t>(sizeof(Rb_tablename)) +
         indexes * static_cast<std::int64_t>(sizeof(Rb_indexname)) +
         fields * static_cast<std::int64_t>(sizeof(Rb_tablefield)) +
         index_fields * static_cast<std::int64_t>(sizeof(Rb_indexfield));
}

Catalog Catalog::behind(char* header, const CatalogCounts& counts) {
  char* position = header + sizeof(Rb_memory);
  Catalog catalog;
  catalog.tables = next_run<Rb_tablename>(position, counts.tables);
  catalog.indexes = next_run<Rb_indexname>(position, counts.indexes);
  catalog.fields = next_run<Rb_tablefield>(position, counts.fields);
  catalog.index_fields = next_run<Rb_indexfield>(position, counts.index_fields);
  return catalog;
}

bool is_sound(const Rb_memory& header, std::int64_t limit) {
  const CatalogCounts counts = CatalogCounts::of(header);
  for (const std::int64_t count : {counts.tables, counts.indexes, counts.fields, counts.index_fields}) {
    if (count < 0 || count > limit) return false;
  }
  const bool never_saved = counts.tables == 0 && header.memoryheadsize == 0;
  return counts.bytes() <= limit && (counts.bytes() == header.memoryheadsize || never_saved);
}

bool is_sound(const Catalog& catalog) {
  struct Size {
    int fields = 0;
    int indexes = 0;
  };
  std::vector<Size> tables(catalog.tables.size());
  const auto size_of = [&](int tableid) {
    const auto id = static_cast<std::size_t>(tableid);
    return tableid >= 0 && id < tables.size() ? &tables[id] : nullptr;
  };
  for (const Rb_tablefield& field : catalog.fields) {
    Size* const table = size_of(field.tableid);
    if (table == nullptr) return false;
    ++table->fields;
  }
  for (const Rb_indexname& index : catalog.indexes) {
    Size* const table = size_of(index.tableid);
    if (table == nullptr) return false;
    ++table->indexes;
  }
  return std::all_of(catalog.index_fields.begin(), catalog.index_fields.end(),
                     [&](const Rb_indexfield& link) {
                       const Size* const table = size_of(link.tableid);
                       return table != nullptr && link.indexid >= 0 && link.indexid < table->indexes &&
                              link.fieldid >= 0 && link.fieldid < table->fields;
                     });
}

}  // namespace cachet

void ZtSaveDbInfo(ZtDbHandle database) {
  if (!require_writable(database)) return;
  const Rb_base& base = database->base;
  const CatalogCounts counts = counts_of(database->database);
  if (counts.bytes() > first_segment_bytes(base)) {
    report(database, ZT_ERR_GENERAL, message::catalog_too_large, static_cast<long long>(counts.bytes()));
    return;
  }
  Writer writer(Catalog::behind(base.share_memory_begin[0], counts));
  for (const ZtTable& table : database->database) writer.write(table);

  Rb_memory& header = *base.memory;
  header.tablecount = counts.tables;
  header.fieldcount = counts.fields;
  header.indexcount = counts.indexes;
  header.indexfieldcount = counts.index_fields;
  header.memoryheadsize = counts.bytes();
  header.nodeoffset = round_up(counts.bytes(), slot_bytes);
  header.dataoffset = header.size;
}

void ZtLoadDbInfo(ZtDbHandle database) {
  if (!database->opened) {
    report(database, ZT_ERR_GENERAL, message::database_not_open);
    return;
  }
  const Rb_base& base = database->base;
  const bool fits = is_sound(*base.memory, first_segment_bytes(base));
  const CatalogCounts counts = fits ? CatalogCounts::of(*base.memory) : CatalogCounts{};
  const Catalog catalog = Catalog::behind(base.share_memory_begin[0], counts);
  if (!fits || !is_sound(catalog)) {
    report(database, ZT_ERR_GENERAL, message::catalog_corrupt);
    return;
  }
  // Replayed by kind. Ids are positions, so the stored order reproduces the creator's ids.
  for (const Rb_tablename& table : catalog.tables) ZtAddTable(database, table.name);
  for (const Rb_tablefield& field : catalog.fields) {
    ZtAddField(database, field.tableid, field.fieldname, field.type, field.length, field.decimal);
  }
  for (const Rb_indexname& index : catalog.indexes)
    ZtAddIndex(database, index.tableid, index.name, index.type);
  for (const Rb_indexfield& link : catalog.index_fields) {
    ZtAddIndexField(database, link.tableid, link.indexid, link.fieldid);
  }
}
