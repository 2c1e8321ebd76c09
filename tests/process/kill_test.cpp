// Writers and readers at work, of which one after the other is killed at a random moment. After every death a survivor
// clears, checks the whole database against what the writers wrote down, and sees the others go on.
//
// A writer writes its changes down before it commits, inside the lock, and says behind the commit that it is done. So of
// a process that died between the two, and of no other, the changes may be there or not.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "support/bank.h"
#include "support/child_process.h"
#include "support/settings.h"
#include "support/shared.h"

namespace cachet::test {
namespace {

constexpr int base_accounts = 16;
constexpr long long opening_balance = 1000;
constexpr int first_item = 100;
constexpr int item_ids = 48;
constexpr int inserts_per_kill = 60;  // bounds the memory, and the time of a check
constexpr int kills_per_database = 24;
constexpr int most_changes = 8;
constexpr long board_entries = 1 << 16;
constexpr long long gone = -1'000'000'000;

struct Change {
  int id;
  long long amount;  // or gone
};

struct Entry {
  std::atomic<bool> done;
  int pid;
  int count;
  Change changes[most_changes];
};

enum Role : int { first_writer, second_writer, auditor, reader, roles };

struct Board {
  std::atomic<long> written, settled;  // entries; the order of `written` is the order of the commits
  std::atomic<long> inserts_left;
  std::array<std::atomic<long>, roles> operations;
  std::atomic<int> faults;
  Entry entries[board_entries];

  // No room for writers before the next check.
  bool is_full() const { return written - settled > board_entries / 2; }
  long all_operations() const {
    long sum = 0;
    for (const auto& each : operations) sum += each;
    return sum;
  }
};

bank::Balances opening_balances() {
  bank::Balances balances;
  for (int id = 0; id < base_accounts; ++id) balances[id] = opening_balance;
  return balances;
}

void apply(const Entry& entry, bank::Balances& model) {
  for (int i = 0; i < entry.count; ++i) {
    const auto [id, amount] = entry.changes[i];
    if (amount == gone) {
      model.erase(id);
    } else {
      model[id] = amount;
    }
  }
}

// One transaction after the other: transfers, items opened and closed at the cost of an account, walks that unlink.
class Writer {
 public:
  Writer(ZtDbHandle db, Board& board, unsigned seed) : db_(db), board_(board), random_(seed) {}

  void transact() {
    changes_.clear();
    ZtBeginTransaction(db_);
    for (int step = 0, steps = 1 + below(3); step < steps; ++step) act();
    if (below(4) == 0) {
      ZtRollbackTransaction(db_);
      return;
    }
    Entry& entry = write_down();
    ZtCommitTransaction(db_);
    entry.done = true;
  }

 private:
  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

  void act() {
    const int account = below(base_accounts);
    const int item = first_item + below(item_ids);
    switch (below(5)) {
      case 0:
        bank::walk(db_, below(bank::indexes), below(2) == 0);
        break;
      case 1:
        add(account, -7);
        add((account + 1) % base_accounts, 7);
        break;
      default:
        toggle(item, account);
    }
  }

  void toggle(int item, int account) {
    if (const auto amount = bank::amount_of(db_, item)) {
      bank::erase(db_, item);
      changes_[item] = gone;
      add(account, *amount);
    } else if (board_.inserts_left.fetch_sub(1) > 0) {
      if (!bank::put(db_, item, 5)) ++board_.faults;
      changes_[item] = 5;
      add(account, -5);
    }
  }

  void add(int account, long long difference) {
    const auto amount = bank::amount_of(db_, account);
    if (!amount) {
      ++board_.faults;
      return;
    }
    bank::set_amount(db_, account, *amount + difference);
    changes_[account] = *amount + difference;
  }

  Entry& write_down() {
    const long number = board_.written;
    Entry& entry = board_.entries[number % board_entries];
    entry.done = false;
    entry.pid = getpid();
    entry.count = 0;
    for (const auto& [id, amount] : changes_) entry.changes[entry.count++] = {id, amount};
    board_.written = number + 1;
    return entry;
  }

  ZtDbHandle db_;
  Board& board_;
  std::mt19937 random_;
  bank::Balances changes_;
};

// Sees everything at one moment, inside the writers' lock.
void audit(ZtDbHandle db, Board& board, std::mt19937& random) {
  ZtBeginTransaction(db);
  const bank::Balances seen = bank::walk(db, static_cast<int>(random() % bank::indexes), random() % 2 == 0);
  if (bank::total(seen) != base_accounts * opening_balance) ++board.faults;
  ZtCommitTransaction(db);
}

// Looks without a lock.
void read(ZtDbHandle db, Board& board, std::mt19937& random) {
  Row row(db);
  const int id = static_cast<int>(random() % base_accounts);
  if (!bank::find(db, id, row) || row.get<ZTINT8>(bank::f_id) != id || !bank::is_whole(row)) ++board.faults;
  if (random() % 64 == 0) bank::walk(db, static_cast<int>(random() % bank::indexes), random() % 2 == 0);
}

class Kill : public DatabaseTest {
 protected:
  void start(int role) {
    workers[static_cast<std::size_t>(role)] =
        std::make_unique<Child>([this, role, worker_seed = static_cast<unsigned>(random())](Gate& gate) {
          Database own = bank::open(directory, role == reader ? ZT_MODE_READ_ONLY : ZT_MODE_READ_WRITE);
          gate.tell('r');
          work(own, role, worker_seed);
          return 0;
        });
    ASSERT_TRUE(workers[static_cast<std::size_t>(role)]->wait_for('r'));
  }

  [[noreturn]] void work(ZtDbHandle own, int role, unsigned worker_seed) {
    std::mt19937 own_random(worker_seed);
    Writer writer(own, *board, worker_seed);
    for (;;) {
      if (role == reader) {
        read(own, *board, own_random);
      } else if (role == auditor) {
        audit(own, *board, own_random);
      } else {
        while (board->is_full()) sched_yield();
        writer.transact();
      }
      ++board->operations[static_cast<std::size_t>(role)];
    }
  }

  // Lets a random number of operations pass, and a random part of one.
  void wait_for_a_moment() {
    const long target = board->all_operations() + static_cast<long>(random() % 80);
    ASSERT_TRUE(eventually([&] { return board->all_operations() >= target; }));
    for (auto turns = random() % 20000; turns > 0; --turns) asm volatile("pause");
  }

  // What may be there: every change that was written down, but for those of the dead that do not say "done", which
  // may be there or not.
  std::vector<bank::Balances> possible(const std::vector<pid_t>& dead) {
    std::vector<bank::Balances> models = {model};
    for (long number = board->settled; number < board->written; ++number) {
      const Entry& entry = board->entries[number % board_entries];
      const bool open = !entry.done && std::find(dead.begin(), dead.end(), entry.pid) != dead.end();
      const std::size_t count = models.size();
      for (std::size_t i = 0; i < count; ++i) {
        if (open) models.push_back(models[i]);
        apply(entry, models[i]);
      }
    }
    return models;
  }

  // With every other writer kept out.
  void clear_and_check(ZtDbHandle db, const std::vector<pid_t>& dead) {
    ASSERT_TRUE(ZtClearDBWildTrans(db));
    ASSERT_TRUE(ZtLockPosition(db, 0));
    const bank::Balances found = bank::check_everything(db);
    const std::vector<bank::Balances> models = possible(dead);
    EXPECT_NE(std::find(models.begin(), models.end(), found), models.end())
        << ::testing::PrintToString(found) << " is not among " << ::testing::PrintToString(models);
    EXPECT_EQ(bank::total(found), base_accounts * opening_balance);
    EXPECT_EQ(board->faults, 0);
    model = found;
    board->settled = board->written.load();
    board->inserts_left = inserts_per_kill;
    ZtUnLockPosition(db, 0);
  }

  void expect_progress_but_of(int victim) {
    std::array<long, roles> before;
    std::copy(board->operations.begin(), board->operations.end(), before.begin());
    for (std::size_t role = 0; role < roles; ++role) {
      if (static_cast<int>(role) == victim) continue;
      EXPECT_TRUE(eventually([&] { return board->operations[role] != before[role] || board->is_full(); }))
          << "worker " << role << " does not go on";
    }
  }

  void kill_one(ZtDbHandle db) {
    const int victim = static_cast<int>(random() % roles);
    Child& child = *workers[static_cast<std::size_t>(victim)];
    wait_for_a_moment();
    child.kill();
    ASSERT_EQ(child.exit_status(), -SIGKILL);
    clear_and_check(db, {child.pid()});
    expect_progress_but_of(victim);
    start(victim);
  }

  void kill_all(ZtDbHandle db) {
    std::vector<pid_t> dead;
    wait_for_a_moment();
    for (const auto& worker : workers) ::kill(worker->pid(), SIGKILL);
    for (const auto& worker : workers) {
      dead.push_back(worker->pid());
      ASSERT_EQ(worker->exit_status(), -SIGKILL);
    }
    clear_and_check(db, dead);
    check_idle(db);
  }

  std::mt19937 random{announced_seed()};
  Shared<Board> board;
  bank::Balances model;
  std::array<std::unique_ptr<Child>, roles> workers;
};

TEST_F(Kill, WhatWasCommittedStaysAndEverybodyElseGoesOn) {
  const long wanted = setting("CACHET_KILLS", 500);
  for (long kills = 0; kills < wanted && !HasFailure(); kills += kills_per_database + roles) {
    SCOPED_TRACE("behind kill " + std::to_string(kills));
    model = opening_balances();
    Database db = bank::create(directory, model, 64 << 20);
    board->inserts_left = inserts_per_kill;
    for (int role = 0; role < roles; ++role) start(role);
    for (int i = 0; i < kills_per_database && !HasFailure(); ++i) kill_one(db);
    kill_all(db);
    for (auto& worker : workers) worker.reset();
  }
}

}  // namespace
}  // namespace cachet::test
