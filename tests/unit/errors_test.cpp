// The error channel of a handle: what is kept, printed, handed to the callback; and the exits that programs and
// scripts outside rely upon.
#include <gtest/gtest.h>

#include "base/fatal.h"
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

TEST_F(SetError, KeepsAndPrintsTheErrorOrHandsItToTheCallback) {
  Database db = create_items(directory);
  EXPECT_EQ(last_error(db), (Error{0, ""}));
  ::testing::internal::CaptureStdout();
  ZtSetError(db, -1008, "%s is %d%%", "half", 50);
  EXPECT_EQ(last_error(db), (Error{-1008, "half is 50%"}));
  ZtSetErrorHandle(db, keep_and_go_on);
  ZtSetError(db, 5, "%s", "next %s");
  EXPECT_EQ(error_in_callback, (Error{5, "next %s"}));
  EXPECT_EQ(last_error(db), error_in_callback);
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "errcode=-1008,errmsg=half is 50%\n");
}

TEST_F(SetError, EndsTheProcessWithStatus255WhenTheCallbackRefuses) {
  Database db = create_items(directory);
  Child child([&](Gate&) {
    ZtSetErrorHandle(db, [](int, const char*) { return false; });
    ZtSetError(db, -1, "refused");
    return 7;
  });
  EXPECT_EQ(child.exit_status(), 255);
}

TEST(OutOfHeap, IsPrintedAndEndsTheProcessWithStatus0) {
  Child child([](Gate&) { return fatal::out_of_heap(fatal::before_image_line), 7; }, Child::Output::captured);
  EXPECT_EQ(child.exit_status(), 0);
  EXPECT_EQ(child.output(), "no memory,line=745\n");
}

// A character of two bytes, 0xB4F3, at the cut.
TEST_F(SetError, BoundsTheTextWithoutCuttingACharacterInHalf) {
  const struct {
    std::size_t plain_before, kept;
  } cases[] = {{296, 298}, {297, 299}, {298, 298}, {299, 299}, {1200, 299}};
  Database db = create_items(directory);
  ZtSetErrorHandle(db, keep_and_go_on);
  for (const auto& c : cases) {
    const std::string whole = std::string(c.plain_before, 'x') + "\xB4\xF3";
    ZtSetError(db, -1008, "%s", whole.c_str());
    EXPECT_EQ(last_error(db).text, whole.substr(0, c.kept)) << c.plain_before;
    EXPECT_EQ(error_in_callback.text, whole.substr(0, c.kept));
  }
}

TEST(LibVersion, IsTheFixedText) {
  EXPECT_STREQ(ZtGetLibVersion(), "Vemro_Version V2.3.1 Feb 27 2020 16:27:08");
}

}  // namespace
}  // namespace cachet::test
