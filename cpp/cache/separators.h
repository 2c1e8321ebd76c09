// Separators of trees that came from elsewhere.
#ifndef CACHET_CPP_CACHE_SEPARATORS_H
#define CACHET_CPP_CACHE_SEPARATORS_H

#include "caches.h"

namespace cachet {

enum class TreeKind { record_ids, index };

// Takes away the separators of a tree that are not of the keys they should be of, as in a damaged image; those that
// are stay as they are. Checks every link; only while readers are kept out.
void drop_wrong_separators(const Rb_base* base, Rb_node head, TreeKind kind);

}  // namespace cachet

#endif
