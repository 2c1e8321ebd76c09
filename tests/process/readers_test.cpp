// Readers without locks beside writers: what a read-only process sees of a database that others change at the
// same time. Fields of one record agree, nothing that was rolled back is ever seen, what was committed is
// always found, and every search ends.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <deque>
#include <memory>
#include <random>

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
  std::atomic<int> committed[2], reads;
};

// Two writers change record 0 and insert others, in an order that rotates the trees everywhere; what they roll back
// has negative amounts.
TEST(Readers, FindAllThatIsCommittedAndNothingElseBesideWritersThatTakeTurns) {
  constexpr int rounds = 400;
  const auto nth_id = [](int writer, int n) { return 1 + 2 * (n * 683 % 1024) + writer; };
  Ledger ledger(16 << 20);
  put_agreeing(ledger.writer(), 0, 0);
  { Transaction commit(ledger.writer()); }
  Shared<Progress> progress;
  std::deque<Child> readers, writers;
  for (unsigned seed : {41u, 42u}) {
    readers.emplace_back([&, seed](Gate& gate) {
      Database own = ledger.open(ZT_MODE_READ_ONLY);
      std::mt19937 random(seed);
      Row row(own);
      double last = 0;
      int changes_seen = 0;
      gate.tell('r');
      for (int read = 0; !progress->done && !testing::Test::HasFailure(); ++read) {
        const int writer = read % 2, committed = progress->committed[writer];
        const bool changing = committed == 0 || read % 4 < 2;
        const int id =
            changing ? 0 : nth_id(writer, static_cast<int>(random() % static_cast<unsigned>(committed)));
        Query query(own, Ledger::on_id, {id});
        EXPECT_TRUE(query.find(ZT_OP_EQUAL) && query.fetch(row) && row.get<int>(Ledger::id) == id) << id;
        const double amount = row.get<double>(Ledger::amount);
        EXPECT_EQ(row.get<long long>(Ledger::sum), sum_of(id, amount)) << "torn";
        EXPECT_GE(amount, 0) << "taken back";
        if (changing && std::exchange(last, amount) != amount) ++changes_seen;
        bool placed = read % 64 == 63 && query.find(ZT_OP_GREATER_EQUAL);
        for (int previous = id - 1, step = 0; placed && step < 10 && query.fetch(row); ++step) {
          EXPECT_GT(row.get<int>(Ledger::id), previous);
          previous = row.get<int>(Ledger::id);
          placed = query.next();
        }
        ++progress->reads;
      }
      EXPECT_GT(changes_seen, 10) << "too quiet a test";
      return 0;
    });
  }
  for (Child& reader : readers) ASSERT_TRUE(reader.wait_for('r'));
  for (int writer : {0, 1}) {
    writers.emplace_back([&, writer](Gate&) {
      Database own = ledger.open(ZT_MODE_READ_WRITE);
      for (int round = 0; round < rounds; ++round) {
        const bool commit = round % 5 != 4;
        Row row(own);
        ZtBeginTransaction(own);
        EXPECT_TRUE(Ledger::get(own, 0, row));
        set_amount(row, commit ? row.get<double>(Ledger::amount) + 1 : -1);
        put_agreeing(own, nth_id(writer, progress->committed[writer]), writer);
        commit ? ZtCommitTransaction(own) : ZtRollbackTransaction(own);
        if (commit) ++progress->committed[writer];
        const int reads = progress->reads;
        EXPECT_TRUE(eventually([&] { return progress->reads > reads; }));
      }
      return 0;
    });
  }
  for (Child& writer : writers) EXPECT_EQ(writer.exit_status(), 0);
  progress->done = true;
  for (Child& reader : readers) EXPECT_EQ(reader.exit_status(), 0);
  Row row(ledger.writer());
  ASSERT_TRUE(Ledger::get(ledger.writer(), 0, row));
  EXPECT_EQ(row.get<double>(Ledger::amount), 2 * rounds * 4 / 5);
  EXPECT_EQ(Ledger::ids(ledger.writer(), Ledger::on_id, ZT_OP_GREATER, {0}).size(), 2u * rounds * 4 / 5);
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
      Query query(own, Ledger::on_id, {id});
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
        if (query.fetch(row)) progress->reads = ++fetched;
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
    const int goal = progress->reads + round % 50;
    ASSERT_TRUE(eventually([&] { return progress->reads > goal || progress->done; }));
    ASSERT_TRUE(ZtLockDb(db, ZT_LOCK_EXCLUSIVE));
    ZtResetDb(db);
    ZtUnLockDb(db);
  }
  EXPECT_EQ(reader.exit_status(), 0);
}

}  // namespace
