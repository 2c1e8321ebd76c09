#include "support/whole_check.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "lock_page.h"

namespace cachet::test {

namespace {

const ZtRecord* record_of(Rb_base* base, std::int64_t offset) {
  return reinterpret_cast<const ZtRecord*>(address_of(base, FlatOffset{offset}));
}

const ZtIndexNode* entry_of(Rb_base* base, std::uint32_t number) {
  return reinterpret_cast<const ZtIndexNode*>(address_of(base, NodeNumber{number}));
}

std::uint32_t parent_number(Rb_node node) {
  return load_acquire<std::uint32_t>(reinterpret_cast<const char*>(node) + 8);
}

bool is_red(Rb_node node) {
  return (status_of(node) & RB_RED) != 0;
}
bool is_root(Rb_node node) {
  return (status_of(node) & RB_ROOT) != 0;
}

// No red node under a red one, from the leaf up to the root.
void check_colours(Rb_base* base, Rb_node node) {
  while (!is_root(node)) {
    const Rb_node parent = node_at(base, parent_number(node));
    ASSERT_FALSE(is_red(node) && is_red(parent));
    node = parent;
  }
}

void check_tree(Rb_base* base, Rb_node head, Rb_compare compare, const std::function<void(Rb_node)>& each) {
  int black = 0;
  ASSERT_EQ(rb_next(base, rb_prev(base, head)), head);
  for (Rb_node node = rb_first(base, head); node != head; node = rb_next(base, node)) {
    ASSERT_EQ(rb_prev(base, rb_next(base, node)), node);
    if (black == 0) black = rb_nblack(base, node);
    ASSERT_EQ(rb_nblack(base, node), black);
    check_colours(base, node);
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

// Whether the record carries the key that the item was made from.
bool has_key(Rb_base* base, const ZtTable& table, const ZtIndexDescrible& index, const ZtIndexItem* item,
             const ZtRecord* record) {
  const char* const fields = address_of(base, FlatOffset{reinterpret_cast<std::int64_t>(item->index)});
  for (std::size_t i = 0; i < index.indexdescrible.size(); ++i) {
    ZtIndexField key;
    std::memcpy(&key, fields + i * sizeof key, sizeof key);
    const ZtDataField& field = table.fielddescrible[static_cast<std::size_t>(index.indexdescrible[i])];
    const char* const mine = record->data + field.offset;
    const char* const its = address_of(base, FlatOffset{reinterpret_cast<std::int64_t>(key.data)});
    const bool equal = field.type == FIELD_STRING ? std::strncmp(mine, its, field.length) == 0
                                                  : std::memcmp(mine, its, field.length) == 0;
    if (!equal) return false;
  }
  return true;
}

// One of a key's lists: whole in both directions, in the order in which the records were stored.
struct Links {
  std::uint32_t head, tail;
  std::uint32_t ZtIndexNode::*next;
  std::uint32_t ZtIndexNode::*prev;
};

void check_list(Rb_base* base, const Links& list, const std::function<void(const ZtRecord*)>& each) {
  std::uint32_t before = 0;
  ZTINT8 last_id = -1;
  for (std::uint32_t number = list.head; number != 0;) {
    const ZtIndexNode* const entry = entry_of(base, number);
    const ZtRecord* const record = record_of(base, entry->precord);
    ASSERT_EQ(entry->*list.prev, before);
    ASSERT_GT(record->recordid, last_id);
    last_id = record->recordid;
    each(record);
    before = number;
    number = entry->*list.next;
  }
  ASSERT_EQ(list.tail, before);
}

void add_live(LiveRecords& live, const ZtRecord* record) {
  if (record->deleted != 0) return;
  const bool is_new = live.emplace(record->recordid, record).second;
  EXPECT_TRUE(is_new) << "record " << record->recordid << " twice";
}

void check_key(Rb_base* base, const ZtTable& table, const ZtIndexDescrible& index, const ZtIndexItem* item,
               LiveRecords& live) {
  LiveRecords ever;
  check_list(base, {item->originhead, item->origintail, &ZtIndexNode::originnext, &ZtIndexNode::originprev},
             [&](const ZtRecord* record) { ever.emplace(record->recordid, record); });
  check_list(base, {item->curenthead, item->curenttail, &ZtIndexNode::curentnext, &ZtIndexNode::curentprev},
             [&](const ZtRecord* record) {
               EXPECT_TRUE(has_key(base, table, index, item, record)) << "record " << record->recordid;
               EXPECT_TRUE(ever.contains(record->recordid)) << "record " << record->recordid;
               add_live(live, record);
             });
}

}  // namespace

LiveRecords check_table(ZtDbHandle db, int tableid) {
  Rb_base* const base = &db->base;
  const ZtTable& table = db->database[static_cast<std::size_t>(tableid)];
  LiveRecords live;
  check_tree(base, table.listindex, ZtComp2, [&](Rb_node node) {
    const auto* item = reinterpret_cast<const ZtListItem*>(rb_key(base, node));
    const ZtRecord* const record = record_of(base, item->precord);
    EXPECT_EQ(record->recordid, item->recordid);
    add_live(live, record);
  });
  for (std::size_t id = 0; id < table.indexs.size(); ++id) {
    SCOPED_TRACE("index " + std::to_string(id));
    LiveRecords by_index;
    check_tree(base, table.indexs[id], ZtComp, [&](Rb_node node) {
      check_key(base, table, table.indexdescrible[id],
                reinterpret_cast<const ZtIndexItem*>(rb_key(base, node)), by_index);
    });
    EXPECT_EQ(by_index, live);
  }
  return live;
}

void check_unmarked(ZtDbHandle db, int tableid) {
  Rb_base* const base = &db->base;
  const Rb_node head = db->database[static_cast<std::size_t>(tableid)].listindex;
  for (Rb_node node = rb_first(base, head); node != head; node = rb_next(base, node)) {
    const auto* item = reinterpret_cast<const ZtListItem*>(rb_key(base, node));
    EXPECT_EQ(record_of(base, item->precord)->duty, 0) << "record " << item->recordid;
  }
  EXPECT_EQ(base->table[tableid].duty, 0);
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
