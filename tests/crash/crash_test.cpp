// A process is killed before each of its shared stores in turn, inside every operation; a survivor clears what it left;
// the database then holds every committed change and no other, and every tree, list and counter is right. The same again
// with the survivor killed before each of its own stores, and a second survivor.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <map>
#include <random>

#include "lock_page.h"
#include "support/schema.h"

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

// ---- the check of everything ----

ZtRecord* record_of(Rb_base* base, std::int64_t offset) {
  return reinterpret_cast<ZtRecord*>(address_of(base, FlatOffset{offset}));
}

template <class Key>
void check_tree(Rb_base* base, Rb_node head, Rb_compare compare, const Key& each) {
  int black = 0;
  for (Rb_node node = rb_first(base, head); node != head; node = rb_next(base, node)) {
    ASSERT_EQ(rb_prev(base, rb_next(base, node)), node);
    if (black == 0) black = rb_nblack(base, node);
    ASSERT_EQ(rb_nblack(base, node), black);
    const Rb_node next = rb_next(base, node);
    if (next != head) {
      ASSERT_LT(compare(base, rb_key(base, node), rb_key(base, next)), 0);
    }
    int found = 0;
    ASSERT_EQ(rb_find_gkey_n(base, head, rb_key(base, node), compare, &found), node);
    ASSERT_EQ(found, 1);
    each(node);
  }
}

// The live records under a key, from its current list, which has to be whole in both directions.
void collect_key(Rb_base* base, const ZtIndexItem* item, std::map<ZTINT8, ZtRecord*>& live) {
  std::uint32_t before = 0;
  ZTINT8 last_id = -1;
  for (std::uint32_t number = item->curenthead; number != 0;) {
    const auto* entry = reinterpret_cast<const ZtIndexNode*>(address_of(base, NodeNumber{number}));
    ZtRecord* const record = record_of(base, entry->precord);
    ASSERT_EQ(entry->curentprev, before);
    ASSERT_GT(record->recordid, last_id);
    last_id = record->recordid;
    if (record->deleted == 0) live[record->recordid] = record;
    before = number;
    number = entry->curentnext;
  }
  ASSERT_EQ(item->curenttail, before);
}

void check_idle(ZtDbHandle db) {
  const LockPage* const page = db->lock.RecoverablePage();
  ASSERT_NE(page, nullptr);
  for (const SlotWords& slot : page->slots) {
    EXPECT_EQ(slot.spin, 0);
    EXPECT_EQ(slot.writers_holding, 0);
    EXPECT_EQ(slot.writers_waiting, 0);
    EXPECT_EQ(slot.readers_holding, 0);
    EXPECT_EQ(slot.readers_waiting, 0);
  }
  EXPECT_EQ(page->epoch % 2, 0u);
  EXPECT_EQ(page->work.kind, 0);
  for (int type = 0; type < 4; ++type) {
    std::vector<TransInfo> sessions;
    db->lock.GetSessions(sessions, type);
    EXPECT_EQ(sessions.size(), 0u) << "type " << type;
  }
  EXPECT_EQ(db->base.table[items].duty, 0);
}

void check(ZtDbHandle db, const std::vector<Model>& allowed) {
  Rb_base* const base = &db->base;
  ZtTable& table = db->database[items];
  std::map<ZTINT8, ZtRecord*> by_list;
  check_tree(base, table.listindex, ZtComp2, [&](Rb_node node) {
    const auto* item = reinterpret_cast<const ZtListItem*>(rb_key(base, node));
    ZtRecord* const record = record_of(base, item->precord);
    ASSERT_EQ(record->recordid, item->recordid);
    ASSERT_EQ(record->duty, 0);
    if (record->deleted == 0) by_list[record->recordid] = record;
  });
  for (Rb_node head : table.indexs) {
    std::map<ZTINT8, ZtRecord*> by_index;
    check_tree(base, head, ZtComp, [&](Rb_node node) {
      collect_key(base, reinterpret_cast<const ZtIndexItem*>(rb_key(base, node)), by_index);
    });
    EXPECT_EQ(by_index, by_list);
  }
  Model found;
  for (const auto& [id, record] : by_list) {
    int key;
    double price;
    std::memcpy(&key, record->data + table.fielddescrible[item_id].offset, sizeof key);
    std::memcpy(&price, record->data + table.fielddescrible[item_price].offset, sizeof price);
    found[key] = price;
  }
  EXPECT_EQ(found.size(), by_list.size()) << "an id twice";
  EXPECT_NE(std::find(allowed.begin(), allowed.end(), found), allowed.end())
      << ::testing::PrintToString(found);
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
