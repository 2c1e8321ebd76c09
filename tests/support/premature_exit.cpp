// The library ends the process with status 0 on some conditions, which a test runner would take for success. A test
// program that ends before its tests did ends with another status.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

namespace {

constexpr int premature_exit_status = 97;
pid_t running_tests = 0;  // forked children are none of this

class Watch : public testing::EmptyTestEventListener {
  void OnTestProgramStart(const testing::UnitTest&) override { running_tests = getpid(); }
  void OnTestProgramEnd(const testing::UnitTest&) override { running_tests = 0; }
};

void refuse_success() {
  if (running_tests == getpid()) _exit(premature_exit_status);
}

[[maybe_unused]] const bool watched = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new Watch);
  return std::atexit(refuse_success) == 0;
}();

}  // namespace
