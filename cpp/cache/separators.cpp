#include "cache/separators.h"

#include "accelerate/key_bytes.h"
#include "cache/index_search.h"
#include "cache/key.h"
#include "rb/node.h"

namespace cachet {

namespace {

bool is_of(const SeparatorBytes& separator, const KeyBytes& key) {
  const unsigned skip = separator.skip();
  if (skip >= key.size() || skip > key.ordered()) return false;
  return separator.header() == SeparatorBytes::header_of(key.separator(skip)) &&
         separator.window() == key.window(skip);
}

class Examination {
 public:
  Examination(const Rb_base* base, TreeKind kind)
      : base_(base), kind_(kind), nodes_left_(load_relaxed<ZTINT8>(&base->memory->nodeoffset) / slot_bytes) {}

  void visit(std::uint32_t number, int depth = 0) {
    if (!is_node(base_, number) || depth == max_depth || --nodes_left_ < 0) return;
    const Rb_node node = node_at(base_, number);
    if (!is(node, RB_INTERNAL)) return;
    if (const SeparatorBytes separator(node); separator.is_there()) {
      KeyBytes key;
      if (!bytes_at(lext_of(node), key) || !is_of(separator, key)) clear_separator(node);
    }
    visit(left_of(node), depth + 1);
    visit(right_of(node), depth + 1);
  }

 private:
  static constexpr int max_depth = 128;

  bool bytes_at(std::uint32_t external, KeyBytes& bytes) const {
    if (!is_node(base_, external)) return false;
    const Rb_node node = node_at(base_, external);
    if (kind_ == TreeKind::index) return bytes_of_stored_key(base_, node, bytes);
    const ZtListItem* const item = stored_list_item(base_, node);
    if (item != nullptr) bytes = bytes_of_id(load_unaligned<ZTINT8>(item));
    return item != nullptr;
  }

  const Rb_base* base_;
  TreeKind kind_;
  std::int64_t nodes_left_;  // a damaged tree may lead to a node more than once
};

}  // namespace

void drop_wrong_separators(const Rb_base* base, Rb_node head, TreeKind kind) {
  Examination(base, kind).visit(root_of(head));
}

}  // namespace cachet
