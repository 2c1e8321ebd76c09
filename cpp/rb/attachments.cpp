#include "rb/attachments.h"

#include <vector>

#include "rb/key_file.h"

DB_storage g_proccess_dbstorage;

DB_storage::DB_storage() : share_memory_begin{}, segmentcount(0) {}
DB_storage::~DB_storage() = default;

namespace cachet::attachments {

namespace {

struct Entry {
  std::string absolute_path;
  Rb_keyfile file;
  bool writable;
  bool mapped = true;
};

std::vector<Entry>& entries() {
  // Never destroyed: a program may delete its handles from the destructors of its own globals.
  static auto& list = *new std::vector<Entry>;
  return list;
}

}  // namespace

void add(char* address, int id, const std::string& absolute_path, const Rb_keyfile& file, bool writable) {
  if (g_proccess_dbstorage.segmentcount == RB_MAX_SEGMENTS) return;
  g_proccess_dbstorage.share_memory_begin[g_proccess_dbstorage.segmentcount++] = address;
  g_proccess_dbstorage.mshid.push_back(id);
  entries().push_back({absolute_path, file, writable});
}

void forget(const char* address) {
  for (std::size_t i = 0; i < entries().size(); ++i) {
    if (g_proccess_dbstorage.share_memory_begin[i] == address) entries()[i].mapped = false;
  }
}

bool are_of(const std::string& absolute_path, int count, bool writable) {
  if (static_cast<std::size_t>(count) > entries().size()) return false;
  for (int index = 0; index < count; ++index) {
    const Entry& entry = entries()[static_cast<std::size_t>(index)];
    if (!entry.mapped || (writable && !entry.writable)) return false;
    if (entry.absolute_path == absolute_path) continue;
    if (key_file_at(key_file_path(absolute_path, index)) != entry.file) return false;
  }
  return count > 0;
}

}  // namespace cachet::attachments
