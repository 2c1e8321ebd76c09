// The order-preserving bytes of keys, against the comparison they stand in for.
#include "accelerate/key_bytes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "support/schema.h"

namespace cachet::test {
namespace {

// A key of up to four fields, of types and values that are likely to be near each other.
class RandomKey {
 public:
  RandomKey(std::mt19937& random, const std::vector<int>& types) : random_(random) {
    values_.reserve(types.size());
    for (const int type : types) {
      std::string& value = values_.emplace_back(value_of(type));
      fields_.push_back({value.data(), static_cast<signed char>(type), 0, static_cast<short>(value.size())});
    }
    item_.index = fields_.data();
    item_.point = item_.count = static_cast<signed char>(fields_.size());
  }
  RandomKey(const RandomKey&) = delete;
  RandomKey& operator=(const RandomKey&) = delete;

  ZtIndexItem* item() { return &item_; }
  KeyBytes bytes() const {
    KeyBytes bytes;
    bool whole = true;
    for (std::size_t i = 0; whole && i < values_.size(); ++i) {
      whole = bytes.append(fields_[i].type, values_[i].data(), values_[i].size());
    }
    bytes.finish(whole);
    return bytes;
  }

 private:
  std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
  template <class T>
  static std::string stored(T value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
  }

  double some_double() {
    const double special[] = {0.0,
                              -0.0,
                              NAN,
                              -NAN,
                              INFINITY,
                              -INFINITY,
                              5e-324,
                              -5e-324,
                              2.2250738585072014e-308,
                              -2.2250738585072014e-308,
                              1e-310,
                              1.0,
                              -1.0,
                              1.7976931348623157e308};
    if (below(2) == 0) return special[below(std::size(special))];
    return (static_cast<double>(below(7)) - 3) / static_cast<double>(1 + below(4));
  }

  std::string some_text() {
    std::string text = below(3) == 0 ? std::string(below(64), 'n') : "na";
    for (std::uint64_t left = below(5); left > 0; --left) text += "a\xff\x01z"[below(4)];
    if (below(8) != 0) text += '\0';
    if (below(4) == 0) text += "rubbish";
    return text;
  }

  std::string value_of(int type) {
    const std::int64_t near_zero = static_cast<std::int64_t>(below(5)) - 2;
    const std::int64_t number = below(2) == 0 ? near_zero : near_zero << below(64);
    std::string value;
    switch (type) {
      case FIELD_SHORT:
      case FIELD_USHORT:
        value = stored(static_cast<std::int16_t>(number));
        break;
      case FIELD_INT:
      case FIELD_UINT:
        value = stored(static_cast<std::int32_t>(number));
        break;
      case FIELD_DOUBLE:
        value = stored(some_double());
        break;
      case FIELD_INT8:
        value = stored(number);
        break;
      case FIELD_STRING:
        return some_text();
      default:
        value = stored(static_cast<std::int8_t>(number));
    }
    const std::uint64_t length = below(16);
    if (length < value.size()) value.resize(length);  // a slot narrower than its type
    return value;
  }

  std::mt19937& random_;
  std::vector<std::string> values_;
  std::vector<ZtIndexField> fields_;
  ZtIndexItem item_{};
};

// The order the bytes tell; `undecided` where they leave it to the comparison.
constexpr int undecided = 7;
int order_by_bytes(const KeyBytes& searched, const KeyBytes& stored) {
  const unsigned at = searched.mismatch(stored);
  if (at < searched.size() && at < stored.size()) return searched[at] < stored[at] ? 1 : -1;
  return at == searched.size() && searched.is_whole() ? 0 : undecided;
}

TEST(KeyBytes, OrderAsTheComparisonDoes) {
  std::mt19937 random(3);
  Rb_base base;
  std::size_t decided = 0;
  constexpr std::size_t pairs = 400'000;
  for (std::size_t pair = 0; pair < pairs; ++pair) {
    std::vector<int> types(1 + random() % 3);
    for (int& type : types) type = static_cast<int>(random() % 11);
    const std::vector<int> searched_types(types.begin(),
                                          types.end() - static_cast<long>(random() % types.size()));
    RandomKey searched(random, searched_types);
    RandomKey stored(random, types);
    const int order = order_by_bytes(searched.bytes(), stored.bytes());
    if (order == undecided) continue;
    ++decided;
    const int expected = ZtComp(&base, searched.item(), stored.item());
    ASSERT_EQ((order > 0) - (order < 0), (expected > 0) - (expected < 0)) << "pair " << pair;
  }
  EXPECT_GT(decided, pairs / 2);
}

// What the bytes of NaN, of a number that does not fill its type, or behind an open text would say is not asked for.
TEST(KeyBytes, EndBeforeWhatDoesNotOrderByItsBytes) {
  const double nan = NAN, subnormal = 1e-310, infinity = INFINITY;
  const struct {
    int type;
    const void* data;
    std::size_t length;
    bool goes_on;
    unsigned size;
  } cases[] = {{FIELD_DOUBLE, &nan, 8, false, 0},
               {FIELD_DOUBLE, &subnormal, 8, false, 0},
               {FIELD_DOUBLE, &infinity, 8, true, 8},
               {FIELD_DOUBLE, &infinity, 7, false, 0},
               {FIELD_INT, "abcd", 3, false, 0},
               {FIELD_INT, "abcdefgh", 8, true, 4},
               {FIELD_STRING, "abc", 4, true, 4},
               {FIELD_STRING, "abc", 3, false, 3},
               {FIELD_STRING, "", 0, false, 0},
               {0, "abc", 3, true, 0},
               {10, "abc", 3, true, 0}};
  for (const auto& each : cases) {
    KeyBytes bytes;
    EXPECT_EQ(bytes.append(each.type, static_cast<const char*>(each.data), each.length), each.goes_on)
        << each.type;
    bytes.finish(each.goes_on);
    EXPECT_EQ(bytes.size(), each.size) << each.type << ", " << each.length;
  }
}

}  // namespace
}  // namespace cachet::test
