// What this process has attached, entry by entry of g_proccess_dbstorage: whether it is still mapped, and of
// which database it is. A handle that reuses the process's attachments asks here first.
//
// Like g_proccess_dbstorage itself it is not guarded: handles of one process are not opened and closed
// concurrently.
#ifndef CACHET_CPP_RB_ATTACHMENTS_H
#define CACHET_CPP_RB_ATTACHMENTS_H

#include <string>

#include "rb.h"

namespace cachet::attachments {

// Appends an attachment; nothing when the list is full.
void add(char* address, int id, const std::string& absolute_path, const Rb_keyfile& file, bool writable);
// Notes that the address is no longer mapped.
void forget(const char* address);
// Whether the first `count` entries are mapped, writable if they have to be, and belong to the database at
// `absolute_path`. A key file is looked at only when the names differ.
bool are_of(const std::string& absolute_path, int count, bool writable);

}  // namespace cachet::attachments

#endif
