// The two comparators and the rounding of doubles: pure functions that every index and every stored price
// hang on.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "support/keys.h"

namespace {

using cachet::test::Key;

int Compare(Key& a, Key& b) {
  Rb_base base;
  return ZtComp(&base, a.item(), b.item());
}

// `low` orders before `high`, so that the comparison is positive one way and negative the other.
void ExpectOrdered(Key low, Key high, const char* what) {
  EXPECT_GT(Compare(low, high), 0) << what;
  EXPECT_LT(Compare(high, low), 0) << what;
  EXPECT_EQ(Compare(low, low), 0) << what;
  EXPECT_EQ(Compare(high, high), 0) << what;
}

TEST(CompareKeys, IsPositiveWhenTheFirstKeyOrdersBeforeTheSecond) {
  ExpectOrdered(Key(FIELD_SHORT, short{-1}), Key(FIELD_SHORT, short{1}), "short");
  ExpectOrdered(Key(FIELD_SHORT, short{-32768}), Key(FIELD_SHORT, short{32767}), "short limits");
  ExpectOrdered(Key(FIELD_INT, -256), Key(FIELD_INT, 1), "int");
  ExpectOrdered(Key(FIELD_INT, std::numeric_limits<int>::min()),
                Key(FIELD_INT, std::numeric_limits<int>::max()), "int limits, whose difference overflows");
  ExpectOrdered(Key(FIELD_CHAR, '\x80'), Key(FIELD_CHAR, '\x7f'), "char is signed");
  ExpectOrdered(Key(FIELD_USHORT, std::uint16_t{1}), Key(FIELD_USHORT, std::uint16_t{0xffff}), "ushort");
  ExpectOrdered(Key(FIELD_UINT, 1u), Key(FIELD_UINT, 0xffffffffu), "uint");
  ExpectOrdered(Key(FIELD_UCHAR, '\x7f'), Key(FIELD_UCHAR, '\x80'), "uchar is unsigned");
  ExpectOrdered(Key(FIELD_STRING, "AB"), Key(FIELD_STRING, "ABA"), "a text before its extension");
  ExpectOrdered(Key(FIELD_STRING, "Z"), Key(FIELD_STRING, "\xb0\xa1"), "bytes of a text are unsigned");
  ExpectOrdered(Key(FIELD_DOUBLE, -1.5), Key(FIELD_DOUBLE, -1.25), "double");
  ExpectOrdered(Key(FIELD_INT8, 0xffffffffLL), Key(FIELD_INT8, 0x100000000LL), "int8 beyond 32 bits");
}

TEST(CompareKeys, OrdersNotANumberBehindFromBothSides) {
  Key number(FIELD_DOUBLE, 1.0), nan(FIELD_DOUBLE, std::nan(""));
  EXPECT_EQ(Compare(number, nan), -1);
  EXPECT_EQ(Compare(nan, number), -1);
  EXPECT_EQ(Compare(nan, nan), -1);
}

TEST(CompareKeys, ComparesTheFieldsOfTheFirstKeyByItsTypes) {
  Key none, prefix(FIELD_INT, 7), full(FIELD_INT, 7), smaller_tail(FIELD_INT, 7);
  full.then(FIELD_INT, 9);
  smaller_tail.then(FIELD_INT, 8);
  EXPECT_EQ(Compare(none, full), 0);
  EXPECT_EQ(Compare(prefix, full), 0);
  EXPECT_GT(Compare(smaller_tail, full), 0);
  Key as_signed(FIELD_INT, -1), as_unsigned(FIELD_UINT, 1u);
  EXPECT_GT(Compare(as_signed, as_unsigned), 0) << "-1 before 1";
  EXPECT_GT(Compare(as_unsigned, as_signed), 0) << "1 before 4294967295";
  for (int unknown : {0, 10, 127, -5}) {
    Key raw(unknown, 1), number(FIELD_INT, 2);
    EXPECT_EQ(Compare(raw, number), 0) << "type " << unknown << " takes part in no comparison";
  }
}

// Every value ends at an unreadable page: reading on ends the process.
TEST(CompareKeys, NeverReadsPastValuesOfOtherWidths) {
  const char bytes[] = "\x01\x02\x03\x04\x05\x06\x07\x08";
  for (int type = FIELD_SHORT; type <= FIELD_INT8; ++type) {
    for (std::size_t width1 : {0u, 1u, 2u, 3u, 4u, 7u, 8u}) {
      for (std::size_t width2 : {0u, 1u, 2u, 4u, 8u}) {
        Key a, b;
        a.add(type, bytes, width1);
        b.add(type, bytes, width2);
        Compare(a, b);
        Compare(b, a);
      }
    }
  }
}

double Rounded(double value, int decimals) {
  Fjust(value, decimals);
  return value;
}

// Each intermediate result is stored as a double, which keeps the oracle from fusing a multiplication with an
// addition.
double RoundedByTheFormula(double x, int decimals) {
  volatile double unit = x > 0 ? 1.0 : -1.0;
  for (int i = 0; i < decimals; ++i) unit = unit / 10.0;
  volatile double half = 0.5 * unit;
  volatile double sum = half + x;
  volatile double bias = unit / 10000.0;
  volatile double biased = sum + bias;
  return biased - std::fmod(biased, unit);
}

TEST(Fjust, KeepsTheFormulaToTheLastBit) {
  std::mt19937_64 random(20260901);
  std::uniform_real_distribution<double> value(-1e7, 1e7);
  for (int i = 0; i < 100000; ++i) {
    const double x = value(random);
    const int decimals = static_cast<int>(random() % 9);
    ASSERT_EQ(Rounded(x, decimals), RoundedByTheFormula(x, decimals)) << x << " to " << decimals;
  }
}

}  // namespace
