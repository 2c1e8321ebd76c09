#include "inspect/tree_check.h"

#include <algorithm>

#include "inspect/translate.h"
#include "inspect/walk.h"

namespace cachet::inspect {

namespace {

constexpr int deepest = 128;  // as deep as a search goes

std::uint32_t word(Rb_node node, std::size_t offset) {
  return load_unaligned<std::uint32_t>(reinterpret_cast<const char*>(node) + offset);
}
std::uint32_t parent_of(Rb_node node) {
  return word(node, offsetof(srb_node, p));
}

std::string text_of(WalkEnd end) {
  switch (end) {
    case WalkEnd::bad_link:
      return tr("the list leads outside the nodes");
    case WalkEnd::no_leaf:
      return tr("the list leads to what is no leaf");
    case WalkEnd::endless:
      return tr("the list has no end");
    case WalkEnd::at_head:
      break;
  }
  return "";
}

class TreeCheck {
 public:
  TreeCheck(const TreeToCheck& tree, Findings& findings)
      : tree_(tree), view_(tree.view), findings_(findings) {}

  std::vector<std::uint32_t> run() {
    if (!is_node(view_, tree_.head) || !has(tree_.head, RB_HEAD)) {
      damage(tree_.head, tr("this is no head of a tree"));
      return {};
    }
    follow_list();
    descend();
    if (whole_ && by_tree_ != by_list_) report_difference();
    check_keys();
    return std::move(by_list_);
  }

 private:
  struct Step {
    std::uint32_t number;
    std::uint32_t parent;
    int depth;
    int blacks;  // above it
    bool left;
    bool left_done;
  };

  Rb_node at(std::uint32_t number) const { return node_at(view_, number); }
  bool has(std::uint32_t number, unsigned bits) const { return (status_of(at(number)) & bits) != 0; }

  void damage(std::uint32_t number, const std::string& what) {
    whole_ = false;
    findings_.damage(tree_.where + ", node " + std::to_string(number), what);
  }

  void follow_list() {
    std::uint32_t before = tree_.head;
    const WalkEnd end = walk_list(view_, tree_.head, [&](std::uint32_t number, Rb_node node) {
      if (blink_of(node) != before)
        damage(number, tr("the list backwards leads elsewhere than to {}", before));
      by_list_.push_back(number);
      before = number;
      return true;
    });
    if (end != WalkEnd::at_head) {
      damage(before, text_of(end));
    } else if (blink_of(at(tree_.head)) != before) {
      damage(tree_.head, tr("the last node of the list is another one backwards"));
    }
  }

  // In order, so that the leaves come as they stand in the list.
  void descend() {
    const std::uint32_t root = parent_of(at(tree_.head));
    if (root == tree_.head) return;
    std::vector<Step> steps{{root, tree_.head, 0, 0, false, false}};
    for (std::int64_t visits = 2 * most_nodes(view_); !steps.empty(); --visits) {
      if (visits == 0) return damage(root, tr("the tree has no end"));
      Step& step = steps.back();
      if (step.left_done) {
        const Step done = step;
        steps.pop_back();
        pass_middle(done, steps);
      } else if (!enter(step)) {
        steps.pop_back();
      } else if (has(step.number, RB_INTERNAL)) {
        step.left_done = true;
        steps.push_back(child_of(step, true));
      } else {
        leaf(step);
        steps.pop_back();
      }
    }
  }

  Step child_of(const Step& step, bool left) const {
    const int blacks = step.blacks + (has(step.number, RB_RED) ? 0 : 1);
    return {word(at(step.number), left ? 0 : 4), step.number, step.depth + 1, blacks, left, false};
  }

  // Whether the node may be gone into.
  bool enter(const Step& step) {
    if (!is_node(view_, step.number)) {
      damage(step.parent, tr("a child link leads outside the nodes"));
      return false;
    }
    if (step.depth > deepest) {
      damage(step.number, tr("the tree is deeper than any search goes"));
      return false;
    }
    const bool is_root = step.parent == tree_.head;
    if (parent_of(at(step.number)) != step.parent) {
      damage(step.number, tr("its parent is not {}", step.parent));
    }
    if (has(step.number, RB_HEAD)) damage(step.number, tr("it is marked as a head"));
    if (has(step.number, RB_ROOT) != is_root)
      damage(step.number, is_root ? tr("the root is not marked") : tr("it is marked as the root"));
    if (!is_root && has(step.number, RB_LEFT) != step.left) damage(step.number, tr("its side is wrong"));
    if (!is_root && has(step.number, RB_RED) && has(step.parent, RB_RED))
      damage(step.number, tr("it is red under a red node"));
    return true;
  }

  // Behind the left subtree: its greatest leaf is known, and the least one of the right subtree comes next.
  void pass_middle(const Step& step, std::vector<Step>& steps) {
    const std::uint32_t greatest = by_tree_.empty() ? 0 : by_tree_.back();
    if (word(at(step.number), offsetof(srb_node, k)) != greatest)
      damage(step.number, tr("its left extreme is wrong"));
    right_extreme_of_ = step.number;
    steps.push_back(child_of(step, false));
  }

  void leaf(const Step& step) {
    if (right_extreme_of_ != 0 && word(at(right_extreme_of_), offsetof(srb_node, v)) != step.number) {
      damage(right_extreme_of_, tr("its right extreme is wrong"));
    }
    right_extreme_of_ = 0;
    const int blacks = step.blacks + (has(step.number, RB_RED) ? 0 : 1);
    if (by_tree_.empty()) blacks_ = blacks;
    if (blacks != blacks_) damage(step.number, tr("its black height differs"));
    by_tree_.push_back(step.number);
  }

  void report_difference() {
    const auto [in_tree, in_list] =
        std::mismatch(by_tree_.begin(), by_tree_.end(), by_list_.begin(), by_list_.end());
    damage(in_list != by_list_.end() ? *in_list : *in_tree,
           tr("the leaves of the tree are not those of the list"));
  }

  void check_keys() {
    char* before = nullptr;
    for (const std::uint32_t number : by_list_) {
      const std::int64_t offset = key_offset_of(at(number));
      if (!is_data(view_, offset, tree_.key_bytes)) {
        damage(number, tr("its key lies outside the data"));
        before = nullptr;
        continue;
      }
      if (value_offset_of(at(number)) != offset) damage(number, tr("its value is not its key"));
      char* const key = address_of(view_, FlatOffset{offset});
      const bool in_order = before == nullptr || tree_.compare(const_cast<Rb_base*>(view_), before, key) < 0;
      if (!in_order) damage(number, tr("its key is not below that of the node before it"));
      before = key;
    }
  }

  const TreeToCheck& tree_;
  const Rb_base* view_;
  Findings& findings_;
  bool whole_ = true;
  std::vector<std::uint32_t> by_list_, by_tree_;
  std::uint32_t right_extreme_of_ = 0;  // whose right subtree begins now
  int blacks_ = 0;
};

}  // namespace

std::vector<std::uint32_t> check_tree(const TreeToCheck& tree, Findings& findings) {
  return TreeCheck(tree, findings).run();
}

}  // namespace cachet::inspect
