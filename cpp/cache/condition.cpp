// Conditions: a key in process memory, owned field by field, and the cursor that a search leaves in them. A key that
// is filled anew takes the blocks of the one before, so that searches in a row allocate nothing.
#include <cstdlib>
#include <cstring>

#include "accelerate/prefetch.h"
#include "base/copy_bytes.h"
#include "base/fatal.h"
#include "cache/key_hash.h"
#include "caches.h"

using namespace cachet;

namespace {

// Zeros behind every value, so that a comparison of a wider type, or of a text, finds an end.
constexpr std::size_t padding_bytes = 8;
constexpr int longest_value = 65535;
constexpr int number_bytes = sizeof(std::int64_t);

bool has_room(const ZtIndexItem& key, int len, const void* value) {
  return key.point < key.count && len >= 0 && len <= longest_value && (len == 0 || value != nullptr);
}

// The sooner the better: whoever sets a key searches for it next. `given` is the caller's value, which has no room behind
// its end: a text is left to the search when its last word is not whole.
template <signed char type>
[[gnu::always_inline]] inline void ask_for_hint(ExpectedHint& expected, const void* given, int len) {
  if (type == FIELD_STRING && static_cast<std::size_t>(len) % sizeof(std::uint64_t) != 0) return;
  char* const bytes = static_cast<char*>(const_cast<void*>(given));
  expected.key = exact_lone_key<type>({bytes, type, 0, static_cast<short>(len)});
  prefetch(expected.line_of(expected.key.hash));
  expected.has_key = true;
}

[[gnu::always_inline]] inline void note_value(ZtConditionHandle condition, int type, int len, char* value) {
  ZtIndexItem& key = condition->indexitem;
  key.index[key.point++] = {value, static_cast<signed char>(type), 0, static_cast<short>(len)};
  std::memset(value + len, 0, padding_bytes);
}

// The most frequent key in one straight piece: a number of eight bytes that is the whole of a key for which there may be a
// hint. False, and nothing is done, for any other.
[[gnu::always_inline]] inline bool add_hinted_number(ZtConditionHandle condition, int type, int len,
                                                     const void* value) {
  const ZtIndexItem& key = condition->indexitem;
  if (type != FIELD_INT8 || condition->expected.lone_type != FIELD_INT8 || len != number_bytes) return false;
  if (key.point != 0 || key.count <= 0 || value == nullptr) return false;
  const ValueBlock& block = condition->blocks[0];
  if (block.bytes < number_bytes + padding_bytes) return false;
  ask_for_hint<FIELD_INT8>(condition->expected, value, number_bytes);
  std::memcpy(block.data, value, number_bytes);
  note_value(condition, FIELD_INT8, number_bytes, block.data);
  return true;
}

// A value that takes a larger block, or a long copy. Apart, so that the common way saves no registers.
[[gnu::noinline]] void add_long_value(ZtConditionHandle condition, int type, int len, const void* value) {
  ValueBlock& block = condition->blocks[condition->indexitem.point];
  const auto length = static_cast<std::size_t>(len);
  if (block.bytes < length + padding_bytes) {
    std::free(block.data);
    block.bytes = length + padding_bytes;
    block.data = static_cast<char*>(std::malloc(block.bytes));
    if (block.data == nullptr) fatal::out_of_heap(fatal::condition_key_line);
  }
  if (length != 0) std::memcpy(block.data, value, length);
  note_value(condition, type, len, block.data);
}

[[gnu::noinline]] void add_value(ZtConditionHandle condition, int type, int len, const void* value) {
  ZtIndexItem& key = condition->indexitem;
  if (!has_room(key, len, value)) {
    condition->overfull = true;
    return;
  }
  if (key.point == 0 && type == FIELD_STRING && type == condition->expected.lone_type)
    ask_for_hint<FIELD_STRING>(condition->expected, value, len);
  const auto length = static_cast<std::size_t>(len);
  const ValueBlock& block = condition->blocks[key.point];
  if (!is_short_copy(length) || block.bytes < length + padding_bytes)
    return add_long_value(condition, type, len, value);
  copy_short(block.data, static_cast<const char*>(value), length);
  note_value(condition, type, len, block.data);
}

}  // namespace

void ZtCreateCondition(int fieldcount, ZtConditionHandle* condition) {
  auto* const made = new ZtCondition;
  ZtIndexItem& key = made->indexitem;
  key.count = static_cast<signed char>(fieldcount);
  if (key.count >= 1) {
    key.index = new ZtIndexField[static_cast<std::size_t>(key.count)]{};
    made->blocks = new ValueBlock[static_cast<std::size_t>(key.count)];
  }
  *condition = made;
}

void ZtCloseCondition(ZtConditionHandle condition) {
  if (condition == nullptr) return;
  for (int i = 0; i < condition->indexitem.count; ++i) std::free(condition->blocks[i].data);
  delete[] condition->blocks;
  delete[] condition->indexitem.index;
  delete condition;
}

void ZtSetConditionIndex(ZtConditionHandle condition, int index) {
  condition->indexitem.point = 0;
  condition->overfull = false;
  condition->indexid = index;
  condition->expected.has_key = false;
}

void ZtAddConditionIndexItem(ZtConditionHandle condition, int type, int len, const void* value) {
  if (!add_hinted_number(condition, type, len, value)) add_value(condition, type, len, value);
}

// `nodepoint` is left out: the copy goes on from the key, not from the record within it.
void ZtDupCondition(ZtConditionHandle source, ZtConditionHandle destination) {
  if (source == destination) return;
  ZtSetConditionIndex(destination, source->indexid);
  const ZtIndexItem& key = source->indexitem;
  for (int i = 0; i < key.point; ++i) {
    const ZtIndexField& field = key.index[i];
    ZtAddConditionIndexItem(destination, field.type, static_cast<unsigned short>(field.length), field.data);
  }
  destination->overfull = destination->overfull || source->overfull;
  destination->begin = source->begin;
  destination->end = source->end;
  destination->op = source->op;
  destination->point = source->point;
  destination->precord = source->precord;
  destination->tableid = source->tableid;
}
