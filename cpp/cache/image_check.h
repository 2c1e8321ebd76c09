// Judging an image of a whole database before a byte of it is loaded.
#ifndef CACHET_CPP_CACHE_IMAGE_CHECK_H
#define CACHET_CPP_CACHE_IMAGE_CHECK_H

#include <vector>

#include "base/file.h"
#include "caches.h"

namespace cachet {

struct CheckedImage {
  Descriptor file;         // none: the check has reported why
  std::vector<char> head;  // header and catalog, as they were checked

  explicit operator bool() const { return static_cast<bool>(file); }
};

// Opens the image and checks that it fits the attached database: the version first (-1010); then, with -1008,
// that the file is as long as its own `size` says, that this is the attached size, that its catalog is the
// attached one (or the attached database has no tables yet), and that its fronts leave room for its tree
// heads and do not cross. Changes nothing.
CheckedImage open_checked_image(ZtDbHandle database, const char* filename);

}  // namespace cachet

#endif
