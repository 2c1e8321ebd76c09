#include "zt/bench/private_database.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <random>

#include "zt/quiet.h"
#include "zt/status.h"

namespace zt::bench {
namespace {

constexpr char name[] = "b";
constexpr char version[] = "bench";
constexpr ZTINT8 bytes_of_a_record = 700;  // with its keys and nodes, generously
constexpr ZTINT8 least_bytes = 16 << 20;

// One cycle through all ids: each element is exchanged for an earlier one.
std::vector<int> make_ring(int records) {
  std::vector<int> ring(static_cast<std::size_t>(records));
  std::iota(ring.begin(), ring.end(), 0);
  std::mt19937_64 random(1);
  for (std::size_t last = ring.size(); last-- > 1;) std::swap(ring[last], ring[random() % last]);
  return ring;
}

void add_index(ZtDbHandle database, int index, const char* of, int type, int field) {
  ZtAddIndex(database, table, of, type);
  ZtAddIndexField(database, table, index, field);
}

bool go_on(int /*code*/, const char* /*text*/) {
  return true;
}

}  // namespace

Name name_of(int id) {
  Name text{"item00000000"};
  for (std::size_t digit = 11; id > 0; id /= 10) text[digit--] = static_cast<char>('0' + id % 10);
  return text;
}

std::string Handle::error() const {
  int code = 0;
  char text[ZT_ERRMSG_SIZE] = {};
  ZtGetError(handle_, &code, text);
  return tr("the library refuses with {}", code);
}

// A folder that is missing is told like one that cannot be written.
TemporaryFolder::TemporaryFolder() {
  const char* const parent = std::getenv("TMPDIR");
  path_ = std::string(parent != nullptr && *parent != 0 ? parent : "/tmp") + "/zt-bench-XXXXXX";
  if (mkdtemp(path_.data()) == nullptr)
    throw Failure(tr("cannot make a folder {}: {}", path_, std::strerror(errno)));
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

PrivateDatabase::PrivateDatabase(int records) : ring_(make_ring(records)) {
  const Quiet quiet;
  if (!ZtCreateDb(handle_.out(), folder_.path().c_str(), name, version,
                  least_bytes + records * bytes_of_a_record, 1)) {
    throw Failure(
        tr("cannot make a database in {}: {}; zt doctor knows more", folder_.path(), handle_.error()));
  }
  ZtSetErrorHandle(handle_, go_on);
  ZtAddTable(handle_, "items");
  ZtAddField(handle_, table, "id", FIELD_INT, sizeof(int), -1);
  ZtAddField(handle_, table, "name", FIELD_STRING, sizeof(Name), -1);
  ZtAddField(handle_, table, "team", FIELD_INT, sizeof(int), -1);
  ZtAddField(handle_, table, "price", FIELD_DOUBLE, sizeof(double), 2);
  ZtAddField(handle_, table, "next", FIELD_INT, sizeof(int), -1);
  add_index(handle_, by_id, "by id", ZT_INDEX_UNIQUE, field_id);
  add_index(handle_, by_name, "by name", ZT_INDEX_UNIQUE, field_name);
  add_index(handle_, by_team, "by team", ZT_INDEX_DUPLICATES, field_team);
  ZtSaveDbInfo(handle_);
  ZtLoadDb(handle_);
  ZtUnLockDb(handle_);
  open(reader_);
}

void PrivateDatabase::open(Handle& reader) const {
  if (!ZtOpenDb(reader.out(), folder_.path().c_str(), name, version, ZT_MODE_READ_ONLY, 0, false, 0, 0, 1))
    throw Failure(tr("cannot open the database in {}: {}", folder_.path(), reader.error()));
  ZtSetErrorHandle(reader, go_on);
  ZtLoadDbInfo(reader);
  ZtLoadDb(reader);
  ZtUnLockDb(reader);
}

}  // namespace zt::bench
