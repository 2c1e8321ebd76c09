// Index keys: building one from a row, and reaching the fields of one that lies in a tree.
#ifndef CACHET_CPP_CACHE_KEY_H
#define CACHET_CPP_CACHE_KEY_H

#include <array>

#include "cache/value.h"
#include "caches.h"

namespace cachet {

// A key over the bytes of a row, in process memory. Holds addresses into the row.
class RowKey {
 public:
  RowKey(const ZtTable& table, const ZtIndexDescrible& index, ZtRecord* row);
  RowKey(const RowKey&) = delete;
  RowKey& operator=(const RowKey&) = delete;

  ZtIndexItem* item() { return &item_; }

 private:
  std::array<ZtIndexField, 127> fields_;
  ZtIndexItem item_;
};

// The key at an external node; null when a handle that a writer may overtake finds no key there.
template <class Item>
Item* item_at(const Rb_base* base, Rb_node node) {
  const std::int64_t offset = key_offset_of(node);
  if (!is_readable_data(base, offset, sizeof(Item))) [[unlikely]]
    return nullptr;
  return reinterpret_cast<Item*>(address_of(base, FlatOffset{offset}));
}
inline ZtIndexItem* stored_item(const Rb_base* base, Rb_node node) {
  return item_at<ZtIndexItem>(base, node);
}
inline ZtListItem* stored_list_item(const Rb_base* base, Rb_node node) {
  return item_at<ZtListItem>(base, node);
}

// The value of a key field, by its place in the key.
Value stored_value(const Rb_base* base, const ZtIndexItem* item, int index);

}  // namespace cachet

#endif
