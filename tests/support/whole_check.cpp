#include "support/whole_check.h"

#include <gtest/gtest.h>

#include <vector>

#include "inspect/raw_database.h"
#include "inspect/table_check.h"
#include "inspect/walk.h"
#include "lock_page.h"

namespace cachet::test {

namespace {

inspect::Table table_in(const Rb_base& view, int tableid) {
  return inspect::read_schema(view).tables.at(static_cast<std::size_t>(tableid));
}

// The library's own search comes to every key of a tree.
void check_searches(Rb_base* base, Rb_node head, Rb_compare compare) {
  for (Rb_node node = rb_first(base, head); node != head; node = rb_next(base, node)) {
    int found = 0;
    ASSERT_EQ(rb_find_gkey_n(base, head, rb_key(base, node), compare, &found), node);
    ASSERT_EQ(found, 1);
  }
}

}  // namespace

LiveRecords check_table(ZtDbHandle db, int tableid) {
  Rb_base* const base = &db->base;
  const auto view = inspect::checked_view(*base);
  inspect::Findings findings;
  LiveRecords live;
  for (const auto& [id, offset] : inspect::check_table(view.get(), table_in(*view, tableid), findings)) {
    live[id] = reinterpret_cast<const ZtRecord*>(address_of(base, FlatOffset{offset}));
  }
  for (const inspect::Finding& each : findings.list()) ADD_FAILURE() << each.where << ": " << each.what;
  if (findings.count() != 0) return live;
  const ZtTable& table = db->database[static_cast<std::size_t>(tableid)];
  check_searches(base, table.listindex, ZtComp2);
  for (const Rb_node head : table.indexs) check_searches(base, head, ZtComp);
  return live;
}

void check_unmarked(ZtDbHandle db, int tableid) {
  const auto view = inspect::checked_view(db->base);
  EXPECT_EQ(inspect::count_records(view.get(), table_in(*view, tableid)).marked, 0);
  EXPECT_EQ(db->base.table[tableid].duty, 0);
}

void check_idle(ZtDbHandle db) {
  const auto& page = *reinterpret_cast<const LockPage*>(db->lock.m_lockpage.m_p);
  EXPECT_TRUE(is_recoverable(page));
  for (const SlotWords& slot : page.slots) {
    EXPECT_EQ(slot.spin, 0);
    EXPECT_EQ(slot.writers_holding, 0);
    EXPECT_EQ(slot.writers_waiting, 0);
    EXPECT_EQ(slot.readers_holding, 0);
    EXPECT_EQ(slot.readers_waiting, 0);
  }
  EXPECT_EQ(page.epoch % 2, 0u);
  EXPECT_EQ(page.work.kind, 0);
  EXPECT_EQ(page.work.owner, 0u);
  for (int type = 0; type < 4; ++type) {
    std::vector<TransInfo> sessions;
    db->lock.GetSessions(sessions, type);
    EXPECT_EQ(sessions.size(), 0u) << "type " << type;
  }
}

}  // namespace cachet::test
