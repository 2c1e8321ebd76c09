// Readers without locks beside writers: what a read-only process sees of a database that others change at the
// same time. Fields of one record agree, nothing that was rolled back is ever seen, what was committed is
// always found, and every search ends.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "support/child_process.h"
#include "support/ledger.h"
#include "support/shared.h"

namespace {

using namespace cachet::test;

// The sum that belongs to an id and an amount; any other one was read from a record half changed.
long long sum_of(int id, double amount) {
  return static_cast<long long>(amount) * 7 + id;
}

void set_amount(Row& row, double amount) {
  row.set(Ledger::amount, amount);
  row.set(Ledger::sum, sum_of(row.get<int>(Ledger::id), amount));
}

void put_agreeing(ZtDbHandle db, int id, int group) {
  Row row(db);
  ZtNewRecord(db, 0, row);
  row.set(Ledger::id, id);
  row.set(Ledger::group, group);
  set_amount(row, 0);
  ASSERT_TRUE(ZtPutRecord(db, row)) << id;
}

struct Progress {
  std::atomic<bool> done;
  std::atomic<int> committed;
};

// Amounts of committed changes are positive and those of changes to be rolled back negative.
TEST(Readers, NeverSeeATornOrRolledBackRecord) {
  constexpr int records = 8, reads = 100000;
  Ledger ledger;
  ZtDbHandle db = ledger.writer();
  {
    Transaction all(db);
    for (int id = 0; id < records; ++id) put_agreeing(db, id, id % 2);
  }
  Shared<Progress> progress;
  Child reader([&](Gate&) {
    Database own = ledger.open(ZT_MODE_READ_ONLY);
    std::mt19937 random(31);
    Row row(own);
    int changes_seen = 0;
    double last = 0;
    for (int read = 0; read < reads && !testing::Test::HasFailure(); ++read) {
      const int id = static_cast<int>(random() % records);
      Query query(own, Ledger::by_id, {id});
      EXPECT_TRUE(query.find(ZT_OP_EQUAL) && query.fetch(row) && row.get<int>(Ledger::id) == id);
      const double amount = row.get<double>(Ledger::amount);
      EXPECT_EQ(row.get<long long>(Ledger::sum), sum_of(id, amount)) << "torn";
      EXPECT_GE(amount, 0) << "taken back";
      if (std::exchange(last, amount) != amount) ++changes_seen;
    }
    progress->done = true;
    EXPECT_GT(changes_seen, 100) << "too quiet a test";
    return 0;
  });
  std::mt19937 random(32);
  for (int change = 1; !progress->done; ++change) {
    const bool commit = random() % 2 == 0;
    ZtBeginTransaction(db);
    for (int i = 0; i < 2; ++i) {
      Row row(db);
      ASSERT_TRUE(Ledger::get(db, static_cast<int>(random() % records), row));
      set_amount(row, commit ? change : -change);
    }
    commit ? ZtCommitTransaction(db) : ZtRollbackTransaction(db);
  }
  EXPECT_EQ(reader.exit_status(), 0);
}

// Where the reader's copy of a long record is to stop: pages of its private buffer that a fault handler opens again,
// after it has met the parent.
Gate* copy_gate = nullptr;

void meet_parent_and_open_page(int, siginfo_t* info, void*) {
  const auto page = reinterpret_cast<std::uintptr_t>(info->si_addr) & ~std::uintptr_t{4095};
  copy_gate->tell('s');
  copy_gate->wait_for('c');
  mprotect(reinterpret_cast<void*>(page), 4096, PROT_READ | PROT_WRITE);
}

void close_page(char* address) {
  mprotect(reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(address) & ~std::uintptr_t{4095}), 4096,
           PROT_NONE);
}

// A change is made and taken back, all while the reader copies: the record's own counter is then what it was before.
TEST(Readers, NeverKeepACopyThatARollbackOvertook) {
  TempDirectory directory;
  Database writer = begin_create(directory);
  define_table(writer, "long",
               {{"a", FIELD_INT8, 8, 0},
                {"b", FIELD_STRING, 30000, 0},
                {"c", FIELD_INT8, 8, 0},
                {"d", FIELD_STRING, 60000, 0}},
               {});
  finish_create(writer);
  Row row(writer);
  ZtBeginTransaction(writer);
  ASSERT_TRUE(ZtNewRecord(writer, 0, row) && ZtPutRecord(writer, row));
  ZtCommitTransaction(writer);
  Child reader([&](Gate& gate) {
    Database own = begin_open(directory, ZT_MODE_READ_ONLY);
    finish_open(own);
    Condition condition(-1);
    Row copy(own);
    EXPECT_TRUE(ZtListRecord(own, 0, condition) && ZtGetRecord(own, condition, copy));
    copy_gate = &gate;
    struct sigaction action = {};
    action.sa_sigaction = meet_parent_and_open_page;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, nullptr);
    close_page(raw(copy).record->data + 16000);
    close_page(raw(copy).record->data + 64000);
    EXPECT_TRUE(ZtGetRecord(own, condition, copy));
    EXPECT_EQ(copy.get<long long>(0), 0);
    EXPECT_EQ(copy.get<long long>(2), 0);
    return 0;
  });
  ASSERT_TRUE(reader.wait_for('s')) << "between the two numbers";
  ZtBeginTransaction(writer);
  for (int field : {0, 2}) row.set(field, -1LL);
  reader.tell('c');
  ASSERT_TRUE(reader.wait_for('s')) << "behind both";
  ZtRollbackTransaction(writer);
  reader.tell('c');
  EXPECT_EQ(reader.exit_status(), 0);
}

// Ids come in an order that rotates the trees everywhere; each insert is a transaction of its own.
TEST(Readers, FindEverythingCommittedWhileTheTreesRotate) {
  constexpr int records = 4096;
  const auto nth_id = [](int n) { return n * 1365 % records; };
  Ledger ledger(16 << 20);
  ZtDbHandle db = ledger.writer();
  Shared<Progress> progress;
  std::vector<std::unique_ptr<Child>> readers;
  for (unsigned seed : {41u, 42u}) {
    readers.push_back(std::make_unique<Child>([&, seed](Gate& gate) {
      Database own = ledger.open(ZT_MODE_READ_ONLY);
      std::mt19937 random(seed);
      gate.tell('r');
      Row row(own);
      for (int read = 0; (!progress->done || read < 1000) && !testing::Test::HasFailure(); ++read) {
        const int committed = progress->committed;
        if (committed == 0) continue;
        const int id = nth_id(static_cast<int>(random() % static_cast<unsigned>(committed)));
        Query query(own, Ledger::by_id, {id});
        EXPECT_TRUE(query.find(ZT_OP_EQUAL) && query.fetch(row)) << id;
        EXPECT_EQ(row.get<int>(Ledger::id), id);
        EXPECT_EQ(row.get<long long>(Ledger::sum), sum_of(id, 0));
        if (read % 64 != 0) continue;
        bool placed = query.find(ZT_OP_GREATER_EQUAL);
        EXPECT_TRUE(placed);
        for (int previous = id - 1, step = 0; placed && step < 10 && query.fetch(row); ++step) {
          EXPECT_GT(row.get<int>(Ledger::id), previous);
          previous = row.get<int>(Ledger::id);
          placed = query.next();
        }
      }
      return 0;
    }));
  }
  for (auto& reader : readers) ASSERT_TRUE(reader->wait_for('r'));
  for (int n = 0; n < records; ++n) {
    Transaction one(db);
    put_agreeing(db, nth_id(n), n % 3);
    ZtCommitTransaction(db);
    progress->committed = n + 1;
  }
  progress->done = true;
  for (auto& reader : readers) EXPECT_EQ(reader->exit_status(), 0);
}

struct WaitingReader : testing::Test {
  WaitingReader() {
    Transaction all(db);
    put_agreeing(db, 0, 1);
  }
  int word(int which) const { return cachet::load_acquire<int>(db->lock.m_lockpage.m_p + 4 * which); }
  // Looks for the record with `id` when told to, and exits with 10 without it, else with its amount.
  Child& reader_of(int id) {
    child = std::make_unique<Child>([this, id](Gate& gate) {
      Database own = ledger.open(ZT_MODE_READ_ONLY);
      gate.tell('r');
      gate.wait_for('g');
      Query query(own, Ledger::by_id, {id});
      Row row(own);
      const bool found = query.find(ZT_OP_EQUAL) && query.fetch(row);
      gate.tell('f');
      return found ? static_cast<int>(row.get<double>(Ledger::amount)) : 10;
    });
    child->wait_for('r');
    return *child;
  }

  Ledger ledger;
  ZtDbHandle db = ledger.writer();
  std::unique_ptr<Child> child;
};

TEST_F(WaitingReader, SeesAnInsertAndAnUpdateOnlyOnceTheyAreCommittedOrNotAtAll) {
  const struct {
    int id;
    bool insert, commit;
    int outcome;
  } cases[] = {{1, true, true, 0}, {2, true, false, 10}, {0, false, false, 0}, {0, false, true, 5}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.outcome);
    Child& reader = reader_of(c.id);
    Row row(db);
    ZtBeginTransaction(db);
    if (c.insert) {
      put_agreeing(db, c.id, 1);
    } else {
      ASSERT_TRUE(Ledger::get(db, c.id, row));
      set_amount(row, 5);
    }
    reader.tell('g');
    ASSERT_TRUE(eventually([&] { return word(4) == 1; })) << "it waits in the lock";
    EXPECT_FALSE(reader.has_sign());
    c.commit ? ZtCommitTransaction(db) : ZtRollbackTransaction(db);
    ASSERT_TRUE(reader.wait_for('f'));
    EXPECT_EQ(reader.exit_status(), c.outcome);
    EXPECT_EQ(word(3), 0);
  }
}

// Nobody holds the lock then, so the reader gets it, and goes on waiting for the mark with the lock in its
// hand.
TEST_F(WaitingReader, WaitsForTheCommitAfterAWriteOutsideATransaction) {
  Child& reader = reader_of(3);
  put_agreeing(db, 3, 1);
  reader.tell('g');
  ASSERT_TRUE(eventually([&] { return word(3) == 1; }));
  reader.wait_until_asleep();
  EXPECT_FALSE(reader.has_sign());
  { Transaction commit(db); }
  ASSERT_TRUE(reader.wait_for('f'));
  EXPECT_EQ(reader.exit_status(), 0);
  EXPECT_EQ(word(3), 0);
}

TEST(Readers, SurviveResetsUnderTheirCursors) {
  constexpr int walks = 300;
  Ledger ledger;
  ZtDbHandle db = ledger.writer();
  Shared<Progress> progress;
  Child reader([&](Gate&) {
    Database own = ledger.open(ZT_MODE_READ_ONLY);
    Row row(own);
    int fetched = 0;
    for (int walk = 0; walk < walks || fetched < walks; ++walk) {
      Query query(own, walk % 4 - 1);
      bool placed = query.list();
      if (placed && walk % 8 > 3) placed = query.last();
      for (int step = 0; placed && step < 1000; ++step) {
        if (query.fetch(row)) progress->committed = ++fetched;
        placed = walk % 8 > 3 ? query.prev() : query.next();
      }
    }
    progress->done = true;
    return 0;
  });
  for (int round = 0; !progress->done; ++round) {
    {
      Transaction fill(db);
      for (int id = 0; id < 100; ++id) put_agreeing(db, id * 37 % 100, (id + round) % 5);
    }
    // In the middle of a walk, at another place each time.
    const int goal = progress->committed + round % 50;
    ASSERT_TRUE(eventually([&] { return progress->committed > goal || progress->done; }));
    ASSERT_TRUE(ZtLockDb(db, ZT_LOCK_EXCLUSIVE));
    ZtResetDb(db);
    ZtUnLockDb(db);
  }
  EXPECT_EQ(reader.exit_status(), 0);
}

TEST(Writers, TakeTurnsWithoutLosingAChange) {
  constexpr int writers = 3, rounds = 300;
  Ledger ledger;
  {
    Transaction all(ledger.writer());
    put_agreeing(ledger.writer(), 0, 0);
  }
  std::vector<std::unique_ptr<Child>> children;
  for (int writer = 1; writer <= writers; ++writer) {
    children.push_back(std::make_unique<Child>([&, writer](Gate&) {
      Database own = ledger.open(ZT_MODE_READ_WRITE);
      for (int round = 0; round < rounds; ++round) {
        Row row(own);
        ZtBeginTransaction(own);
        if (!Ledger::get(own, 0, row)) return 1;
        set_amount(row, row.get<double>(Ledger::amount) + 1);
        if (round % 3 == 0) put_agreeing(own, writer * 1000 + round, writer);
        round % 5 == 4 ? ZtRollbackTransaction(own) : ZtCommitTransaction(own);
      }
      return 0;
    }));
  }
  for (auto& child : children) EXPECT_EQ(child->exit_status(), 0);
  Row row(ledger.writer());
  ASSERT_TRUE(Ledger::get(ledger.writer(), 0, row));
  EXPECT_EQ(row.get<double>(Ledger::amount), writers * rounds * 4 / 5);
  EXPECT_EQ(ledger.catalog()->recordcount, 1 + writers * rounds / 3);
  EXPECT_EQ(Ledger::ids(ledger.writer(), Ledger::by_group, ZT_OP_GREATER, {0}).size(),
            static_cast<std::size_t>(writers * rounds / 3 * 4 / 5));
}

}  // namespace
