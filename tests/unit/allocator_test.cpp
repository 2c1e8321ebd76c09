// The two fronts of the flat space: where blocks and slots land, and how the process ends when the fronts
// meet.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/child_process.h"
#include "support/schema.h"

namespace cachet::test {
namespace {

using Allocator = DatabaseTest;

constexpr ZTINT8 gibibyte = 1LL << 30;

TEST_F(Allocator, PlacesNodesUpwardsAndBlocksDownwards) {
  const struct {
    ZTINT8 nodes_before, data_before;
    int size, align_size;  // size -1: a node; align_size 0: not aligned
    ZTINT8 expected;
  } cases[] = {
      {4064, 1 << 20, -1, 0, 4096},  // would end exactly at the page boundary
      {gibibyte - 32, gibibyte + 8192, -1, 0, gibibyte},
      {4096, 12288, 1, 0, 12280},
      {4096, 12288, 9, 0, 12272},
      {4096, 12288, 0, 0, 12288},
      {4096, 12288 + 40, 40, 8, 12288},
      {4096, 12288 + 40 - 1, 40, 8, 12288 - 8},  // the last byte of the page below
      {4096, 12288 + 40 - 8, 40, 8, 12288 - 8},
      {4096, 12288 + 40 - 9, 40, 8, 12288 - 9},
      {4096, 12288 + 40 - 7, 40, 0, 12288 - 7},
      {4096, gibibyte + 48, 48, 0, gibibyte},
      {4096, gibibyte + 40, 48, 0, gibibyte - 48},  // not across the boundary
      {4096, gibibyte + 4, 12, 8, gibibyte - 16},
  };
  Database db = begin_create(directory, gibibyte + 65536);
  Rb_base* const base = base_of(db);
  ASSERT_EQ(base->segmentcount, 2);
  for (int i = 0; const auto& c : cases) {
    SCOPED_TRACE(++i);
    base->memory->nodeoffset = c.nodes_before;
    base->memory->dataoffset = c.data_before;
    const bool is_node = c.size < 0;
    const char* const block =
        is_node ? Rb_node_malloc(base) : Rb_data_malloc(base, c.size, c.align_size, c.align_size > 0);
    EXPECT_EQ(block, base->share_memory_begin[c.expected / gibibyte] + c.expected % gibibyte);
    EXPECT_EQ(base->memory->nodeoffset, is_node ? c.expected + 32 : c.nodes_before);
    EXPECT_EQ(base->memory->dataoffset, is_node ? c.data_before : c.expected);
  }
}

TEST_F(Allocator, GivesZeroedBlocksThatNeverOverlap) {
  Database db = begin_create(directory);
  Rb_base* const base = base_of(db);
  std::memset(base->share_memory_begin[0] + 192, 0x5A, small_bytes - 192);
  std::mt19937 random(20);
  const char* node_end = base->share_memory_begin[0] + 192;
  const char* data_begin = base->share_memory_begin[0] + small_bytes;
  for (int i = 0; i < 5000; ++i) {
    const int size = static_cast<int>(random() % 1200);
    const bool is_node = random() % 2 == 0;
    const char* const block = is_node ? Rb_node_malloc(base) : Rb_data_malloc(base, size, 8, true);
    const char* const end = block + (is_node ? 32 : (size + 7) / 8 * 8);
    ASSERT_TRUE(is_node ? block >= node_end : end <= data_begin) << i;
    (is_node ? node_end : data_begin) = is_node ? end : block;
    ASSERT_LE(node_end, data_begin);
    ASSERT_TRUE(std::all_of(block, end, [](char byte) { return byte == 0; })) << i;
    std::memset(const_cast<char*>(block), 0x5A, static_cast<std::size_t>(end - block));
  }
}

TEST_F(Allocator, EndsTheProcessWithStatus0WhenTheFrontsWouldCross) {
  const struct {
    ZTINT8 nodes_before, data_before;
    int size;
    bool fits;
  } cases[] = {
      {8192, 8224, -1, true},
      {8192, 8223, -1, false},
      {8192, 8216, 24, true},
      {8193, 8216, 24, false},
  };
  Database db = begin_create(directory);
  Rb_base* const base = base_of(db);
  for (int i = 0; const auto& c : cases) {
    SCOPED_TRACE(++i);
    base->memory->nodeoffset = c.nodes_before;
    base->memory->dataoffset = c.data_before;
    Child child(
        [&](Gate&) {
          c.size < 0 ? Rb_node_malloc(base) : Rb_data_malloc(base, c.size, 0, false);
          return 3;
        },
        Child::Output::captured);
    EXPECT_EQ(child.exit_status(), c.fits ? 3 : 0);
    const std::string who = c.size < 0 ? "Rb_node_malloc" : "Rb_data_malloc";
    EXPECT_EQ(child.output(), c.fits ? "" : who + ": nodeoffset > dataoffset, shm out of memory!\n");
  }
}

// Segments may be mapped side by side in either order: the end of one is then the begin of the other.
TEST(Address, BelongsToTheSegmentThatContainsIt) {
  char* const area = reinterpret_cast<char*>(16 * gibibyte);  // never touched
  for (const bool downwards : {false, true}) {
    Rb_base base;
    base.segmentcount = 3;
    base.attached_bytes = 2 * gibibyte + 4096;
    base.share_memory_begin[0] = area + (downwards ? gibibyte : 0);
    base.share_memory_begin[1] = area + (downwards ? 0 : gibibyte);
    base.share_memory_begin[2] = area + (downwards ? -4096 : 2 * gibibyte);
    for (const ZTINT8 segment : {0, 1, 2}) {
      const ZTINT8 last = segment == 2 ? 4095 : gibibyte - 1;
      for (const ZTINT8 position : {ZTINT8{0}, ZTINT8{32}, last}) {
        const ZTINT8 offset = segment * gibibyte + position;
        const char* const address = address_of(&base, FlatOffset{offset});
        EXPECT_EQ(address, base.share_memory_begin[segment] + position);
        EXPECT_EQ(value_of(offset_of(&base, address)), offset) << downwards;
        EXPECT_EQ(value_of(node_number_of(&base, address)), offset / 32);
      }
    }
  }
}

}  // namespace
}  // namespace cachet::test
