// The schema calls. They only build this process's descriptors; the catalog is replayed through the same
// calls, so every process derives the same ids, offsets and record lengths.
#include <atomic>
#include <climits>
#include <cstring>

#include "cache/error.h"
#include "cache/key_hash.h"
#include "cache/row.h"

using namespace cachet;

namespace {

// Field offsets are kept in 16 bits.
constexpr int last_field_offset = 32767;
// A key counts its fields in 8 bits.
constexpr std::size_t max_index_fields = 127;

template <std::size_t size>
void copy_name(char (&destination)[size], const char* name) {
  const std::size_t length = strnlen(name, size - 1);
  std::memcpy(destination, name, length);
  destination[length] = 0;
}

bool check_name(ZtDbHandle database, const char* name) {
  return name != nullptr || report(database, ZT_ERR_GENERAL, message::bad_name);
}

ZtIndexDescrible* index_at(ZtDbHandle database, ZtTable& table, int indexid) {
  if (indexid >= 0 && static_cast<std::size_t>(indexid) < table.indexdescrible.size()) {
    return &table.indexdescrible[static_cast<std::size_t>(indexid)];
  }
  report(database, ZT_ERR_GENERAL, message::bad_index, indexid);
  return nullptr;
}

// See HintTable.
signed char lone_type_of(const ZtTable& table, const ZtIndexDescrible& index) {
  if (index.indextype != ZT_INDEX_UNIQUE || index.indexdescrible.size() != 1) return 0;
  const signed char type = table.fielddescrible[static_cast<std::size_t>(index.indexdescrible[0])].type;
  return is_lone_type(type) ? type : 0;
}

}  // namespace

std::uint64_t cachet::next_schema() noexcept {
  static std::atomic<std::uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

void ZtAddTable(ZtDbHandle database, const char* name) {
  if (!check_name(database, name)) return;
  copy_name(database->database.emplace_back().name, name);
}

void ZtAddField(ZtDbHandle database, int tableid, const char* name, int type, int length, int decimal) {
  ZtTable* const table = table_at(database, tableid);
  if (table == nullptr || !check_name(database, name)) return;
  const int longest = INT_MAX - ZT_RECORD_HEADER - table->recordlength;
  if (length < 0 || length > longest || table->recordlength > last_field_offset) {
    report(database, ZT_ERR_GENERAL, message::bad_length, length);
    return;
  }
  ZtDataField& field = table->fielddescrible.emplace_back();
  field.type = static_cast<signed char>(type);
  field.decimal = static_cast<signed char>(decimal);
  field.offset = static_cast<short>(table->recordlength);
  field.length = static_cast<unsigned short>(length);
  copy_name(field.name, name);
  table->recordlength += length;
  database->schema = next_schema();
}

void ZtAddIndex(ZtDbHandle database, int tableid, const char* name, int indextype) {
  ZtTable* const table = table_at(database, tableid);
  if (table == nullptr || !check_name(database, name)) return;
  ZtIndexDescrible& index = table->indexdescrible.emplace_back();
  index.indextype = indextype;
  copy_name(index.name, name);
  table->indexs.push_back(nullptr);
  table->hints.emplace_back();
  table->levels.emplace_back();
}

void ZtAddIndexField(ZtDbHandle database, int tableid, int indexid, int fieldid) {
  ZtTable* const table = table_at(database, tableid);
  if (table == nullptr || field_at(database, *table, fieldid) == nullptr) return;
  ZtIndexDescrible* const index = index_at(database, *table, indexid);
  if (index == nullptr) return;
  if (index->indexdescrible.size() == max_index_fields) {
    report(database, ZT_ERR_GENERAL, message::too_many_index_fields, indexid);
    return;
  }
  table->fielddescrible[static_cast<std::size_t>(fieldid)].indexed = 1;
  index->indexdescrible.push_back(fieldid);
  const int count = static_cast<int>(index->indexdescrible.size());
  table->hints[static_cast<std::size_t>(indexid)].keys.lone_type = lone_type_of(*table, *index);
  if (count > table->maxindexfield) table->maxindexfield = count;
}
