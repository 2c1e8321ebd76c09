// Writing image files, whichever they are.
#ifndef CACHET_CPP_CACHE_IMAGE_H
#define CACHET_CPP_CACHE_IMAGE_H

#include "base/replace_file.h"
#include "cache/error.h"

namespace cachet {

// Makes the file from what `write` writes, whole or not at all where the file system lets us. Reports a
// failure.
template <class Write>
bool write_image_file(ZtDbHandle database, const char* filename, const Write& write) {
  switch (replace_file(filename, write)) {
    case Written::whole:
      return true;
    case Written::not_opened:
      return report(database, ZT_ERR_GENERAL, message::open_failed, or_empty(filename));
    case Written::not_whole:
      break;
  }
  return report(database, ZT_ERR_GENERAL, message::write_failed, filename);
}

}  // namespace cachet

#endif
