// The catalogue against iconv, which knows GBK independently of our table.
#include "base/messages.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/gbk_text.h"

namespace {

namespace message = cachet::message;

struct Text {
  std::string name;
  std::u8string utf8;
  std::string gbk;
};

const std::vector<Text> catalogue = {
#define MESSAGE(name, argument_types, text) {#name, text, message::name.c_str()},
#include "base/messages.def"
};

// The bytes in another character set; none when they are not whole characters of `from`.
std::optional<std::string> convert(const char* to, const char* from, std::string_view bytes) {
  const iconv_t converter = iconv_open(to, from);
  if (converter == reinterpret_cast<iconv_t>(-1)) {
    ADD_FAILURE() << "iconv cannot convert " << from << " to " << to;
    return std::nullopt;
  }
  std::string input(bytes);
  std::string output(4 * input.size() + 4, '\0');
  char* in = input.data();
  char* out = output.data();
  std::size_t in_left = input.size();
  std::size_t out_left = output.size();
  const bool whole = iconv(converter, &in, &in_left, &out, &out_left) == 0;
  iconv_close(converter);
  output.resize(output.size() - out_left);
  return whole ? std::optional(output) : std::nullopt;
}

bool is_whole_gbk(std::string_view text) {
  return convert("UTF-8", "GBK", text).has_value();
}

// Single and double bytes in turn, trail bytes that look like ASCII ('@', '|') and a lead byte as trail.
constexpr char mixed[] =
    "a\xB0\xE6"
    "b%\x81\x40\xFD\x7C\xD7\xD6\xC9\xC9"
    "cd\xB0\x81";

std::string formatted(std::size_t size, const char* database, const char* caller) {
  std::string buffer(size + 1, '#');
  message::format(buffer.data(), size, message::version_mismatch, database, caller);
  EXPECT_EQ(buffer[size], '#') << "written past a buffer of " << size;
  return buffer.c_str();
}

TEST(GbkTable, AgreesWithIconv) {
  for (const auto& character : cachet::gbk::characters) {
    const auto unit = static_cast<char16_t>(character.code_point);
    const std::string_view utf16(reinterpret_cast<const char*>(&unit), sizeof unit);
    const std::string expected = {static_cast<char>(character.gbk >> 8),
                                  static_cast<char>(character.gbk & 0xFF)};
    EXPECT_EQ(convert("GBK", "UTF-16LE", utf16), expected) << std::hex << character.gbk;
  }
}

TEST(Messages, AreTheirSourceInGbk) {
  for (const Text& text : catalogue) {
    EXPECT_EQ(convert("GBK", "UTF-8", {reinterpret_cast<const char*>(text.utf8.data()), text.utf8.size()}),
              text.gbk)
        << text.name;
  }
}

TEST(Messages, AreFilledWithTheirArguments) {
  EXPECT_EQ(formatted(300, "1.0", "2.0"), "\xB0\xE6\xB1\xBE\xB2\xBB\xC6\xA5\xC5\xE4(d=1.0,s=2.0)");
}

TEST(Messages, AreCutAtAWholeCharacterInEveryBuffer) {
  const std::string full = formatted(300, mixed, mixed);
  for (std::size_t size = 1; size <= full.size() + 2; ++size) {
    const std::string cut = formatted(size, mixed, mixed);
    EXPECT_TRUE(full.starts_with(cut)) << size;
    EXPECT_TRUE(is_whole_gbk(cut)) << size;
    EXPECT_GE(cut.size() + 2, std::min(size, full.size() + 2))
        << "more than half a character lost at " << size;
  }
  EXPECT_EQ(formatted(full.size() + 1, mixed, mixed), full);
}

}  // namespace
