#include "cache/search_key.h"

#include "base/features.h"

namespace cachet {

SearchKey::SearchKey(const ZtTable& table, std::size_t indexid, ZtIndexItem* item) : item_(item) {
  if constexpr (!features::separators && !features::packed_levels) return;
  const std::vector<int>& fields = table.indexdescrible[indexid].indexdescrible;
  bool whole = true;
  for (std::size_t index = 0; whole && static_cast<int>(index) < item->point; ++index) {
    const ZtIndexField& given = item->index[index];
    whole = index < fields.size() &&
            given.type == table.fielddescrible[static_cast<std::size_t>(fields[index])].type &&
            bytes_.append(given.type, given.data, static_cast<unsigned short>(given.length));
  }
  bytes_.finish(whole);
  is_exact_ =
      whole && static_cast<std::size_t>(item->point) == fields.size() && bytes_.ordered() == bytes_.size();
}

}  // namespace cachet
