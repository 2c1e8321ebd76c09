// The leaf-oriented red-black tree, against std::multimap and against its own invariants, in one segment and
// across the boundary of two.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "support/schema.h"

namespace cachet::test {
namespace {

constexpr ZTINT8 gibibyte = 1LL << 30;

// The opposite of what the library's own keys do: ascending.
int compare_ints(Rb_base*, void* key, void* stored) {
  int a = 0;
  int b = 0;
  std::memcpy(&a, key, sizeof a);
  std::memcpy(&b, stored, sizeof b);
  return a < b ? -1 : a > b;
}

enum Order { ascending, descending, shuffled, repeated };
struct Shape {
  const char* name;
  ZTINT8 size_bytes;
  ZTINT8 first_node;  // where the nodes begin
  Order order;
};

std::vector<int> keys_in(Order order, int count) {
  std::mt19937 random(2);
  std::vector<int> keys;
  for (int i = 0; i < count; ++i)
    keys.push_back(2 * (order == repeated ? static_cast<int>(random() % 40) : i));
  if (order == descending) std::reverse(keys.begin(), keys.end());
  if (order == shuffled) std::shuffle(keys.begin(), keys.end(), random);
  return keys;
}

class Tree : public ::testing::TestWithParam<Shape> {
 protected:
  void SetUp() override {
    db = begin_create(directory, GetParam().size_bytes);
    ASSERT_TRUE(db.opened);
    base = base_of(db);
    base->memory->memoryheadsize = 192;
    base->memory->nodeoffset = GetParam().first_node;
    head = make_rb(base);
  }

  Rb_node at(std::uint32_t number) const {
    return reinterpret_cast<Rb_node>(address(std::int64_t{number} * 32));
  }
  char* address(std::int64_t offset) const {
    return base->share_memory_begin[offset / gibibyte] + offset % gibibyte;
  }
  int key_of(Rb_node node) const {
    int key = 0;
    std::memcpy(&key, rb_key(base, node), sizeof key);
    return key;
  }
  char* block(int value) const {
    char* const memory = Rb_data_malloc(base, sizeof value, 0, false);
    std::memcpy(memory, &value, sizeof value);
    return memory;
  }

  // One subtree: its least and greatest external node and its black height.
  struct Extent {
    Rb_node least, greatest;
    int black_height;
  };
  Extent check(Rb_node node, Rb_node parent, bool is_left) const {
    const bool is_root = parent == head;
    EXPECT_EQ(at(node->p.parent), parent);
    EXPECT_EQ((node->s & RB_ROOT) != 0, is_root);
    EXPECT_EQ(node->s & RB_HEAD, 0);
    EXPECT_TRUE(is_root || ((node->s & RB_LEFT) != 0) == is_left);
    const int own = (node->s & RB_RED) != 0 ? 0 : 1;
    if ((node->s & RB_INTERNAL) == 0) {
      EXPECT_EQ(own, 1) << "external nodes are black";
      return {node, node, 1};
    }
    EXPECT_TRUE(own == 1 || (!is_root && (parent->s & RB_RED) == 0)) << "red root, or red under red";
    const Extent left = check(at(node->c.child.left), node, true);
    const Extent right = check(at(node->c.child.right), node, false);
    EXPECT_EQ(left.black_height, right.black_height);
    EXPECT_EQ(at(node->k.lext), left.greatest);
    EXPECT_EQ(at(node->v.rext), right.least);
    EXPECT_EQ(rb_next(base, left.greatest), right.least);
    return {left.least, right.greatest, left.black_height + own};
  }
  void check_against(const std::multimap<int, int>& model) const {
    const Extent whole = check(at(head->p.root), head, false);
    EXPECT_EQ(rb_first(base, head), whole.least);
    EXPECT_EQ(rb_last(base, head), whole.greatest);
    EXPECT_EQ(rb_prev(base, whole.least), head);
    Rb_node node = head;
    for (const auto& [key, serial] : model) {
      const Rb_node next = rb_next(base, node);
      ASSERT_EQ(rb_prev(base, next), node);
      ASSERT_EQ(key_of(next), key);
      ASSERT_EQ(rb_nblack(base, next), whole.black_height);
      ASSERT_GE(rb_plength(base, next), whole.black_height);
      node = next;
    }
    EXPECT_EQ(rb_next(base, node), head);
    EXPECT_EQ(node, whole.greatest);
  }
  void check_finds(const std::multimap<int, int>& model, int key) const {
    int found = 7;
    const Rb_node node = rb_find_gkey_n(base, head, &key, compare_ints, &found);
    EXPECT_EQ(rb_find_gkey(base, head, &key, compare_ints), node);
    const auto expected = model.lower_bound(key);
    EXPECT_EQ(found, expected != model.end() && expected->first == key ? 1 : 0) << key;
    if (expected == model.end()) {
      EXPECT_EQ(node, head);
    } else {
      EXPECT_EQ(key_of(node), expected->first);
    }
  }

  TempDirectory directory;
  Database db;
  Rb_base* base = nullptr;
  Rb_node head = nullptr;
};

TEST_P(Tree, StaysSortedBalancedAndThreaded) {
  const std::vector<int> keys = keys_in(GetParam().order, 1500);
  std::multimap<int, int> model;
  EXPECT_TRUE(rb_empty(base, head));
  check_finds(model, 0);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const Rb_node behind = rb_find_gkey(base, head, const_cast<int*>(&keys[i]), compare_ints);
    const Rb_node node = rb_insertg(base, head, block(keys[i]), block(static_cast<int>(i)), compare_ints);
    EXPECT_EQ(rb_next(base, node), behind) << "directly before what the search returns";
    int serial = -1;
    std::memcpy(&serial, rb_val(base, node), sizeof serial);
    EXPECT_EQ(serial, static_cast<int>(i));
    model.emplace(keys[i], serial);
    if (i < 20 || i % 250 == 0) check_against(model);
  }
  check_against(model);
  EXPECT_FALSE(rb_empty(base, head));
  for (int key = -1; key <= 3001; ++key) check_finds(model, key);
}

constexpr ZTINT8 two_segments = gibibyte + (64 << 20);
constexpr ZTINT8 before_the_boundary = gibibyte - 2 * 4096;
const Shape shapes[] = {{"Ascending", small_bytes, 192, ascending},
                        {"Descending", small_bytes, 192, descending},
                        {"Shuffled", small_bytes, 192, shuffled},
                        {"Repeated", small_bytes, 192, repeated},
                        {"ShuffledAcrossSegments", two_segments, before_the_boundary, shuffled},
                        {"AscendingAcrossSegments", two_segments, before_the_boundary, ascending}};
INSTANTIATE_TEST_SUITE_P(, Tree, ::testing::ValuesIn(shapes),
                         [](const auto& test) { return test.param.name; });

class SmallTree : public Tree {};

TEST_P(SmallTree, KeepsTextAndIntegerKeys) {
  const Rb_node integers = make_rb_ext(base);
  char* const texts = Rb_data_malloc(base, 24, 0, false);
  std::memcpy(texts, "pear\0apple\0\0quince", 19);
  for (const int at : {0, 5, 11, 12}) rb_insert(base, head, texts + at, block(at));
  for (const int number : {5, -7, 2000000000, -2000000000}) rb_inserti(base, integers, number, block(number));
  std::vector<int> values;
  for (const Rb_node tree : {head, integers}) {
    for (Rb_node n = rb_first(base, tree); n != tree; n = rb_next(base, n)) {
      values.push_back(load_unaligned<int>(rb_val(base, n)));
    }
  }
  EXPECT_EQ(values, (std::vector<int>{11, 5, 0, 12, -2000000000, -7, 5, 2000000000}));
  EXPECT_EQ(load_unaligned<int>(rb_val(base, rb_find_key(base, head, texts + 5))), 5);
}

TEST_P(SmallTree, EndsTheProcessWithStatus1WhenMisused) {
  const Rb_node external = rb_insertg(base, head, block(1), nullptr, compare_ints);
  int key = 1, found = 0;
  const auto ended = ::testing::ExitedWithCode(1);
  EXPECT_EXIT(rb_find_gkey_n(base, external, &key, compare_ints, &found), ended,
              "rb_find_key_n called on non-head 0x");
  EXPECT_EXIT(rb_find_ikey(base, external, 1), ended, "^rb_find_ikey_n called on non-head 0x");
  EXPECT_EXIT(rb_nblack(base, head), ended, "^ERROR: rb_nblack called on a non-external node 0x");
  EXPECT_EXIT(rb_plength(base, head), ended, "^ERROR: rb_plength called on a non-external node 0x");
}

// A reader without a lock may see any link half-made: still 0, of a rotation under way, or of a reset.
TEST_P(SmallTree, SearchOfAReaderEndsWhateverALinkHolds) {
  for (int key = 0; key < 64; ++key) rb_insertg(base, head, block(key), nullptr, compare_ints);
  const Rb_node root = at(head->p.root);
  char* const head_bytes = reinterpret_cast<char*>(head);
  char* const root_bytes = reinterpret_cast<char*>(root);
  char* const last = head_bytes + offsetof(srb_node, c.list.blink);
  char* const lext = root_bytes + offsetof(srb_node, k.lext);
  char* const left = root_bytes + offsetof(srb_node, c.child.left);
  char* const links[] = {last, lext, left, root_bytes + offsetof(srb_node, c.child.right),
                         head_bytes + offsetof(srb_node, p.root)};
  const auto own = static_cast<std::uint32_t>((root_bytes - address(0)) / 32);
  for (const bool isolated : {false, true}) {
    base->mode = isolated ? ZT_MODE_READ_WRITE : ZT_MODE_READ_ONLY;
    base->isolate = isolated;
    for (char* const link : links) {
      std::uint32_t right_one = 0;
      std::memcpy(&right_one, link, sizeof right_one);
      for (const std::uint32_t wrong : {0u, own, 1u, 0x1FFFFu, 0x02000000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        std::memcpy(link, &wrong, sizeof wrong);
        for (const int key : {-1, 3, 31, 32, 63, 64}) {
          int found = 9;
          rb_find_gkey_n(base, head, const_cast<int*>(&key), compare_ints, &found);
          EXPECT_TRUE(found == 0 || found == 1);
        }
        if (wrong == 0) {
          const int key = 3;
          const Rb_node node = rb_find_gkey(base, head, const_cast<int*>(&key), compare_ints);
          EXPECT_TRUE(link != last || node == head);
          EXPECT_TRUE((link != lext && link != left) || node == root) << "the node it stood on";
        }
      }
      std::memcpy(link, &right_one, sizeof right_one);
    }
    base->isolate = false;
  }
}

INSTANTIATE_TEST_SUITE_P(, SmallTree, ::testing::Values(Shape{"OneSegment", small_bytes, 192, ascending}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace cachet::test
