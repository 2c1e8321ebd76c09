// Writing a file so that its name never leads to half of it.
#ifndef CACHET_CPP_BASE_REPLACE_FILE_H
#define CACHET_CPP_BASE_REPLACE_FILE_H

#include <functional>

namespace cachet {

enum class Written { whole, not_opened, not_whole };

// Makes the file at `path`, with permission bits 0600, from what `write` writes to the descriptor it is
// given.
//
// The bytes go to a temporary in the same folder, to the disk, and then under the name: until that moment an
// existing file keeps its contents, and afterwards its mode and owner. Where the name is a symbolic link or
// no regular file, or where the folder (or the file's owner) admits no temporary, the file is truncated and
// written straight; then `write` may be called a second time.
// `not_opened`: nothing was touched. `not_whole`: `write` returned false, or the disk refused.
Written replace_file(const char* path, const std::function<bool(int descriptor)>& write);

}  // namespace cachet

#endif
