// Index search. The tree search finds the largest key that is not above the searched one; the operators
// differ in which of its neighbours the walk begins and ends at.
#include "cache/find.h"

#include "cache/cursor.h"
#include "cache/error.h"
#include "cache/find_by_hint.h"
#include "cache/hinted_key.h"
#include "cache/index_search.h"
#include "cache/snapshot.h"

using namespace cachet;

namespace {

// Places `begin`, `point` and `end` for one operator. Tree order is falling: next = smaller, previous =
// larger.
class Placement {
 public:
  Placement(const Rb_base* base, Rb_node head, ZtConditionHandle condition, Rb_node node, bool found)
      : base_(base), condition_(condition), head_(head), node_(node), found_(found) {}

  bool run() {
    switch (condition_->op) {
      case ZT_OP_LESS:
        return up_to(found_ ? neighbour(base_, flink_of(node_)) : node_);
      case ZT_OP_LESS_EQUAL:
        return up_to(node_);
      case ZT_OP_EQUAL:
        return only();
      case ZT_OP_GREATER_EQUAL:
        return from(found_ ? node_ : larger());
      default:
        return from(larger());
    }
  }

 private:
  // The next larger key; the smallest when every key is larger than the searched one.
  Rb_node larger() const { return neighbour(base_, blink_of(node_)); }

  bool is_key(Rb_node node) const { return node != nullptr && node != head_; }

  bool up_to(Rb_node last) {
    const Rb_node smallest = neighbour(base_, blink_of(head_));
    if (!is_key(last) || !is_key(smallest)) return false;
    condition_->end = last;
    condition_->begin = condition_->point = smallest;
    return true;
  }

  bool only() {
    condition_->begin = node_;
    if (!found_) return false;
    condition_->end = condition_->point = node_;
    return true;
  }

  bool from(Rb_node first) {
    const Rb_node largest = neighbour(base_, flink_of(head_));
    if (!is_key(first) || !is_key(largest)) return false;
    condition_->begin = condition_->point = first;
    condition_->end = largest;
    return true;
  }

  const Rb_base* base_;
  ZtConditionHandle condition_;
  Rb_node head_;
  Rb_node node_;
  bool found_;
};

struct Outcome {
  bool found = false;
  Standing standing = Standing::unreadable;
};

// One search. `learnt` counts if no writer has touched the table meanwhile.
template <bool checked>
Outcome find(ZtDbHandle database, const ZtTable& table, ZtConditionHandle condition, LearntHint& learnt) {
  Rb_base* const base = &database->base;
  const auto indexid = static_cast<std::size_t>(condition->indexid);
  HintedKey hinted(base, table, indexid, &condition->indexitem);
  hinted.take_hint();
  bool found = true;
  Rb_node node = hinted.prove<checked>();
  if (node == nullptr) {
    const IndexPlace place = find_in_index(base, table, indexid, &condition->indexitem);
    node = place.node;
    found = place.found;
    if (found) learnt = hinted.learn(node);
  }
  if (!place_cursor(base, table.indexs[indexid], condition, node, found)) return {};
  return {true, stand_on_key<Forward>(database, condition)};
}

[[gnu::noinline]] bool search(ZtDbHandle database, int tableid, ZtConditionHandle condition, int op) {
  if (!accepts_search(database, tableid, condition, op)) return false;
  begin_search(tableid, condition, op);
  const ZtTable& table = database->database[static_cast<std::size_t>(tableid)];
  const auto find_in_table = checks_links(&database->base) ? find<true> : find<false>;
  LearntHint learnt;
  const Outcome outcome = read_table(database, tableid, [&] {
    learnt.table = nullptr;
    return find_in_table(database, table, condition, learnt);
  });
  learnt.keep();
  if (!outcome.found) return end_read(database, false);
  if (op != ZT_OP_EQUAL) expect_walk(database, condition);
  if (outcome.standing == Standing::empty_key) condition->nodepoint = nullptr;
  return end_read(database, settle<Forward>(database, condition, outcome.standing));
}

// By the hints of an index, or by the whole search. Each kind of key has its own, with nothing but its own in it.
template <signed char type>
[[gnu::noinline]] bool find_hinted(ZtDbHandle database, int tableid, ZtConditionHandle condition,
                                   HintedIndex index) {
  begin_search(tableid, condition, ZT_OP_EQUAL);
  return stand_by_hint<type, false>(database, index, condition) ||
         search(database, tableid, condition, ZT_OP_EQUAL);
}

template <signed char type>
[[gnu::noinline]] bool find_hinted_unchanged(ZtDbHandle database, int tableid, ZtConditionHandle condition,
                                             HintedIndex index) {
  if (!database->locks.empty()) return search(database, tableid, condition, ZT_OP_EQUAL);
  begin_search(tableid, condition, ZT_OP_EQUAL);
  const auto attempt = [&]() __attribute__((always_inline)) {
    return stand_by_hint<type, true>(database, index, condition);
  };
  return runs_unchanged(database, catalog_of(database, tableid), attempt) ||
         search(database, tableid, condition, ZT_OP_EQUAL);
}

}  // namespace

namespace cachet {

bool report_search(ZtDbHandle database, int tableid, const ZtCondition* condition, int op) {
  const ZtTable* const table = table_at(database, tableid);
  if (table == nullptr) return false;
  if (op < ZT_OP_LESS || op > ZT_OP_GREATER) {
    return report(database, ZT_ERR_BAD_OPERATOR, message::unsupported_operator, table->name);
  }
  if (!require_table(database, tableid, condition)) return false;
  if (!walks_index(condition))
    return report(database, ZT_ERR_GENERAL, message::bad_index, condition->indexid);
  return report(database, ZT_ERR_GENERAL, message::condition_overfull);
}

bool place_cursor(const Rb_base* base, Rb_node head, ZtConditionHandle condition, Rb_node node, bool found) {
  return Placement(base, head, condition, node, found).run();
}

}  // namespace cachet

bool ZtFindRecord(ZtDbHandle database, int tableid, ZtConditionHandle condition, int op) {
  if (op != ZT_OP_EQUAL || database->base.isolate) return search(database, tableid, condition, op);
  const HintedIndex index = hinted_index(database, tableid, condition);
  if (index.table == nullptr) return search(database, tableid, condition, op);
  const bool is_text = index.hints->keys.lone_type == FIELD_STRING;
  if (database->base.mode == ZT_MODE_READ_ONLY) {
    return is_text ? find_hinted_unchanged<FIELD_STRING>(database, tableid, condition, index)
                   : find_hinted_unchanged<FIELD_INT8>(database, tableid, condition, index);
  }
  return is_text ? find_hinted<FIELD_STRING>(database, tableid, condition, index)
                 : find_hinted<FIELD_INT8>(database, tableid, condition, index);
}
