// Loads images that are truncated, bit-flipped or made up. The first byte chooses: a table's image, which is
// the rest of the input; or an image of the whole database, for which the input is a list of edits of a good
// one: three bytes for a place, one to be put there. A place behind the end truncates instead.
#include <algorithm>
#include <cstddef>

#include "cachetx.h"
#include "databases.h"

using namespace cachet::fuzz;
using cachet::test::all;

namespace {

void fill(ZtDbHandle db) {
  ZtResetDb(db);
  ZtBeginTransaction(db);
  for (int i = 0; i < 40; ++i) {
    cachet::test::Row row(db);
    cachet::test::put(db, row, {.i = i / 3, .t = "text", .d2 = i / 4.0});
    if (i % 5 == 0) ZtDeleteRecord(db, row);
  }
  ZtCommitTransaction(db);
}

void load_table(std::string_view image) {
  ZtDbHandle db = databases().writer;
  ZtResetDb(db);
  const NamedBytes file(image);
  const bool loaded = ZtReadDbTable(db, all, file.name().c_str());
  const auto records =
      image.size() < 32 ? 0 : static_cast<long>((image.size() - 32) / cachet::test::all_record_bytes);
  require(!loaded || count_records(db) == records, "every whole record");
  require(loaded || image.size() < 32 || count_records(db) < records, "a reason");
  read_everything();
}

std::string edited(std::string image, std::string_view edits) {
  for (; edits.size() >= 4; edits.remove_prefix(4)) {
    std::size_t place = 0;
    std::memcpy(&place, edits.data(), 3);
    if (place < image.size()) {
      image[place] = edits[3];
    } else {
      image.resize(image.size() - std::min(image.size(), place % 4096));
    }
  }
  return image;
}

// Where an internal node keeps its separator.
bool is_of_separator(std::size_t offset) {
  const std::size_t byte = offset % cachet::slot_bytes;
  return (byte >= 17 && byte <= 20) || byte >= 25;
}

// All but the name, and the marks and wrong separators that a load clears.
bool same_but_for_what_is_cleared(const std::string& loaded, const std::string& image) {
  for (std::size_t at = offsetof(Rb_memory, version); at < loaded.size(); ++at) {
    const bool cleared = loaded[at] == 0 && (image[at] == 1 || is_of_separator(at));
    if (loaded[at] != image[at] && !cleared) return false;
  }
  return true;
}

void load_database(std::string_view edits) {
  ZtDbHandle db = databases().writer;
  static const std::string good = [db] {
    fill(db);
    return memory();
  }();
  require(ZtReadDbFile(db, NamedBytes(good).name().c_str()), "the good image");
  const std::string image = edited(good, edits);
  const NamedBytes file(image);
  const bool fits = ZtxCheckDbFile(db, file.name().c_str());
  require(memory() == good, "a check that changes nothing");
  require(ZtReadDbFile(db, file.name().c_str()) == fits, "a load that does what the check said");
  require(fits ? same_but_for_what_is_cleared(memory(), without_nonces(image)) : memory() == good,
          "all of the image, or nothing of it");
  read_everything();
  require(ZtReadDbFile(db, NamedBytes(good).name().c_str()), "the good image again");
  require(memory() == good, "what was there before");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  data[0] % 2 == 1 ? load_table(rest) : load_database(rest);
  return 0;
}
