// The lock between processes: who gets in, who waits, who goes first, and that the death of a waiter or of a releaser
// leaves nobody outside for ever.
#include "rwlock.h"

#include <gtest/gtest.h>
#include <sys/sem.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "rwspinlock.h"
#include "shared_word.h"
#include "spinlock.h"
#include "support/child_process.h"
#include "support/ledger.h"
#include "support/shared.h"
#include "support/signals.h"

namespace {

using namespace cachet::test;

enum Level { reading = 0, writing = 1 };
enum Word { spin, writers, writers_waiting, readers, readers_waiting };

// A process that takes slot 0 when told to, stays inside, and leaves when told to.
class Visitor {
 public:
  Visitor(const std::string& name, Level level)
      : child_([=](Gate& gate) {
          Crwspinlock lock;
          std::string path = name;
          if (!lock.Open(path.data(), 1)) return 1;
          gate.tell('r');
          gate.wait_for('e');
          EXPECT_TRUE(lock.Lock(0, level));
          gate.tell('i');
          if (gate.wait_for('l')) lock.Unlock(0, level, -1, nullptr);
          gate.tell('o');
          lock.Close();
          return 0;
        }) {
    child_.wait_for('r');
  }
  void ask() { child_.tell('e'); }
  bool is_in() const { return child_.has_sign(); }
  void expect_in() { ASSERT_TRUE(child_.wait_for('i')); }
  void enter() {
    ask();
    expect_in();
  }
  void leave() {
    child_.tell('l');
    ASSERT_TRUE(child_.wait_for('o'));
  }
  void kill() { child_.kill(); }
  void stop() { ::kill(child_.pid(), SIGSTOP); }
  void resume() { ::kill(child_.pid(), SIGCONT); }

 private:
  Child child_;
};

struct ProcessLock : DatabaseTest {
  void SetUp() override {
    ASSERT_TRUE(lock.Create(name.data(), 1));
    directory.note_objects();
  }
  void TearDown() override {
    visitors.clear();
    lock.Close();
    DatabaseTest::TearDown();
  }
  Visitor& visitor(Level level) { return *visitors.emplace_back(std::make_unique<Visitor>(name, level)); }
  int word(Word which) const { return cachet::load_acquire<int>(lock.m_lockpage.m_p + 4 * which); }
  // Waits until so many are counted as waiting; what they wait for is a semaphore.
  void expect_waiting(Word which, int count) {
    ASSERT_TRUE(eventually([&] { return word(which) == count; })) << word(which);
  }

  int asleep_on(const Cztsema& sema) const { return semctl(sema.m_sempid, sema.m_sempno, GETNCNT); }

  std::string name = directory.base();
  Crwspinlock lock;
  std::vector<std::unique_ptr<Visitor>> visitors;
};

TEST_F(ProcessLock, HoldsOneWriterAndLetsAWaitingWriterInBeforeWaitingReaders) {
  for (bool readers_came_first : {true, false}) {
    Visitor &early = visitor(reading), &holder = visitor(writing), &writer = visitor(writing);
    Visitor* const waiting[] = {&visitor(reading), &visitor(reading)};
    early.enter();
    holder.enter();  // writers do not wait for readers
    for (bool ask_readers : {readers_came_first, !readers_came_first}) {
      if (!ask_readers) writer.ask();
      for (Visitor* reader : waiting) {
        if (ask_readers) reader->ask();
      }
      expect_waiting(ask_readers ? readers_waiting : writers_waiting, ask_readers ? 2 : 1);
    }
    EXPECT_FALSE(writer.is_in());
    holder.leave();
    writer.expect_in();
    EXPECT_EQ(word(writers), 1);
    EXPECT_EQ(word(readers), 1) << "the early one";
    EXPECT_EQ(word(readers_waiting), 2);
    writer.leave();
    for (Visitor* reader : waiting) reader->expect_in();
    EXPECT_EQ(word(readers), 3);
    for (Visitor* reader : {&early, waiting[0], waiting[1]}) reader->leave();
    for (Word w : {writers, writers_waiting, readers, readers_waiting}) EXPECT_EQ(word(w), 0) << w;
  }
}

// The slot is free and a writer waits for it but does not come, being stopped: a reader that wakes up by chance then
// leaves the slot to the writer.
TEST_F(ProcessLock, AReaderThatWakesUpLeavesAFreeSlotToAWaitingWriter) {
  Visitor &holder = visitor(writing), &writer = visitor(writing), &reader = visitor(reading);
  holder.enter();
  writer.ask();
  reader.ask();
  ASSERT_TRUE(
      eventually([&] { return asleep_on(lock.m_w_sema[0]) == 1 && asleep_on(lock.m_r_sema[0]) == 1; }));
  writer.stop();
  holder.leave();
  ASSERT_EQ(word(writers), 0);
  const Cztsema& sema = lock.m_r_sema[0];
  ASSERT_TRUE(lock.m_r_sema[0].Release());
  EXPECT_TRUE(eventually([&] {
    return semctl(sema.m_sempid, sema.m_sempno, GETVAL) == 0 && (asleep_on(sema) == 1 || word(readers) == 1);
  }));
  EXPECT_EQ(word(readers), 0);
  writer.resume();
  writer.expect_in();
}

// A process of each level queues behind a waiter that was killed in its sleep; both get in, and so does who
// comes later.
TEST_F(ProcessLock, ADeadWaiterBlocksNobody) {
  for (Level level : {writing, reading}) {
    Visitor &holder = visitor(writing), &dead = visitor(level), &writer = visitor(writing),
            &reader = visitor(reading);
    const auto expect_asleep = [&](const Cztsema& sema) {
      ASSERT_TRUE(eventually([&] { return asleep_on(sema) == 1; }));
    };
    holder.enter();
    dead.ask();
    expect_asleep(level == writing ? lock.m_w_sema[0] : lock.m_r_sema[0]);
    dead.kill();
    writer.ask();
    reader.ask();
    expect_asleep(lock.m_w_sema[0]);
    expect_asleep(lock.m_r_sema[0]);
    holder.leave();
    writer.expect_in();
    writer.leave();
    reader.expect_in();
    reader.leave();
    ASSERT_FALSE(HasFailure());
  }
}

// A process that dies after it gave the slot back and before it woke anybody.
TEST_F(ProcessLock, AReleaserThatDiesBeforeItsPostStrandsNobody) {
  for (Level level : {writing, reading}) {
    SCOPED_TRACE(level == writing ? "a writer waits" : "a reader waits");
    Child releaser([&](Gate& gate) {
      Crwspinlock own;
      std::string path = name;
      if (!own.Open(path.data(), 1) || !own.Lock(0, writing)) return 1;
      gate.tell('i');
      gate.wait_for('l');
      own.m_lock[0].Lock();
      cachet::store_release<int>(own.m_lockpage.m_p + 4 * writers, 0);
      own.m_lock[0].Unlock();
      return 0;
    });
    ASSERT_TRUE(releaser.wait_for('i'));
    Visitor& waiter = visitor(level);
    waiter.ask();
    expect_waiting(level == writing ? writers_waiting : readers_waiting, 1);
    releaser.tell('l');
    ASSERT_EQ(releaser.exit_status(), 0);
    waiter.expect_in();
    waiter.leave();
  }
}

TEST(SpinLock, IsNotRaisedByContendersThatDie) {
  Shared<std::int32_t> word;
  Cspinlock lock;
  lock.Set(reinterpret_cast<char*>(&*word));
  lock.Lock();
  for (int victim = 0; victim < 30; ++victim) {
    Child contender([&](Gate& gate) {
      Cspinlock own;
      own.Set(reinterpret_cast<char*>(&*word));
      gate.tell('r');
      own.Lock();
      return 0;
    });
    ASSERT_TRUE(contender.wait_for('r'));
    for (int look = 0; look < 20000; ++look) ASSERT_EQ(cachet::load_acquire<int>(&*word), 1);
    contender.kill();
    ASSERT_EQ(*word, 1);
  }
  lock.Unlock();
  EXPECT_EQ(*word, 0);
}

TEST_F(ProcessLock, ASemaphoreReportsAnInterruptedWait) {
  interrupt_every(1000);
  EXPECT_EQ(lock.m_w_sema[0].Wait(-1), -1);
  EXPECT_EQ(errno, EINTR);
  interrupt_every(0);
}

TEST(LockPosition, IsTakenOnceAtTheLevelOfTheHandlesMode) {
  using Ten = std::array<int, 10>;
  Ledger ledger;
  Database reader = ledger.open(ZT_MODE_READ_ONLY);
  ZtDbHandle db = ledger.writer();
  const auto words = [&] { return cachet::load_unaligned<Ten>(db->lock.m_lockpage.m_p); };
  for (int time = 0; time < 3; ++time) EXPECT_TRUE(ZtLockPosition(db, 0));
  EXPECT_EQ(words(), (Ten{0, 1}));
  for (int time = 0; time < 2; ++time) ZtUnLockPosition(db, 0);
  EXPECT_EQ(words(), Ten{});
  for (int time = 0; time < 2; ++time) EXPECT_TRUE(ZtLockPosition(reader, 1));
  EXPECT_EQ(words(), (Ten{0, 0, 0, 0, 0, 0, 0, 0, 1, 0}));
  EXPECT_TRUE(ZtLockPosition(reader, 0));
  ZtUnLock(reader);
  for (const auto& [slot, level] : {std::pair{-1, 0}, {2, 1}, {100, 0}, {0, 2}, {1, -1}}) {
    EXPECT_FALSE(db->lock.Lock(slot, level)) << slot << ", " << level;
    EXPECT_TRUE(slot == 0 || slot == 1 || !ZtLockPosition(db, slot));
  }
  EXPECT_FALSE(Crwspinlock().Lock(0, 1)) << "never opened";
  EXPECT_EQ(words(), Ten{});
}

}  // namespace
