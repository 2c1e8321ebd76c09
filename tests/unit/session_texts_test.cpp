// The texts of session entries, whoever asked before.
#include "dbsessions/session_texts.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>
#include <random>
#include <string>
#include <thread>

#include "support/child_process.h"

namespace cachet::test {
namespace {

std::string expected_sid(const ThreadIdentity& thread) {
  char text[64];
  std::snprintf(text, sizeof text, "%024lu%024lu", static_cast<unsigned long>(thread.pid),
                static_cast<unsigned long>(thread.tid));
  return text;
}

void expect_right_sid(const ThreadIdentity& thread) {
  EXPECT_EQ(std::string(sid_of(thread).data(), sizeof(SidText)), expected_sid(thread));
}

std::string time_text(time_t second) {
  char text[16];
  tm parts;
  localtime_r(&second, &parts);
  std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &parts);
  return text;
}

TEST(SessionTexts, NameTheThreadThatIsAskedFor) {
  std::mt19937 random(3);
  expect_right_sid({0, 0});
  for (int i = 0; i < 200; ++i) {
    expect_right_sid({static_cast<int>(random() % 3), static_cast<int>(random() % 3)});
    if (i % 3 == 0) expect_right_sid(this_thread());
  }
  std::thread([] { expect_right_sid(this_thread()); }).join();
}

TEST(SessionTexts, NameAForkedChildByItsOwnNumbers) {
  const ThreadIdentity parent = this_thread();
  expect_right_sid(parent);
  Child child([&](Gate&) {
    EXPECT_NE(this_thread().pid, parent.pid);
    EXPECT_EQ(this_thread().pid, getpid());
    expect_right_sid(this_thread());
    return 0;
  });
  EXPECT_EQ(child.exit_status(), 0);
}

TEST(SessionTexts, TellTheTimeOfNow) {
  const time_t end = std::time(nullptr) + 2;
  for (time_t before = 0; before < end;) {
    before = std::time(nullptr);
    const std::string text = local_time().data();
    const bool in_one_second = std::time(nullptr) == before;
    ASSERT_TRUE(text == time_text(before) || !in_one_second) << text;
  }
}

}  // namespace
}  // namespace cachet::test
