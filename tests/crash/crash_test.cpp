// A process is killed before each of its shared stores in turn, inside every operation; a survivor clears what it left;
// the database then holds every committed change and no other, and every tree, list and counter is right. The same again
// with the survivor killed before each of its own stores, and a second survivor.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "lock_page.h"
#include "support/bank.h"
#include "support/child_process.h"
#include "support/settings.h"
#include "support/shared.h"

namespace cachet {
extern long crash_countdown;
}

namespace cachet::test {
namespace {

using namespace bank;
using Model = Balances;

void check(ZtDbHandle db, const std::vector<Model>& allowed) {
  const Model found = check_everything(db);
  EXPECT_NE(std::find(allowed.begin(), allowed.end(), found), allowed.end())
      << ::testing::PrintToString(found);
  check_idle(db);
}

// What readers without a lock can see at this moment, also between two stores of somebody's: the amounts of the
// records that nobody marked in a table that nobody marked.
Model visible(ZtDbHandle db) {
  Model seen;
  Rb_base* const base = &db->base;
  const auto* const page = reinterpret_cast<const LockPage*>(db->lock.m_lockpage.m_p);
  if (base->table[accounts].duty != 0 || page->epoch % 2 != 0) return seen;
  const Rb_node head = db->database[accounts].listindex;
  for (Rb_node node = rb_first(base, head); node != head; node = rb_next(base, node)) {
    const auto* item = reinterpret_cast<const ZtListItem*>(rb_key(base, node));
    const auto* record = reinterpret_cast<const ZtRecord*>(address_of(base, FlatOffset{item->precord}));
    if (record->duty != 0 || record->deleted != 0) continue;
    seen[static_cast<int>(field_of<ZTINT8>(db, accounts, record, f_id))] =
        field_of<long long>(db, accounts, record, f_amount);
  }
  return seen;
}

// ---- killing ----

// Where the process that will die and a live one meet.
struct Meeting {
  std::atomic<bool> begin;     // the live process may take the lock
  std::atomic<bool> released;  // it need not wait for the other any longer
};

// Runs `work` in a process that is killed before its n-th shared store; false when it had fewer.
bool killed_at(const TempDirectory& directory, long n, int mode,
               const std::function<void(ZtDbHandle)>& work) {
  Child child([&](Gate&) {
    Database db = open(directory, mode);
    crash_countdown = n;
    work(db);
    crash_countdown = 0;
    return 0;
  });
  const int status = child.exit_status();
  EXPECT_TRUE(status == 0 || status == -SIGKILL) << status;
  return status == -SIGKILL;
}

// What a live process does meanwhile with a position of the lock.
enum class Companion { none, waits, holds };

struct Scenario {
  std::string name;
  std::function<void(ZtDbHandle)> work;
  std::vector<Model> allowed;  // what may be there afterwards
  std::function<void(ZtDbHandle)> prepare = {};
  bool in_transaction = true;  // outside of one, marks may stay until the next commit
  int mode = ZT_MODE_READ_WRITE;
  Companion companion = Companion::none;
  int position = 0;
};

const Model start = {{10, 1}, {20, 2}, {30, 3}, {40, 4}, {50, 5}, {60, 6}, {70, 7}};

Model with(const Model& changes, std::vector<int> gone = {}) {
  Model model = start;
  for (const auto& [id, amount] : changes) model[id] = amount;
  for (const int id : gone) model.erase(id);
  return model;
}

std::vector<Scenario> scenarios() {
  return {
      {"insert and commit",
       [](ZtDbHandle db) {
         ZtBeginTransaction(db);
         for (const int id : {15, 25, 5, 80, 33}) put(db, id, 9);
         ZtCommitTransaction(db);
       },
       {start, with({{15, 9}, {25, 9}, {5, 9}, {80, 9}, {33, 9}})}},
      {"update, delete, commit",
       [](ZtDbHandle db) {
         ZtBeginTransaction(db);
         set_amount(db, 10, 100);
         set_amount(db, 20, 200);
         erase(db, 30);
         ZtCommitTransaction(db);
       },
       {start, with({{10, 100}, {20, 200}}, {30})}},
      {"insert, update, delete, walk, roll back",
       [](ZtDbHandle db) {
         ZtBeginTransaction(db);
         put(db, 12, 9);
         set_amount(db, 20, 200);
         for (const int id : {30, 10, 60}) erase(db, id);
         walk(db, i_team, true);
         walk(db, i_id, false);
         put(db, 60, 9);
         ZtRollbackTransaction(db);
       },
       {start}},
      {"delete, walk, put again, commit",
       [](ZtDbHandle db) {
         ZtBeginTransaction(db);
         for (const int id : {40, 70}) erase(db, id);
         walk(db, i_team, false);
         walk(db, i_id, true);
         put(db, 70, 9);
         ZtCommitTransaction(db);
       },
       {start, with({{70, 9}}, {40})}},
      {"begin and end",
       [](ZtDbHandle db) {
         for (int i = 0; i < 2; ++i) {
           ZtBeginTransaction(db);
           ZtCommitTransaction(db);
         }
       },
       {start}},
      {"reset",
       [](ZtDbHandle db) {
         ZtBeginTransaction(db);
         ZtResetDb(db);
         ZtCommitTransaction(db);
       },
       {start, {}}},
      {"walk outside a transaction",
       [](ZtDbHandle db) {
         walk(db, i_team, true);
         walk(db, i_id, false);
         walk(db, i_name, true);
       },
       {with({}, {30, 40})},
       [](ZtDbHandle db) {
         ZtBeginTransaction(db);
         erase(db, 30);
         erase(db, 40);
         ZtCommitTransaction(db);
       }},
      {"put outside a transaction",
       [](ZtDbHandle db) {
         put(db, 15, 9);
         put(db, 80, 9);
       },
       {start, with({{15, 9}}), with({{15, 9}, {80, 9}})},
       {},
       false},
  };
}

// Every way into and out of both positions of the lock, beside a live process.
std::vector<Scenario> lock_scenarios() {
  const std::pair<const char*, int> levels[] = {{"a reader", ZT_MODE_READ_ONLY},
                                                {"a writer", ZT_MODE_READ_WRITE}};
  const std::pair<const char*, Companion> companions[] = {{"before a live waiter", Companion::waits},
                                                          {"behind a live holder", Companion::holds}};
  std::vector<Scenario> all;
  for (const auto& [level, mode] : levels) {
    for (const auto& [place, companion] : companions) {
      for (const int position : {0, 1}) {
        all.push_back({std::string(level) + ' ' + place + " of position " + std::to_string(position),
                       {},
                       {start},
                       {},
                       true,
                       mode,
                       companion,
                       position});
      }
    }
  }
  return all;
}

class Crash : public DatabaseTest {
 protected:
  // A database as it was at the start, in a place of its own memory.
  Database fresh(const Scenario& scenario) {
    Database creator = begin_create(directory);
    define(creator);
    finish_create(creator);
    ZtBeginTransaction(creator);
    for (const auto& [id, amount] : start) EXPECT_TRUE(put(creator, id, amount));
    ZtCommitTransaction(creator);
    if (scenario.prepare) scenario.prepare(creator);
    return creator;
  }

  // What a survivor's clearing has to leave, and that the database still serves.
  void clear_and_check(Database creator, const Scenario& scenario) {
    Database db = open(directory);
    creator.close();
    const Model seen = visible(db);
    ASSERT_TRUE(ZtClearDBWildTrans(db));
    const Model left = visible(db);
    for (const auto& [id, amount] : seen) {
      const auto place = left.find(id);
      if (place == left.end()) continue;
      EXPECT_EQ(place->second, amount) << "taken back after readers could see it, id " << id;
    }
    if (!scenario.in_transaction) {
      ZtBeginTransaction(db);
      put(db, 999, 1);
      ZtRollbackTransaction(db);
    }
    check(db, scenario.allowed);
    ZtBeginTransaction(db);
    put(db, 1000, 1);
    ZtRollbackTransaction(db);
    check(db, scenario.allowed);
  }

  // How many shared stores the operation has when nobody kills it.
  long stores_of(const Scenario& scenario) {
    constexpr long never = 1'000'000'000;
    Shared<long> count;
    Child child([&](Gate&) {
      Database db = open(directory, scenario.mode);
      crash_countdown = never;
      scenario.work(db);
      *count = never - crash_countdown;
      crash_countdown = 0;
      return 0;
    });
    EXPECT_EQ(child.exit_status(), 0);
    return *count;
  }

  // Kills the first cleaner behind the n-th death before its first store, its second, ..., until one completes.
  long kill_cleaners(const Scenario& scenario, long n) {
    for (long m = 1;; ++m) {
      SCOPED_TRACE("cleaner before its store " + std::to_string(m));
      Database creator = fresh(scenario);
      EXPECT_TRUE(killed_at(directory, n, scenario.mode, scenario.work));
      const bool cleaner_killed = killed_at(directory, m, ZT_MODE_READ_WRITE,
                                            [](ZtDbHandle db) { EXPECT_TRUE(ZtClearDBWildTrans(db)); });
      clear_and_check(std::move(creator), scenario);
      if (!cleaner_killed || HasFailure()) return m - 1;
    }
  }

  // A process takes a position and gives it back, and dies before its n-th store; a live one waits behind it, or makes
  // it wait. The live one must come through.
  bool killed_beside_companion(Database creator, const Scenario& scenario, long n) {
    Shared<Meeting> meeting;
    const int position = scenario.position;
    Child companion([&](Gate& gate) {
      Database db = open(directory);
      const bool holds = scenario.companion == Companion::holds;
      if (holds) ZtLockPosition(db, position);
      gate.tell('r');
      if (holds) {
        eventually([&] { return meeting->released || waiters(db, position) > 0; });
      } else {
        eventually([&] { return meeting->released || meeting->begin; });
        EXPECT_TRUE(ZtLockPosition(db, position));
      }
      ZtUnLock(db);
      return 0;
    });
    companion.wait_for('r');
    const bool killed = killed_at(directory, n, scenario.mode, [&](ZtDbHandle db) {
      ZtLockPosition(db, position);
      meeting->begin = true;
      const bool makes_it_wait =
          scenario.companion == Companion::waits && scenario.mode == ZT_MODE_READ_WRITE;
      if (makes_it_wait) eventually([&] { return waiters(db, position) > 0; });
      ZtUnLock(db);
    });
    meeting->released = true;
    Database db = open(directory);
    EXPECT_TRUE(ZtClearDBWildTrans(db));
    EXPECT_EQ(companion.exit_status(), 0);
    creator.close();
    EXPECT_TRUE(ZtClearDBWildTrans(db));
    check(db, scenario.allowed);
    return killed;
  }

  static int waiters(ZtDbHandle db, int position) {
    const SlotWords& words = reinterpret_cast<const LockPage*>(db->lock.m_lockpage.m_p)->slots[position];
    return load_acquire<std::int32_t>(&words.writers_waiting) +
           load_acquire<std::int32_t>(&words.readers_waiting);
  }

  static std::string trace(const Scenario& scenario, long n) {
    return scenario.name + ", before store " + std::to_string(n);
  }
};

TEST_F(Crash, EveryStoreOfEveryOperationCanBeTheLast) {
  for (const Scenario& scenario : scenarios()) {
    long kills = 0;
    for (bool killed = true; killed; ++kills) {
      SCOPED_TRACE(trace(scenario, kills + 1));
      Database creator = fresh(scenario);
      killed = killed_at(directory, kills + 1, scenario.mode, scenario.work);
      clear_and_check(std::move(creator), scenario);
      if (HasFailure()) return;
    }
    std::printf("%s: killed before each of %ld stores\n", scenario.name.c_str(), kills - 1);
  }
}

// The survivor dies as well, before each store of its clearing, and a second one clears. The first deaths are a sample:
// evenly spread, from a start that the seed gives. CACHET_SECOND_CRASHES is how many of them for each operation.
TEST_F(Crash, EveryStoreOfTheClearingCanBeTheLastToo) {
  const long sample = setting("CACHET_SECOND_CRASHES", 8);
  std::mt19937 random(announced_seed());
  for (const Scenario& scenario : scenarios()) {
    long stores = 0;
    {
      Database creator = fresh(scenario);
      stores = stores_of(scenario);
    }
    const long stride = std::max(stores / sample, 1L);
    long deaths = 0;
    for (long n = 1 + static_cast<long>(random() % static_cast<unsigned>(stride)); n <= stores; n += stride) {
      SCOPED_TRACE(trace(scenario, n));
      deaths += kill_cleaners(scenario, n);
      if (HasFailure()) return;
    }
    std::printf("%s: %ld cleaners killed\n", scenario.name.c_str(), deaths);
  }
}

TEST_F(Crash, NobodyIsLeftWaitingForADeadHolderOrWaiter) {
  for (const Scenario& scenario : lock_scenarios()) {
    long kills = 0;
    for (bool killed = true; killed; ++kills) {
      SCOPED_TRACE(trace(scenario, kills + 1));
      Database creator = fresh(scenario);
      killed = killed_beside_companion(std::move(creator), scenario, kills + 1);
      if (HasFailure()) return;
    }
    std::printf("%s: killed before each of %ld stores\n", scenario.name.c_str(), kills - 1);
  }
}

}  // namespace
}  // namespace cachet::test
