// Recovery for a handle that was not opened with it.
#include <csignal>

#include "cachetx.h"
#include "support/child_process.h"
#include "support/schema.h"
#include "support/whole_check.h"

namespace cachet::test {
namespace {

struct EnableRecovery : DatabaseTest {};

TEST_F(EnableRecovery, LetsASurvivorUndoWhatACreatorLeft) {
  Child creator([&](Gate& gate) {
    Database db = create_items(directory);
    EXPECT_TRUE(ZtxEnableRecovery(db));
    EXPECT_TRUE(ZtxEnableRecovery(db)) << "a second time";
    EXPECT_TRUE(commit_item(db, 1));
    gate.tell('c');
    gate.wait_for('g');
    ZtBeginTransaction(db);
    put_item(db, 2);
    Row row(db);
    EXPECT_TRUE(find_item(db, 1, row));
    ZtDeleteRecord(db, row);
    raise(SIGKILL);
    return 0;
  });
  ASSERT_TRUE(creator.wait_for('c'));
  Database survivor = open_items(directory);
  directory.note_objects();
  creator.tell('g');
  ASSERT_EQ(creator.exit_status(), -SIGKILL);
  ASSERT_TRUE(ZtClearDBWildTrans(survivor));
  EXPECT_EQ(check_table(survivor, items).size(), 1u);
  check_unmarked(survivor, items);
  check_idle(survivor);
  EXPECT_TRUE(commit_item(survivor, 2));
}

TEST_F(EnableRecovery, WaitsForTheEndOfATransaction) {
  Database db = create_items(directory);
  silence(db);
  ZtBeginTransaction(db);
  EXPECT_FALSE(ZtxEnableRecovery(db));
  EXPECT_EQ(last_error(db).code, ZT_ERR_GENERAL);
  ZtCommitTransaction(db);
  EXPECT_TRUE(ZtxEnableRecovery(db));
}

}  // namespace
}  // namespace cachet::test
