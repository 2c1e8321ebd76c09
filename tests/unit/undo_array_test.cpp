// The array of before-images against a map, over many transactions of very different sizes.
#include "undo_array.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace cachet::test {
namespace {

struct Image {
  std::string bytes;
  int tableid;
};
using Model = std::map<char*, Image>;  // by the address of the record: the order of restoring

void expect_holds(UndoArray& undo, const Model& model) {
  ASSERT_EQ(undo.empty(), model.empty());
  const auto& entries = undo.in_order();
  ASSERT_EQ(entries.size(), model.size());
  auto expected = model.begin();
  for (const UndoArray::Entry& entry : entries) {
    ASSERT_EQ(entry.record, expected->first);
    ASSERT_EQ(entry.tableid, expected->second.tableid);
    ASSERT_EQ(std::string(entry.image, static_cast<std::size_t>(entry.length)), expected->second.bytes);
    ++expected;
  }
}

enum Way { rising, falling, shuffled };

// The places of records in the order in which a transaction first touches them.
std::vector<std::size_t> places_in(Way way, std::size_t count, std::size_t step, std::mt19937& random) {
  std::vector<std::size_t> places(count);
  for (std::size_t i = 0; i < count; ++i) places[i] = (way == falling ? count - 1 - i : i) * step;
  if (way == shuffled) std::shuffle(places.begin(), places.end(), random);
  return places;
}

TEST(UndoArray, KeepsTheFirstImageOfEveryRecordAndGivesThemByAddress) {
  std::mt19937 random(7);
  UndoArray undo;
  for (const std::size_t count :
       std::initializer_list<std::size_t>{0, 1, 2, 3, 31, 32, 33, 1000, 30000, 5, 1, 4096, 100}) {
    for (const Way way : {rising, falling, shuffled}) {
      SCOPED_TRACE(std::to_string(count) + " records, way " + std::to_string(way));
      const std::size_t step =
          1 + random() % 64;  // also records at odd addresses, and closer than a hash's grain
      std::vector<char> memory(count * step + 100000);
      Model model;
      for (const std::size_t place : places_in(way, count, step, random)) {
        char* const record = memory.data() + place;
        const int length = random() % 500 == 0 ? 100000 : static_cast<int>(step);
        const int tableid = static_cast<int>(random() % 5);
        undo.keep(record, length, tableid);
        model.emplace(record, Image{std::string(record, static_cast<std::size_t>(length)), tableid});
        *record = static_cast<char>(random());  // the change; a later one is not an image's business
        const auto again =
            std::next(model.begin(), static_cast<long>(random() % std::min<std::size_t>(model.size(), 9)));
        undo.keep(again->first, static_cast<int>(again->second.bytes.size()), 99);
      }
      expect_holds(undo, model);
      for (const auto& [record, image] : model) undo.keep(record, 1, 99);
      expect_holds(undo, model);
      undo.clear();
      expect_holds(undo, {});
    }
  }
}

TEST(AddressSet, TakesBackTheLatestOneAlone) {
  std::mt19937 random(8);
  std::vector<char> memory(1 << 16);
  AddressSet set;
  for (int round = 0; round < 20; ++round) {
    std::map<char*, bool> inserted;
    for (int i = 0; i < 3000; ++i) {
      char* const address = memory.data() + random() % memory.size();
      const bool is_new = inserted.emplace(address, true).second;
      ASSERT_EQ(set.insert(address), is_new);
      if (is_new && random() % 3 == 0) {
        set.erase_latest(address);
        inserted.erase(address);
      }
    }
    for (const auto& [address, here] : inserted) ASSERT_FALSE(set.insert(address));
    set.clear();
  }
}

}  // namespace
}  // namespace cachet::test
