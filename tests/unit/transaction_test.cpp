// Transactions: what a rollback brings back, byte for byte and list by list, and what begin, commit, reset
// and the end of a handle do to an open one.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/ledger.h"
#include "support/lists.h"

namespace {

using namespace cachet::test;
using Ids = std::vector<ZTINT8>;

struct Rollback : testing::Test {
  Ledger ledger;
  ZtDbHandle db = ledger.writer();

  void put_group(int group, int count) {
    Transaction all(db);
    for (int i = 0; i < count; ++i) Ledger::put(db, ledger.catalog()->recordcount, group);
  }
  Ids current(int index, int key) {
    Query query(db, index, {key});
    const Lists lists = lists_of(db, item_of(db, index, query));
    EXPECT_TRUE(lists.both_ways);
    return lists.current;
  }
};

// Every choice of five records is deleted, walked over (which takes their entries out) and brought back.
TEST(RollbackAfterAWalk, PutsEntriesBackInAscendingOrder) {
  for (int deleted = 1; deleted < 32; ++deleted) {
    for (bool forward : {true, false}) {
      SCOPED_TRACE("deleted " + std::to_string(deleted) + (forward ? " forward" : " backward"));
      Ledger ledger;
      ZtDbHandle db = ledger.writer();
      {
        Transaction insert(db);
        for (int id = 0; id < 5; ++id) Ledger::put(db, id, 1);
      }
      ZtBeginTransaction(db);
      for (int id = 0; id < 5; ++id) {
        if ((deleted >> id & 1) != 0) Ledger::erase(db, id);
      }
      for (int index = 0; index < 3; ++index) {
        Query query(db, index);
        if (query.list()) forward ? query.rest(true) : query.rest_backward(query.last());
      }
      ZtRollbackTransaction(db);
      Query key(db, Ledger::by_group, {1});
      EXPECT_EQ(lists_of(db, item_of(db, Ledger::by_group, key)),
                (Lists{{0, 1, 2, 3, 4}, {0, 1, 2, 3, 4}, true}));
      for (int index = 0; index < 3; ++index) {
        Query query(db, index);
        EXPECT_EQ(query.rest(query.list()), (std::vector<int>{0, 1, 2, 3, 4})) << "index " << index;
        EXPECT_EQ(query.rest_backward(query.last()), (std::vector<int>{4, 3, 2, 1, 0})) << "index " << index;
      }
    }
  }
}

TEST_F(Rollback, NeverLetsASecondLiveRecordUnderAUniqueKey) {
  put_group(1, 1);
  ZtBeginTransaction(db);
  Ledger::erase(db, 0);
  EXPECT_TRUE(Ledger::ids(db, Ledger::on_id, ZT_OP_EQUAL, {0}).empty());
  ASSERT_EQ(current(Ledger::on_id, 0), Ids{});
  EXPECT_EQ(Ledger::put(db, 0, 2), 1) << "the key is free for now";
  ZtRollbackTransaction(db);
  Transaction all(db);
  EXPECT_EQ(Ledger::ids(db, Ledger::on_id, ZT_OP_EQUAL, {0}), std::vector<int>{0});
  EXPECT_EQ(Ledger::put(db, 0, 3), -1);
  EXPECT_EQ(take_error(db), -1009);
}

TEST_F(Rollback, ForgetsRecordsThatAResetTookAwayAndCoversThoseInTheirPlace) {
  for (bool commit : {false, true}) {
    put_group(1, 3);
    ZtBeginTransaction(db);
    Row row(db);
    ASSERT_TRUE(Ledger::get(db, 1, row));
    ZtRecord* const address = raw(row).record;
    row.set(Ledger::sum, 9LL);
    ZtResetDb(db);
    for (int id = 0; id < 3; ++id) Ledger::put(db, id, 2);
    ASSERT_TRUE(Ledger::get(db, 1, row));
    ASSERT_EQ(raw(row).record, address) << "the same place in memory, another record";
    commit ? ZtCommitTransaction(db) : ZtRollbackTransaction(db);
    EXPECT_EQ(address->deleted, commit ? 0 : 1);
    EXPECT_EQ(ledger.catalog()->duty, 0);
    EXPECT_EQ(Ledger::ids(db, Ledger::by_group, ZT_OP_GREATER, {0}).size(), commit ? 3u : 0u);
    ZtResetDb(db);
  }
}

// Random transactions of two handles in turn against a model, committed, rolled back or cut off by a new
// begin, with walks in between that take deleted entries out.
TEST(Transactions, LeaveExactlyTheModelsRecordsVisible) {
  struct Booking {
    int id, group;
    long long sum;
    bool operator==(const Booking&) const = default;
  };
  using State = std::map<int, Booking>;  // by record id
  for (unsigned seed : {21u, 22u, 23u, 24u, 25u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
    Ledger ledger;
    Database other = ledger.open(ZT_MODE_READ_WRITE), reader = ledger.open(ZT_MODE_READ_ONLY);
    State state;
    int next_id = 0;
    const auto visible = [&](ZtDbHandle db, int index, bool forward) {
      State found;
      Query query(db, index);
      Row row(db);
      bool placed = query.list();
      if (placed && !forward) placed = query.last();
      for (; placed; placed = forward ? query.next() : query.prev()) {
        EXPECT_TRUE(query.fetch(row));
        const Booking b = {row.get<int>(Ledger::id), row.get<int>(Ledger::group),
                           row.get<long long>(Ledger::sum)};
        EXPECT_TRUE(found.emplace(ZtGetRecordId(db, row), b).second) << "record twice";
      }
      return found;
    };
    for (int transaction = 0; transaction < 120 && !testing::Test::HasFailure(); ++transaction) {
      ZtDbHandle db = transaction % 2 == 0 ? ledger.writer() : static_cast<ZtDbHandle>(other);
      State changed = state;
      ZtBeginTransaction(db);
      for (int op = below(12); op >= 0; --op) {
        const int kind = below(10);
        Row row(db);
        if (kind < 4 || changed.empty()) {
          const Booking b = {below(40), below(3), 0};
          const bool taken = std::any_of(changed.begin(), changed.end(),
                                         [&](const auto& other_b) { return other_b.second.id == b.id; });
          const int record_id = Ledger::put(db, b.id, b.group);
          ASSERT_EQ(record_id, taken ? -1 : next_id) << "id " << b.id;
          if (!taken) changed[next_id++] = b;
          continue;
        }
        const auto victim = std::next(changed.begin(), below(static_cast<int>(changed.size())));
        ASSERT_TRUE(Ledger::get(db, victim->first, row));
        if (kind < 6) {
          ASSERT_TRUE(row.set(Ledger::sum, ++victim->second.sum));
        } else if (kind < 9) {
          ZtDeleteRecord(db, row);
          changed.erase(victim);
        } else {
          EXPECT_EQ(visible(db, below(3), below(2) == 0), changed);
        }
      }
      const int end = below(3);
      if (end != 0) state = changed;
      if (end == 1) ZtCommitTransaction(db);
      if (end == 2) ZtBeginTransaction(db);
      if (end != 1) ZtRollbackTransaction(db);
      for (int index : {-1, 0, 1, 2}) {
        for (bool forward : {true, false}) {
          EXPECT_EQ(visible(reader, index, forward), state) << "reader, index " << index;
          if (transaction % 4 == 0) {
            EXPECT_EQ(visible(db, index, forward), state) << "writer, index " << index;
          }
        }
      }
    }
  }
}

}  // namespace
