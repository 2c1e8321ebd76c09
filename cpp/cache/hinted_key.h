// A searched key and the hints of its index (accelerate_hints.h): taking one, proving it, keeping what a search has
// found.
//
// A hint must never show in a result. So it counts for keys alone that can be equal to one node's only; that node is
// compared with the key; and a place is kept only behind the validation of the read that found it.
#ifndef CACHET_CPP_CACHE_HINTED_KEY_H
#define CACHET_CPP_CACHE_HINTED_KEY_H

#include "cache/index_search.h"

namespace cachet {

class HintedKey {
 public:
  // `key` outlives it.
  HintedKey(Rb_base* base, const ZtTable& table, std::size_t indexid, const SearchKey& key);

  // The node that holds the key, if a hint leads to it; null when there is none, or it does not hold.
  Rb_node find();
  // Notes where a search has found the key, for `keep`.
  void note(Rb_node node);
  // Makes what was noted a hint; the read that noted it has been validated.
  void keep();

 private:
  Rb_base* base_;
  const srb_node* head_;
  const SearchKey& key_;
  HintTable* hints_ = nullptr;  // null: not a key for hints
  Era era_;                     // as `find` has seen it
  std::uint32_t hash_ = 0;
  Hint noted_{};  // no node: nothing to keep
};

}  // namespace cachet

#endif
