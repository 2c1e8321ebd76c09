// Cursors: what one step does and tells, which entries it takes out of a key's current list, and which it
// must leave alone because the cursor is out of date.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "rb/node.h"
#include "support/ledger.h"
#include "support/lists.h"

namespace {

using namespace cachet::test;
using Ids = std::vector<ZTINT8>;

// The bytes of the header that nothing but the allocator may change: all but the two fronts.
std::string FixedHeader(const Ledger& ledger) {
  std::string bytes(reinterpret_cast<const char*>(ledger.header()), sizeof(Rb_memory));
  return bytes.replace(offsetof(Rb_memory, nodeoffset), 16, 16, '\0');
}

struct Cursor : testing::Test {
  Ledger ledger;
  ZtDbHandle db = ledger.writer();

  // Stores records 0, 1, 2 ... under these groups, committed.
  void put_groups(std::initializer_list<int> groups) {
    Transaction all(db);
    for (int group : groups) Ledger::put(db, next_id++, group);
  }
  void erase(std::initializer_list<int> record_ids) {
    Transaction all(db);
    for (int id : record_ids) Ledger::erase(db, id);
  }
  Lists lists(int group) {
    Query query(db, Ledger::by_group, {group});
    return lists_of(db, item_of(db, Ledger::by_group, query));
  }
  // A cursor over the whole group index that stands on this record.
  void stand_on(Query& query, int record_id) {
    for (bool placed = query.list(); placed; placed = query.next()) {
      if (query.id() == record_id) return;
    }
    FAIL() << "no record " << record_id;
  }
  int next_id = 0;
};

struct Group : Cursor {
  Group() { put_groups({1, 1, 1, 1, 2}); }  // records 0 to 3, and 4
};

TEST_F(Group, StepsTellWhatTheyMet) {
  Query forward(db, Ledger::by_group), backward(db, Ledger::by_group), list(db, -1);
  stand_on(forward, 0);
  stand_on(backward, 3);
  ASSERT_TRUE(list.list());
  EXPECT_EQ(ZtInNextRecord(db, forward), 1);
  EXPECT_EQ(ZtInPrevRecord(db, backward), 1);
  erase({2, 1});
  EXPECT_EQ(ZtInPrevRecord(db, backward), 4) << "record 1, to be unlinked going backward";
  EXPECT_EQ(ZtInMovePrevRecord(db, backward), 1);
  EXPECT_EQ(backward.id(), 0);
  EXPECT_EQ(ZtInPrevRecord(db, backward), 2);
  EXPECT_EQ(ZtInNextRecord(db, forward), 3) << "record 2, from record 1, which is out of the list by now";
  EXPECT_EQ(ZtInMoveNextRecord(db, forward), 1);
  EXPECT_EQ(forward.id(), 3);
  EXPECT_EQ(ZtInNextRecord(db, forward), 1) << "the next key";
  EXPECT_EQ(ZtInNextRecord(db, forward), 2);
  EXPECT_EQ(lists(1), (Lists{{0, 1, 2, 3}, {0, 3}, true}));
  EXPECT_EQ(ZtInNextRecord(db, list), 5) << "a list of records only skips";
  EXPECT_EQ(ZtInNextRecord(db, list), 5);
  EXPECT_EQ(ZtInNextRecord(db, list), 1);
  EXPECT_EQ(ZtInPrevRecord(db, list), 6);
}

// Every choice of deleted records among four, walked in both directions by a reader, which only skips them, and
// by a writer.
TEST(CursorWalk, UnlinksExactlyTheDeletedRecordsOfAKey) {
  for (int deleted = 0; deleted < 16; ++deleted) {
    for (bool forward : {true, false}) {
      SCOPED_TRACE("deleted " + std::to_string(deleted) + (forward ? " forward" : " backward"));
      Ledger ledger;
      ZtDbHandle db = ledger.writer();
      Ids live;
      std::vector<int> expected = {0};
      {
        Transaction insert(db);
        for (int id = 0; id < 6; ++id) Ledger::put(db, id, id == 0 ? 1 : id == 5 ? 3 : 2);
        for (int id = 1; id < 5; ++id) {
          if ((deleted >> (id - 1) & 1) == 0) {
            live.push_back(id);
            expected.push_back(id);
          } else {
            Ledger::erase(db, id);
          }
        }
      }
      expected.push_back(5);
      if (!forward) std::reverse(expected.begin(), expected.end());
      Query key(db, Ledger::by_group, {2});
      const ZtIndexItem* const item = item_of(db, Ledger::by_group, key);
      Database reader = ledger.open(ZT_MODE_READ_ONLY);
      for (ZtDbHandle who : {static_cast<ZtDbHandle>(reader), db}) {
        Query query(who, Ledger::by_group);
        ASSERT_TRUE(query.list());
        EXPECT_EQ(forward ? query.rest(true) : query.rest_backward(query.last()), expected);
        EXPECT_EQ(lists_of(db, item), (Lists{{1, 2, 3, 4}, who == db ? live : Ids{1, 2, 3, 4}, true}));
      }
    }
  }
}

// The cursor stands on an entry that another one has unlinked by the time it moves on.
TEST_F(Cursor, OutOfDateNeitherWritesThroughLinkZeroNorBringsAnEntryBack) {
  const struct {
    const char* name;
    int on;
    std::vector<int> erased;
    bool forward, refilled;
    int then_on;
    Ids current;
  } cases[] = {{"a former head", 0, {0}, true, false, 1, {1, 2, 3}},
               {"a former tail", 3, {3}, false, false, 2, {0, 1, 2}},
               {"the middle", 1, {1, 2}, true, false, 3, {0, 3}},
               {"the middle, backward", 2, {1, 2}, false, false, 0, {0, 3}},
               {"a refilled key", 0, {0, 1, 2, 3}, true, true, -1, {4}},
               {"a refilled key, backward", 3, {0, 1, 2, 3}, false, true, -1, {4}}};
  for (int group = 0; const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const int first = next_id;
    put_groups({++group, group, group, group});
    Query stale(db, Ledger::by_group), other(db, Ledger::by_group);
    stand_on(stale, first + c.on);
    for (int id : c.erased) erase({first + id});
    other.rest(other.list());
    if (c.refilled) put_groups({group});
    const std::string header = FixedHeader(ledger);
    const bool moved = c.forward ? ZtMoveNextRecord(db, stale) : ZtMovePrevRecord(db, stale);
    if (c.then_on >= 0) {
      EXPECT_TRUE(moved);
      EXPECT_EQ(stale.id(), first + c.then_on);
    }
    EXPECT_EQ(FixedHeader(ledger), header);
    Ids expected = c.current;
    for (ZTINT8& id : expected) id += first;
    EXPECT_EQ(lists(group).current, expected);
    EXPECT_TRUE(lists(group).both_ways);
  }
}

TEST_F(Group, LeavesTheListsAloneWhileAnotherWriterHoldsTheLock) {
  erase({1, 2});
  Database other = ledger.open(ZT_MODE_READ_WRITE);
  ASSERT_TRUE(ZtLockPosition(other, 0));
  Query query(db, Ledger::by_group);
  EXPECT_EQ(query.rest(query.list()), (std::vector<int>{0, 3, 4}));
  EXPECT_EQ(query.rest_backward(query.last()), (std::vector<int>{4, 3, 0}));
  EXPECT_EQ(lists(1).current, (Ids{0, 1, 2, 3}));
  ZtUnLock(other);
  ASSERT_TRUE(ZtLockPosition(db, 0));
  EXPECT_EQ(query.rest(query.list()), (std::vector<int>{0, 3, 4}));
  ZtUnLock(db);
  EXPECT_EQ(lists(1).current, (Ids{0, 3})) << "the holder itself does unlink";
}

TEST_F(Group, GoesToARecordOrToTheNextLiveOne) {
  erase({1, 2, 4});
  Database reader = ledger.open(ZT_MODE_READ_ONLY);
  for (ZtDbHandle who : {db, static_cast<ZtDbHandle>(reader)}) {
    Query query(who, Ledger::by_group);
    for (int bad : {-1, 5, 1 << 30}) EXPECT_FALSE(query.go_to(bad)) << bad;
    EXPECT_FALSE(query.go_to(4)) << "nothing alive behind it";
    EXPECT_TRUE(query.go_to(1));
    EXPECT_EQ(query.id(), 3);
    EXPECT_TRUE(query.prev());
    EXPECT_EQ(query.id(), 0);
  }
}

TEST_F(Group, ADuplicateHasTheKeyAndTheCursorButNotThePlaceWithinAKey) {
  Query source(db, Ledger::by_group, {1}), copy(db, Ledger::on_id, {7, 8});
  ASSERT_TRUE(source.find(ZT_OP_EQUAL) && source.next());
  ZtDupCondition(source, copy);
  EXPECT_EQ(copy->nodepoint, nullptr);
  EXPECT_EQ(copy.id(), 1) << "the current record itself is copied";
  EXPECT_EQ(copy.rest(copy.find(ZT_OP_EQUAL)), (std::vector<int>{0, 1, 2, 3})) << "and the key";
}

// Several cursors on one handle, in any order: whatever they do, the lists stay whole and hold every live
// record.
TEST(Cursors, KeepTheListsWholeInAnyMix) {
  for (unsigned seed : {11u, 12u, 13u, 14u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Ledger ledger;
    ZtDbHandle db = ledger.writer();
    Transaction all(db);
    std::vector<bool> live;
    std::vector<int> groups;
    Query cursors[] = {{db, Ledger::by_group}, {db, Ledger::by_group}, {db, Ledger::by_group}};
    const std::string header = FixedHeader(ledger);
    const auto step = [&](Query& cursor) {
      const int kind = static_cast<int>(random() % 8);
      return kind == 0   ? cursor.list()
             : kind == 1 ? cursor.last()
             : kind == 2 ? cursor.first()
             : kind == 3 ? ZtMoveNextRecord(db, cursor)
             : kind == 4 ? ZtMovePrevRecord(db, cursor)
             : kind == 5 ? cursor.prev()
                         : cursor.next();
    };
    for (int i = 0; i < 3000; ++i) {
      if (i < 12 || random() % 8 == 0) {
        groups.push_back(static_cast<int>(random() % 3));
        ASSERT_EQ(Ledger::put(db, static_cast<int>(live.size()), groups.back()),
                  static_cast<int>(live.size()));
        live.push_back(true);
        if (i == 0)
          for (Query& cursor : cursors) cursor.list();
        continue;
      }
      Query& cursor = cursors[random() % 3];
      // The Move calls are only for cursors on a deleted record; the others for any.
      Row row(db);
      if (!cursor.fetch(row)) continue;
      if (raw(row).record->deleted == 1) {
        step(cursor);
      } else if (random() % 3 == 0) {
        live[static_cast<std::size_t>(ZtGetRecordId(db, row))] = false;
        ZtDeleteRecord(db, row);
      } else {
        random() % 2 == 0 ? cursor.next() : cursor.prev();
      }
      for (int group = 0; group < 3; ++group) {
        Query key(db, Ledger::by_group, {group});
        const ZtIndexItem* const item = item_of(db, Ledger::by_group, key);
        if (item == nullptr) continue;
        const Lists lists = lists_of(db, item);
        ASSERT_TRUE(lists.both_ways) << "group " << group << ", step " << i;
        ASSERT_TRUE(std::is_sorted(lists.current.begin(), lists.current.end())) << i;
        for (std::size_t id = 0; id < live.size(); ++id) {
          if (!live[id] || groups[id] != group) continue;
          ASSERT_TRUE(std::binary_search(lists.current.begin(), lists.current.end(), static_cast<ZTINT8>(id)))
              << "record " << id << " is lost, step " << i;
        }
      }
      ASSERT_EQ(FixedHeader(ledger), header) << i;
    }
  }
}

void collect_internal_nodes(const Rb_base* base, Rb_node node, std::vector<Rb_node>& nodes) {
  if (!cachet::is(node, RB_INTERNAL)) return;
  nodes.push_back(node);
  for (const bool left : {true, false})
    collect_internal_nodes(base, cachet::node_at(base, cachet::child_of(node, left)), nodes);
}

// A walk follows the list of leaves; it reads ahead through the tree above, and must come to an end there, too.
TEST(CursorWalk, SeesEveryRowWhereverTheLinksOfTheTreeLead) {
  constexpr int rows = 300;
  Ledger ledger;
  ZtDbHandle db = ledger.writer();
  {
    Transaction all(db);
    for (int row = 0; row < rows; ++row) Ledger::put(db, row * 7 % rows, 0);
  }
  const Rb_base* const base = &db->base;
  const Rb_node head = db->database[0].indexs[Ledger::on_id];
  const std::uint32_t root = cachet::root_of(head);
  std::vector<Rb_node> nodes;
  collect_internal_nodes(base, cachet::node_at(base, root), nodes);
  ASSERT_EQ(nodes.size(), rows - 1U);
  const auto number = [&](const void* node) { return value_of(cachet::node_number_of(base, node)); };
  for (std::size_t at = 0; at < nodes.size(); at += 7) {
    const srb_node whole = *nodes[at];
    for (const std::uint32_t wrong : {number(nodes[at]), whole.p.parent, root, number(head), 0U, ~0U}) {
      for (std::uint32_t* const link :
           {&nodes[at]->c.child.left, &nodes[at]->c.child.right, &nodes[at]->p.parent}) {
        *link = wrong;
        Query query(db, Ledger::on_id);
        int seen = 0;
        for (bool placed = query.list(); placed; placed = query.next()) ++seen;
        EXPECT_EQ(seen, rows);
        for (bool placed = query.last(); placed; placed = query.prev()) --seen;
        EXPECT_EQ(seen, 0);
        *nodes[at] = whole;
      }
    }
  }
}

}  // namespace
