// The check of one tree: its list whole in both directions, its nodes linked, coloured and balanced as they should be,
// the leaves of the tree those of the list, and their keys in order. A search then finds every key.
#ifndef CACHET_TOOLS_INSPECT_TREE_CHECK_H
#define CACHET_TOOLS_INSPECT_TREE_CHECK_H

#include <string>
#include <vector>

#include "inspect/findings.h"
#include "rb.h"

namespace cachet::inspect {

struct TreeToCheck {
  const Rb_base* view;
  std::uint32_t head;
  Rb_compare compare;
  std::int64_t key_bytes;  // that must lie in the data area
  std::string where;
};

// The leaves in list order, as far as the list could be followed.
std::vector<std::uint32_t> check_tree(const TreeToCheck& tree, Findings& findings);

}  // namespace cachet::inspect

#endif
