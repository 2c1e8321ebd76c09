// The database that the fuzz targets work on: in memory that nothing but this process leads to any more, so
// that a target may crash and leave nothing behind.
#ifndef CACHET_FUZZ_DATABASES_H
#define CACHET_FUZZ_DATABASES_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "require.h"
#include "support/all_types.h"

namespace cachet::fuzz {

inline constexpr ZTINT8 database_bytes = 256 << 10;

struct Databases {
  test::Database writer;
  test::Database reader;

  Databases() {
    test::TempDirectory directory;  // its end removes key files, segments and semaphores by name
    writer = test::create_all(directory, ZT_INDEX_DUPLICATES, database_bytes);
    reader = test::open_items(directory, ZT_MODE_READ_ONLY);
    require(writer.opened && reader.opened, "a database for the target");
    test::silence(writer);
    test::silence(reader);
  }
};

// Never deleted: there is nothing left to tidy.
inline Databases& databases() {
  static auto* const databases = new Databases;
  return *databases;
}

// Every load gives the tree heads new nonces, in the last 8 bytes of their slots: they are left out of comparisons.
inline std::string without_nonces(std::string bytes) {
  const ZtDbHandle db = databases().writer;
  const ZtTable& table = db->database[test::all];
  std::vector<Rb_node> heads = table.indexs;
  heads.push_back(table.listindex);
  for (const Rb_node head : heads) {
    const auto nonce = static_cast<std::size_t>(value_of(offset_of(&db->base, head)) + slot_bytes - 8);
    if (nonce + 8 <= bytes.size()) bytes.replace(nonce, 8, 8, 0);
  }
  return bytes;
}

inline std::string memory() {
  const char* const begin = databases().writer.operator ZtDbHandle()->base.share_memory_begin[0];
  return without_nonces({begin, database_bytes});
}

// The bytes as a file that has a name while this lives.
class NamedBytes {
 public:
  explicit NamedBytes(std::string_view bytes) : descriptor_(memfd_create("input", MFD_CLOEXEC)) {
    require(write(descriptor_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "a file");
    lseek(descriptor_, 0, SEEK_SET);
  }
  ~NamedBytes() { close(descriptor_); }
  NamedBytes(const NamedBytes&) = delete;
  NamedBytes& operator=(const NamedBytes&) = delete;

  std::string name() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

inline long count_records(ZtDbHandle db) {
  long count = 0;
  long size = 0;
  ZtTableSize(db, test::all, count, size);
  return count;
}

// Walks every key and record by links that are checked.
inline void read_everything() {
  ZtDbHandle reader = databases().reader;
  require(ZtDumpTable(reader, test::all, "/dev/null"), "a dump");
  require(ZtWriteTableTxt(reader, test::all, "/dev/null"), "an export");
  require(ZtWriteDbTable(reader, test::all, "/dev/null"), "an image");
}

}  // namespace cachet::fuzz

#endif
