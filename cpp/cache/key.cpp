// Building keys, and the comparisons as the trees call them.
#include "cache/key.h"

#include "cache/compare_keys.h"

namespace cachet {

namespace {

template <bool checked>
Value value_of_key(const Rb_base* base, const ZtIndexItem* item, int index) {
  const KeyFields<checked> fields(base, item);
  if (!fields.readable() || index >= fields.count()) return {nullptr, 0};
  return fields.value(index);
}

}  // namespace

RowKey::RowKey(const ZtTable& table, const ZtIndexDescrible& index, ZtRecord* row) : item_{} {
  std::size_t count = 0;
  for (const int fieldid : index.indexdescrible) {
    const ZtDataField& field = table.fielddescrible[static_cast<std::size_t>(fieldid)];
    fields_[count++] = {field_bytes(row, field), field.type, 0, static_cast<short>(field.length)};
  }
  item_.index = fields_.data();
  item_.point = static_cast<signed char>(count);
  item_.count = item_.point;
}

Value stored_value(const Rb_base* base, const ZtIndexItem* item, int index) {
  return checks_links(base) ? value_of_key<true>(base, item, index) : value_of_key<false>(base, item, index);
}

}  // namespace cachet

int ZtComp(Rb_base* base, void* key1, void* key2) {
  return cachet::checks_links(base) ? cachet::compare_keys<true>(base, key1, key2)
                                    : cachet::compare_keys<false>(base, key1, key2);
}

int ZtComp2(Rb_base* /*base*/, void* key1, void* key2) {
  const auto first = cachet::load_unaligned<ZTINT8>(key1);
  const auto second = cachet::load_unaligned<ZTINT8>(key2);
  return (first < second) - (first > second);
}
