// A process is killed before each of its shared stores in turn, inside every operation; a survivor clears what it left;
// the database then holds every committed change and no other, and every tree, list and counter is right. The same again
// with the survivor killed before each of its own stores, and a second survivor.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <map>
#include <vector>

#include "lock_page.h"
#include "support/schema.h"
#include "support/whole_check.h"

namespace cachet {
extern long crash_countdown;
}

namespace cachet::test {
namespace {

using Model = std::map<int, double>;  // price by id; the team is id % 3, the name has the id

void put(ZtDbHandle db, int id, double price) {
  ZtRecordHandle row;
  ZtCreateRecord(&row);
  ZtNewRecord(db, items, row);
  char name[name_bytes] = {};
  std::snprintf(name, sizeof name, "item %07d", id);
  const int team = id % 3;
  ZtSetField(db, row, item_id, &id);
  ZtSetField(db, row, item_name, name);
  ZtSetField(db, row, item_team, &team);
  ZtSetField(db, row, item_price, &price);
  ASSERT_TRUE(ZtPutRecord(db, row));
  ZtCloseRecord(db, row);
}

// Calls `act` with a row handle that stands on the item.
void with_item(ZtDbHandle db, int id, const std::function<void(ZtRecordHandle)>& act) {
  ZtConditionHandle condition;
  ZtRecordHandle row;
  ZtCreateCondition(1, &condition);
  ZtCreateRecord(&row);
  ZtSetConditionIndex(condition, by_id);
  ZtAddConditionIndexItem(condition, FIELD_INT, 4, &id);
  if (ZtFindRecord(db, items, condition, ZT_OP_EQUAL) && ZtGetRecord(db, condition, row)) act(row);
  ZtCloseRecord(db, row);
  ZtCloseCondition(condition);
}

void set_price(ZtDbHandle db, int id, double price) {
  with_item(db, id, [&](ZtRecordHandle row) { ZtSetField(db, row, item_price, &price); });
}

void erase(ZtDbHandle db, int id) {
  with_item(db, id, [&](ZtRecordHandle row) { ZtDeleteRecord(db, row); });
}

// Walks an index from end to end, which unlinks deleted records.
void walk(ZtDbHandle db, int index, bool forward) {
  ZtConditionHandle condition;
  ZtCreateCondition(1, &condition);
  ZtSetConditionIndex(condition, index);
  bool more = ZtListRecord(db, items, condition);
  while (more && forward) more = ZtNextRecord(db, condition);
  if (!forward) more = ZtLastRecord(db, condition);
  while (more && !forward) more = ZtPrevRecord(db, condition);
  ZtCloseCondition(condition);
}

void check(ZtDbHandle db, const std::vector<Model>& allowed) {
  const LiveRecords live = check_table(db, items);
  Model found;
  for (const auto& [recordid, record] : live) {
    found[field_of<int>(db, items, record, item_id)] = field_of<double>(db, items, record, item_price);
  }
  EXPECT_EQ(found.size(), live.size()) << "an id twice";
  EXPECT_NE(std::find(allowed.begin(), allowed.end(), found), allowed.end())
      << ::testing::PrintToString(found);
  check_unmarked(db, items);
  check_idle(db);
}

// ---- killing ----

Database open_tracked(TempDirectory& directory) {
  Database db;
  EXPECT_TRUE(ZtOpenDb(db.out(), directory.path().c_str(), "d", version_text, 2, 0, false, 0, 1, 1));
  ZtLoadDbInfo(db);
  ZtLoadDb(db);
  ZtUnLockDb(db);
  return db;
}

// Runs `work` in a process that is killed before its n-th shared store; false when it had fewer.
bool killed_at(TempDirectory& directory, long n, const std::function<void(ZtDbHandle)>& work) {
  const pid_t pid = fork();
  if (pid == 0) {
    Database db = open_tracked(directory);
    crash_countdown = n;
    work(db);
    crash_countdown = 0;
    db.close();
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFSIGNALED(status)) {
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    return true;
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
  return false;
}

struct Scenario {
  const char* name;
  std::function<void(ZtDbHandle)> work;
  std::vector<Model> allowed;  // what may be there afterwards
};

const Model start = {{10, 1.0}, {20, 2.0}, {30, 3.0}, {40, 4.0}, {50, 5.0}, {60, 6.0}, {70, 7.0}};

Model with(std::map<int, double> changes, std::vector<int> gone = {}) {
  Model model = start;
  for (const auto& [id, price] : changes) model[id] = price;
  for (const int id : gone) model.erase(id);
  return model;
}

std::vector<Scenario> scenarios() {
  return {
      {"insert and commit",
       [](ZtDbHandle db) {
         ZtBeginTransaction(db);
         for (const int id : {15, 25, 5, 80, 33}) put(db, id, 9.0);
         ZtCommitTransaction(db);
       },
       {start, with({{15, 9}, {25, 9}, {5, 9}, {80, 9}, {33, 9}})}},
      {"update, delete, commit",
       [](ZtDbHandle db) {
         ZtBeginTransaction(db);
         set_price(db, 10, 0.5);
         set_price(db, 20, 2.5);
         erase(db, 30);
         ZtCommitTransaction(db);
       },
       {start, with({{10, 0.5}, {20, 2.5}}, {30})}},
      {"insert, update, delete, walk, roll back",
       [](ZtDbHandle db) {
         ZtBeginTransaction(db);
         put(db, 12, 9.0);
         set_price(db, 20, 2.5);
         for (const int id : {30, 10, 60}) erase(db, id);
         walk(db, by_team, true);
         walk(db, by_id, false);
         put(db, 60, 9.0);
         ZtRollbackTransaction(db);
       },
       {start}},
      {"delete, walk, put again, commit",
       [](ZtDbHandle db) {
         ZtBeginTransaction(db);
         for (const int id : {40, 70}) erase(db, id);
         walk(db, by_team, false);
         walk(db, by_id, true);
         put(db, 70, 9.0);
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
  };
}

class Crash : public DatabaseTest {
 protected:
  Database survivor() { return open_tracked(directory); }

  // A database as it was at the start, in a place of its own memory.
  Database fresh() {
    Database creator = begin_create(directory);
    define_items(creator);
    ZtSaveDbInfo(creator);
    ZtLoadDb(creator);
    ZtUnLockDb(creator);
    ZtBeginTransaction(creator);
    for (const auto& [id, price] : start) put(creator, id, price);
    ZtCommitTransaction(creator);
    return creator;
  }
};

TEST_F(Crash, EveryStoreOfEveryOperationCanBeTheLast) {
  for (const Scenario& scenario : scenarios()) {
    long kills = 0;
    for (bool killed = true; killed; ++kills) {
      SCOPED_TRACE(std::string(scenario.name) + ", before store " + std::to_string(kills + 1));
      Database creator = fresh();
      killed = killed_at(directory, kills + 1, scenario.work);
      {
        Database db = survivor();
        creator.close();
        ASSERT_TRUE(ZtClearDBWildTrans(db));
        check(db, scenario.allowed);
        ZtBeginTransaction(db);
        put(db, 1000, 1.0);
        ZtRollbackTransaction(db);
        check(db, scenario.allowed);
      }
      if (HasFailure()) return;
    }
    std::printf("%s: killed before each of %ld stores\n", scenario.name, kills - 1);
  }
}

}  // namespace
}  // namespace cachet::test
