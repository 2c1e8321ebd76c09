// A condition that is filled again and again: the values are its own, end in zeros, so that a key of another width than
// its index's is compared without reading past it, and take no new memory.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "caches.h"

namespace cachet::test {
namespace {

constexpr int fields = 3;

// By value: the record is packed.
const char* value_of_field(ZtConditionHandle condition, int i) {
  return condition->indexitem.index[i].data;
}

// Fills the key with values of the given length, and expects to find them there.
void fill(ZtConditionHandle condition, std::mt19937& random, int length) {
  std::string values[fields];
  ZtSetConditionIndex(condition, 0);
  for (std::string& value : values) {
    for (int i = 0; i < length; ++i) value.push_back(static_cast<char>(random()));
    ZtAddConditionIndexItem(condition, FIELD_STRING, length, value.data());
  }
  ASSERT_EQ(condition->indexitem.point, fields);
  for (int i = 0; i < fields; ++i) {
    const ZtIndexField& field = condition->indexitem.index[i];
    ASSERT_EQ(static_cast<unsigned short>(field.length), length);
    const std::string with_end = values[i] + std::string(8, '\0');
    ASSERT_EQ(std::string(field.data, with_end.size()), with_end);
  }
}

TEST(Condition, TakesNoNewMemoryForKeysThatAreNoLongerThanBefore) {
  std::mt19937 random(5);
  ZtConditionHandle condition;
  ZtCreateCondition(fields, &condition);
  for (const int longest : {0, 1, 40, 65535}) {
    fill(condition, random, longest);
    const char* blocks[fields];
    for (int i = 0; i < fields; ++i) blocks[i] = value_of_field(condition, i);
    for (int round = 0; round < 50; ++round) {
      fill(condition, random, static_cast<int>(random() % static_cast<unsigned>(longest + 1)));
      for (int i = 0; i < fields; ++i) ASSERT_EQ(value_of_field(condition, i), blocks[i]);
    }
  }
  ZtCloseCondition(condition);
}

}  // namespace
}  // namespace cachet::test
