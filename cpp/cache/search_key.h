// A search key made ready: the key as the caller gave it, and its bytes.
#ifndef CACHET_CPP_CACHE_SEARCH_KEY_H
#define CACHET_CPP_CACHE_SEARCH_KEY_H

#include "accelerate/key_bytes.h"
#include "caches.h"

namespace cachet {

// A key in process memory, for searches of one index. Its bytes end before a field that is not of the index's type
// or is shorter than a value of that type: such a key is compared as it is.
class SearchKey {
 public:
  SearchKey(const ZtTable& table, std::size_t indexid, ZtIndexItem* item);
  SearchKey(const SearchKey&) = delete;
  SearchKey& operator=(const SearchKey&) = delete;

  ZtIndexItem* item() const { return item_; }
  const KeyBytes& bytes() const { return bytes_; }
  // Whether it equals one node of the tree at most, whatever the shape of the tree: it has all fields of the index,
  // and all of their values are in order, which doubles are not.
  bool is_exact() const { return is_exact_; }

 private:
  ZtIndexItem* item_;
  KeyBytes bytes_;
  bool is_exact_ = false;
};

}  // namespace cachet

#endif
