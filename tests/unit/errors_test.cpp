// The error channel of a handle: what is kept, printed, handed to the callback, and how a refused error ends.
#include <gtest/gtest.h>

#include <functional>

#include "support/child_process.h"
#include "support/schema.h"

namespace cachet::test {
namespace {

using SetError = DatabaseTest;

Error error_in_callback;

bool keep_and_go_on(int code, const char* text) {
  error_in_callback = {code, text};
  return true;
}

std::string printed_by(const std::function<void()>& action) {
  ::testing::internal::CaptureStdout();
  action();
  std::fflush(stdout);
  return ::testing::internal::GetCapturedStdout();
}

TEST_F(SetError, KeepsThePrintedErrorUntilTheNext) {
  Database db = create_items(directory);
  EXPECT_EQ(last_error(db), (Error{0, ""}));
  EXPECT_EQ(printed_by([&] { ZtSetError(db, -1008, "%s is %d%%", "half", 50); }),
            "errcode=-1008,errmsg=half is 50%\n");
  EXPECT_EQ(last_error(db), (Error{-1008, "half is 50%"}));
  EXPECT_EQ(last_error(db), (Error{-1008, "half is 50%"})) << "asking does not clear it";
  ZtSetErrorHandle(db, keep_and_go_on);
  EXPECT_EQ(printed_by([&] { ZtSetError(db, 5, "%s", "next %s"); }), "");
  EXPECT_EQ(error_in_callback, (Error{5, "next %s"}));
  EXPECT_EQ(last_error(db), error_in_callback);
  ZtSetErrorHandle(db, nullptr);
  EXPECT_EQ(printed_by([&] { ZtSetError(db, 6, "again"); }), "errcode=6,errmsg=again\n");
}

TEST_F(SetError, EndsTheProcessWithStatus255WhenTheCallbackRefuses) {
  Database db = create_items(directory);
  Child child(
      [&](Gate&) {
        ZtSetErrorHandle(db, [](int, const char*) { return false; });
        ZtSetError(db, -1, "refused");
        return 7;
      },
      Child::Output::captured);
  EXPECT_EQ(child.exit_status(), 255);
  EXPECT_EQ(child.output(), "");
}

// A character of two bytes, 0xB4F3, at the cut.
TEST_F(SetError, BoundsTheTextWithoutCuttingACharacterInHalf) {
  const std::string character = "\xB4\xF3";
  const struct {
    std::size_t plain_before;
    std::size_t kept;
  } cases[] = {{296, 298}, {297, 299}, {298, 298}, {299, 299}, {1200, 299}};
  Database db = create_items(directory);
  ZtSetErrorHandle(db, keep_and_go_on);
  for (const auto& c : cases) {
    const std::string whole = std::string(c.plain_before, 'x') + character;
    ZtSetError(db, -1008, "%s", whole.c_str());
    EXPECT_EQ(last_error(db).text, whole.substr(0, c.kept)) << c.plain_before;
    EXPECT_EQ(error_in_callback.text, whole.substr(0, c.kept));
  }
  std::string characters;
  for (int i = 0; i < 600; ++i) characters += character;
  for (const char* format : {"%s", "x%s"}) {
    ZtSetError(db, -1008, format, characters.c_str());
    EXPECT_EQ(last_error(db).text.size(), format[0] == 'x' ? 299u : 298u);
  }
}

TEST(LibVersion, IsTheFixedText) {
  EXPECT_STREQ(ZtGetLibVersion(), "Vemro_Version V2.3.1 Feb 27 2020 16:27:08");
}

}  // namespace
}  // namespace cachet::test
