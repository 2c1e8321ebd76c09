// A pseudo-terminal with the tool in it, and somebody who types.
#ifndef CACHET_TESTS_TOOLS_TERMINAL_H
#define CACHET_TESTS_TOOLS_TERMINAL_H

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>

#include "tools/zt_program.h"

namespace cachet::test {

class Terminal {
 public:
  explicit Terminal(const Words& arguments, Surroundings around = {}) {
    winsize size{30, 100, 0, 0};
    pid_ = forkpty(&side_, nullptr, nullptr, &size);
    if (pid_ != 0) return;
    around.variables.emplace_back("TERM", "xterm");
    _exit(become_zt(arguments, around));
  }
  ~Terminal() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (side_ >= 0) close(side_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  pid_t pid() const { return pid_; }

  void type(const std::string& keys) const {
    EXPECT_EQ(write(side_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  // Whether the text comes to be shown, in at most a minute; what was shown up to it is passed over.
  ::testing::AssertionResult shows(const std::string& text) {
    using namespace std::chrono;
    const auto limit = steady_clock::now() + minutes(1);
    std::size_t at = 0;
    while ((at = shown_.find(text)) == std::string::npos) {
      if (steady_clock::now() > limit || !read_some()) {
        return ::testing::AssertionFailure()
               << ::testing::PrintToString(text) << " is not in " << ::testing::PrintToString(shown_);
      }
    }
    passed_ = shown_.substr(0, at);
    shown_.erase(0, at + text.size());
    return ::testing::AssertionSuccess();
  }
  // What came before the text of the last shows().
  const std::string& passed() const { return passed_; }

  // Reads until the tool has ended; ends it when it is silent for half a minute.
  int exit_status() {
    while (read_some()) {
    }
    if (silent_) ::kill(pid_, SIGKILL);
    int status = 0;
    waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  // False at the end, and when nothing comes for half a minute.
  bool read_some() {
    pollfd ready{side_, POLLIN, 0};
    char bytes[4096];
    silent_ = poll(&ready, 1, 30000) == 0;
    if (silent_) return false;
    const ssize_t count = read(side_, bytes, sizeof bytes);
    if (count > 0) shown_.append(bytes, static_cast<std::size_t>(count));
    return count > 0;
  }

  pid_t pid_ = -1;
  int side_ = -1;
  bool silent_ = false;
  std::string shown_, passed_;
};

}  // namespace cachet::test

#endif
