// The whole database as one file: the flat space, byte for byte. It holds offsets and no address, so an image
// can be loaded wherever the segments lie.
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "base/features.h"
#include "base/transfer.h"
#include "cache/catalog.h"
#include "cache/each_record.h"
#include "cache/heads.h"
#include "cache/image.h"
#include "cache/image_check.h"
#include "cache/separators.h"
#include "cache/transaction.h"
#include "cache/work.h"
#include "cachetx.h"

using namespace cachet;

namespace {

constexpr int writers_position = 0;

// Moves the bytes from `begin` to `end` segment by segment, until `move(address, size)` fails.
template <class Move>
bool for_each_segment(const Rb_base& base, std::int64_t begin, std::int64_t end, const Move& move) {
  while (begin < end) {
    const std::int64_t stop = std::min(end, (segment_of(begin) + 1) * segment_bytes);
    if (!move(address_of(&base, FlatOffset{begin}), static_cast<std::size_t>(stop - begin))) return false;
    begin = stop;
  }
  return true;
}

bool write_flat_space(const Rb_base& base, int descriptor) {
  const std::int64_t size = std::min<std::int64_t>(base.memory->size, base.attached_bytes);
  return for_each_segment(base, 0, size, [=](const char* bytes, std::size_t count) {
    return write_whole(descriptor, bytes, count);
  });
}

// ---- loading ----

// Marks say that a writer of the image's own time was at work.
void clear_table_marks(CheckedImage& image, const CatalogCounts& counts) {
  for (Rb_tablename& table : Catalog::behind(image.head.data(), counts).tables) {
    if (table.duty == 1) table.duty = 0;
  }
}

// What lies behind the catalog first, and last what leads to it; the name stays the attached database's.
bool load(const Rb_base& base, const CheckedImage& image) {
  const auto head_bytes = static_cast<std::int64_t>(image.head.size());
  if (lseek(image.file.get(), head_bytes, SEEK_SET) < 0) return false;
  const bool whole =
      for_each_segment(base, head_bytes, base.attached_bytes, [&](char* bytes, std::size_t count) {
        return read_whole(image.file.get(), bytes, count) == static_cast<ssize_t>(count);
      });
  if (!whole) return false;
  constexpr std::size_t name_end = offsetof(Rb_memory, version);
  std::memcpy(base.share_memory_begin[0] + name_end, image.head.data() + name_end,
              image.head.size() - name_end);
  return true;
}

// The heads are found by the catalog: the handle may not know the tables yet. What the image holds behind it
// was not checked, so every link is.
void clear_record_marks(const Rb_base& base, const CatalogCounts& counts) {
  std::vector<int> heads(static_cast<std::size_t>(counts.tables), 1);
  const Catalog catalog = Catalog::behind(base.share_memory_begin[0], counts);
  for (const Rb_indexname& index : catalog.indexes) ++heads[static_cast<std::size_t>(index.tableid)];
  std::int64_t offset = first_head_offset(*base.memory);
  for (const int count : heads) {
    const std::int64_t list = end_of_heads(offset, 1) - slot_bytes;
    for_each_record(&base, reinterpret_cast<Rb_node>(address_of(&base, FlatOffset{list})), ZT_RECORD_HEADER,
                    Links::checked, [](ZtRecord* record) {
                      if (load_relaxed<char>(&record->duty) == 1) set_duty(record, false);
                    });
    offset = end_of_heads(offset, count);
  }
}

// A wrong one would mislead every search that comes by; the trees themselves are taken as they are.
void drop_wrong_separators(const Rb_base& base, const CatalogCounts& counts) {
  std::int64_t offset = first_head_offset(*base.memory);
  const Catalog catalog = Catalog::behind(base.share_memory_begin[0], counts);
  for (std::int64_t table = 0; table < counts.tables; ++table) {
    const auto indexes = std::ranges::count(catalog.indexes, table, &Rb_indexname::tableid);
    for (std::ptrdiff_t tree = 0; tree <= indexes; ++tree) {
      const std::int64_t end = end_of_heads(offset, 1);
      const auto head = reinterpret_cast<Rb_node>(address_of(&base, FlatOffset{end - slot_bytes}));
      drop_wrong_separators(&base, head, tree == 0 ? TreeKind::record_ids : TreeKind::index);
      offset = end;
    }
  }
}

// Those of the image stood for nodes of another time.
void renew_nonces(const Rb_base& base, const CatalogCounts& counts) {
  std::int64_t end = first_head_offset(*base.memory);
  for (std::int64_t head = 0; head < counts.tables + counts.indexes; ++head) {
    end = end_of_heads(end, 1);
    renew_nonce(reinterpret_cast<Rb_node>(address_of(&base, FlatOffset{end - slot_bytes})));
  }
}

}  // namespace

bool ZtWriteDbFile(ZtDbHandle database, const char* filename) {
  if (!database->opened) return report(database, ZT_ERR_GENERAL, message::database_not_open);
  const Rb_base& base = database->base;
  return write_image_file(database, filename,
                          [&](int descriptor) { return write_flat_space(base, descriptor); });
}

bool ZtxWriteDbFileLocked(ZtDbHandle database, const char* filename) {
  // A read-only handle's lock keeps no writer out.
  if (!require_writable(database)) return false;
  const bool held_already = database->locks.contains(writers_position);
  if (!ZtLockPosition(database, writers_position)) {
    return report(database, ZT_ERR_GENERAL, message::lock_failed, database->base.memory->name);
  }
  const bool written = ZtWriteDbFile(database, filename);
  if (!held_already) ZtUnLockPosition(database, writers_position);
  return written;
}

bool ZtxCheckDbFile(ZtDbHandle database, const char* filename) {
  if (!database->opened) return report(database, ZT_ERR_GENERAL, message::database_not_open);
  return static_cast<bool>(open_checked_image(database, filename));
}

bool ZtReadDbFile(ZtDbHandle database, const char* filename) {
  if (forwards_changes(database)) return ZtRemoteReadDbFile(database, const_cast<char*>(filename));
  if (!require_writable(database)) return false;
  CheckedImage image = open_checked_image(database, filename);
  if (!image) return false;
  Rb_base& base = database->base;
  const bool had_tables = base.memory->tablecount != 0;
  const Work work(database, work_load);
  drop_copies_of_abandoned_records(database);
  Rb_memory header;
  std::memcpy(&header, image.head.data(), sizeof header);
  const CatalogCounts counts = CatalogCounts::of(header);
  clear_table_marks(image, counts);
  database->lock.MakeEpochOdd();
  const bool loaded = load(base, image);
  if (loaded) renew_nonces(base, counts);
  if (loaded) clear_record_marks(base, counts);
  if (loaded && features::separators) drop_wrong_separators(base, counts);
  database->lock.MakeEpochEven();
  if (!loaded) return report(database, ZT_ERR_GENERAL, message::read_failed, filename);
  // The image brought the tables and their trees: also a creator's handle has to look for them now.
  if (!had_tables) base.exist = true;
  return true;
}
