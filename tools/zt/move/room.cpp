#include "zt/move/room.h"

#include <algorithm>

#include "caches.h"
#include "zt/status.h"

namespace zt {
namespace {

using namespace cachet::inspect;

constexpr std::int64_t kept_free_bytes = 81920;  // the library inserts nothing into less
constexpr std::int64_t slot_bytes = 32;
constexpr std::int64_t key_in_tree_bytes = 2 * slot_bytes;  // its leaf, and the inner node that leads to it

std::int64_t key_bytes(const Table& table, const Index& index) {
  std::int64_t bytes = sizeof(ZtIndexItem);
  for (const int field : index.fields) {
    bytes += static_cast<std::int64_t>(sizeof(ZtIndexField)) +
             table.fields[static_cast<std::size_t>(field)].length_bytes;
  }
  return bytes;
}

// Equal keys share a leaf: only unique ones are counted.
std::int64_t least_bytes_of_a_row(const Table& table) {
  constexpr auto list_item_bytes = static_cast<std::int64_t>(sizeof(ZtListItem));
  std::int64_t bytes = ZT_RECORD_HEADER + table.record_bytes + key_in_tree_bytes + list_item_bytes;
  for (const Index& index : table.indexes) {
    bytes += slot_bytes;
    if (index.unique) bytes += key_in_tree_bytes + key_bytes(table, index);
  }
  return bytes;
}

}  // namespace

void refuse_without_room(ZtDbHandle database, const Table& table, std::int64_t rows) {
  ZTINT8 size = 0, used = 0;
  ZtMemoryInfo(database, &size, &used);
  const std::int64_t free = std::max<std::int64_t>(size - used - kept_free_bytes, 0);
  const std::int64_t least = rows * least_bytes_of_a_row(table);
  if (least <= free) return;
  throw Failure(trn("{} row takes {} bytes at least, and there is room for {}: nothing was imported",
                    "{} rows take {} bytes at least, and there is room for {}: nothing was imported", rows,
                    least, free));
}

}  // namespace zt
