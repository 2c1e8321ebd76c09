// Values as text against printf, which defines them, and random rows through files and back.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "cache/text.h"
#include "support/all_types.h"
#include "support/files.h"

namespace cachet::test {
namespace {

std::string written(int type, int decimal, const void* data, std::size_t length) {
  ZtDataField field;
  field.type = static_cast<signed char>(type);
  field.decimal = static_cast<signed char>(decimal);
  std::string line;
  append_value(line, field, {static_cast<const char*>(data), length}, ZeroCharacter::left_out);
  return line;
}

double random_double(std::mt19937_64& random) {
  const std::uint64_t bits = random();
  double value;
  if (random() % 2 == 0) {
    std::memcpy(&value, &bits, sizeof value);
  } else {
    value = static_cast<double>(static_cast<std::int64_t>(bits) % 100000) / 8;  // many ties
  }
  return value;
}

TEST(ValueText, IsWhatPrintfPrints) {
  std::mt19937_64 random(1);
  for (int round = 0; round < 20000; ++round) {
    const double value = random_double(random);
    const int decimal = static_cast<int>(random() % 20) - 1;
    char expected[512];
    std::snprintf(expected, sizeof expected, "%.*f", decimal, value);
    ASSERT_EQ(written(FIELD_DOUBLE, decimal, &value, sizeof value), expected) << value << ' ' << decimal;
  }
  for (const double value : {0.0, -0.0, double(INFINITY), double(-INFINITY), double(NAN), -double(NAN),
                             std::numeric_limits<double>::lowest()}) {
    char expected[512];
    std::snprintf(expected, sizeof expected, "%.127f", value);
    EXPECT_EQ(written(FIELD_DOUBLE, 127, &value, sizeof value), expected);
  }
}

TEST(ValueText, StaysWithinItsSlot) {
  EXPECT_EQ(written(FIELD_STRING, 0, "abcdef", 3), "abc") << "no NUL in the slot";
  EXPECT_EQ(written(FIELD_INT, 0, "\xFF\xFF\xFF\xFF", 2), "65535") << "a slot narrower than its type";
  EXPECT_EQ(written(FIELD_INT8, 0, "", 0), "0");
  EXPECT_EQ(written(FIELD_CHAR, 0, "x", 0), "");
}

TEST(StoredFormOfText, HasZerosBehindItWhateverCameBefore) {
  ZtDataField field;
  field.type = FIELD_STRING;
  field.length = 8;
  StoredForm stored_form;
  EXPECT_EQ(std::string(stored_form.of(field, "a text longer than the slot"), 8), "a text l");
  EXPECT_EQ(std::string(stored_form.of(field, "b"), 8), bytes("b\0\0\0\0\0\0\0"));
  field.type = FIELD_SHORT;  // wider than its type
  EXPECT_EQ(std::string(stored_form.of(field, "-1"), 8), bytes("\xFF\xFF\0\0\0\0\0\0"));
  field.type = raw_code;
  EXPECT_EQ(stored_form.of(field, "1"), nullptr);
}

// ---- round trips ----

using RoundTrip = DatabaseTest;

// Texts and characters that the format can carry: no NUL, no ";", no line end.
char plain_character(std::mt19937_64& random) {
  for (;;) {
    const char character = static_cast<char>(random());
    if (character != 0 && character != ';' && character != '\n' && character != '\r') return character;
  }
}

// Every value is exact in its text form.
Values random_values(std::mt19937_64& random) {
  Values values;
  values.s = static_cast<short>(random());
  values.i = static_cast<int>(random());
  values.c = random() % 4 == 0 ? '\0' : plain_character(random);
  values.us = static_cast<unsigned short>(random());
  values.u = static_cast<unsigned>(random());
  values.uc = static_cast<unsigned char>(plain_character(random));
  values.t.resize(random() % text_bytes);
  for (char& character : values.t) character = plain_character(random);
  // A text such as "a i=5" would hide the field of that name; that is how the format is.
  std::erase(values.t, '=');
  values.d0 = static_cast<double>(static_cast<std::int64_t>(random()) % 1000000000);
  values.d2 = static_cast<double>(static_cast<std::int64_t>(random()) % 1000000) / 4;
  values.d = static_cast<double>(static_cast<std::int64_t>(random()) % 1000000) / 64;
  values.big = static_cast<ZTINT8>(random());
  return values;
}

TEST_F(RoundTrip, ReturnsTheSameRecordsThroughEveryFormat) {
  const Folder folder;
  const std::string text = folder.file("text");
  const std::string binary = folder.file("binary");
  const std::string image = folder.file("image");
  for (unsigned long seed = 1; seed <= 5; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    Database db = create_all(directory);
    const std::size_t rows = random() % 300;
    for (std::size_t row = 0; row < rows; ++row) ASSERT_TRUE(put(db, random_values(random)));
    ASSERT_TRUE(ZtWriteTableTxt(db, all, text.c_str()));
    ASSERT_TRUE(ZtWriteTableBinary(db, all, binary.c_str()));
    ASSERT_TRUE(ZtWriteDbTable(db, all, image.c_str()));
    const std::string expected = contents_of(image);
    EXPECT_EQ(expected.size(), 32 + rows * all_record_bytes);

    Row row(db);
    for (const auto& load :
         {std::function<bool()>([&] { return ZtReadTableTxt(db, all, row, text.c_str()); }),
          {[&] { return ZtReadTableBinary(db, all, row, binary.c_str()); }},
          {[&] { return ZtReadDbTable(db, all, image.c_str()); }}}) {
      ZtResetDb(db);
      ASSERT_TRUE(load());
      ASSERT_TRUE(ZtWriteDbTable(db, all, folder.file("again").c_str()));
      EXPECT_TRUE(contents_of(folder.file("again")) == expected);
    }
  }
}

}  // namespace
}  // namespace cachet::test
