// Transactions with session tracking and the shared store where it is least comfortable: writers whose every wait a
// signal interrupts or a stray post ends, and readers without locks beside commits and rollbacks.
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <random>

#include "support/bank.h"
#include "support/child_process.h"
#include "support/settings.h"
#include "support/shared.h"
#include "support/signals.h"

namespace cachet::test {
namespace {

struct Board {
  std::atomic<int> inside, faults;
  std::atomic<int> readers_done;
  std::atomic<long> ended;  // transactions
};

struct Storm : DatabaseTest {
  Shared<Board> board;
};

TEST_F(Storm, SignalsAndStrayPostsNeverLetTwoWritersIn) {
  constexpr int writers = 4, readers = 2, rounds = 400;
  Database db = bank::create(directory, {{1, 0}, {2, 0}}, 16 << 20);
  std::deque<Child> children;
  for (int number = 0; number < writers + readers; ++number) {
    children.emplace_back([&, number](Gate& gate) {
      Database own = bank::open(directory, number < writers ? ZT_MODE_READ_WRITE : ZT_MODE_READ_ONLY);
      interrupt_every(1000);
      gate.tell('r');
      for (int round = 0; round < rounds; ++round) {
        if (number >= writers) {
          EXPECT_TRUE(ZtLockPosition(own, 0));
          ZtUnLock(own);
          continue;
        }
        ZtBeginTransaction(own);
        if (board->inside.fetch_add(1) != 0) ++board->faults;
        const long long seen = bank::amount_of(own, 1).value_or(-1);
        for (int pause = round % 8; pause > 0; --pause) sched_yield();
        bank::set_amount(own, 1, seen + 1);
        if (round % 4 == 0) bank::put(own, 1000 + number * rounds + round, 0);
        board->inside.fetch_sub(1);
        round % 5 == 4 ? ZtRollbackTransaction(own) : ZtCommitTransaction(own);
      }
      return 0;
    });
  }
  for (Child& child : children) ASSERT_TRUE(child.wait_for('r'));
  Crwspinlock& lock = static_cast<ZtDbHandle>(db)->lock;
  for (int post = 0; post < 200; ++post) {
    lock.m_w_sema[0].Release();
    lock.m_r_sema[0].Release();
    sched_yield();
  }
  for (Child& child : children) EXPECT_EQ(child.exit_status(), 0);
  EXPECT_EQ(board->faults, 0);
  const bank::Balances found = bank::check_everything(db);
  EXPECT_EQ(found.at(1), writers * rounds * 4 / 5);
  EXPECT_EQ(found.size(), 2u + writers * rounds / 4 * 4 / 5);
  check_idle(db);
}

// Committed amounts are positive, and those that are to be rolled back negative.
TEST_F(Storm, AMillionReadsBesideCommitsAndRollbacksAreNeverTorn) {
  const long reads = setting("CACHET_READS", 1'000'000);
  constexpr long transactions = 20000;
  constexpr int ids = 8;
  std::mt19937 random(announced_seed());
  bank::Balances balances;
  for (int id = 0; id < ids; ++id) balances[id] = 1;
  Database db = bank::create(directory, balances);
  std::deque<Child> readers;
  for (const unsigned seed : {static_cast<unsigned>(random()), static_cast<unsigned>(random())}) {
    readers.emplace_back([&, seed](Gate&) {
      Database own = bank::open(directory, ZT_MODE_READ_ONLY);
      std::mt19937 own_random(seed);
      Row row(own);
      const long before = board->ended;
      for (long read = 0; read < reads / 2 || board->ended - before < transactions; ++read) {
        const int id = static_cast<int>(own_random() % ids);
        const bool sound = bank::find(own, id, row) && row.get<ZTINT8>(bank::f_id) == id &&
                           bank::is_whole(row) && row.get<long long>(bank::f_amount) > 0;
        if (!sound) ++board->faults;
      }
      ++board->readers_done;
      return 0;
    });
  }
  for (long long change = 2; board->readers_done < 2; ++change) {
    const bool commit = random() % 2 == 0;
    ZtBeginTransaction(db);
    for (int i = 0; i < 2; ++i)
      bank::set_amount(db, static_cast<int>(random() % ids), commit ? change : -change);
    commit ? ZtCommitTransaction(db) : ZtRollbackTransaction(db);
    ++board->ended;
    for (auto turns = random() % 2000; turns > 0; --turns) asm volatile("pause");
  }
  for (Child& each : readers) EXPECT_EQ(each.exit_status(), 0);
  EXPECT_EQ(board->faults, 0);
  std::printf("at least %ld reads beside %ld transactions\n", reads, board->ended.load());
}

}  // namespace
}  // namespace cachet::test
