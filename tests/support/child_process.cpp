#include "support/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace cachet::test {

namespace {

constexpr int patience_ms = 60000;

std::string take_text(int file) {
  std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
  const ssize_t got = pread(file, text.data(), text.size(), 0);
  text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  close(file);
  return text;
}

// The state letter of /proc/PID/stat, behind the name in parentheses.
char state_of(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(file, text);
  const std::size_t end_of_name = text.rfind(')');
  return end_of_name == std::string::npos ? 'X' : text[end_of_name + 2];
}

bool waits_for_record_lock(pid_t pid) {
  const std::string id = " " + std::to_string(pid) + " ";
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    if (line.find("->") != std::string::npos && line.find(id) != std::string::npos) return true;
  }
  return false;
}

// Looks again and again, a minute at most.
template <class Holds>
void wait_until(const Holds& holds) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience_ms);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > limit) {
      ADD_FAILURE() << "the child does not come to rest";
      return;
    }
    sched_yield();
  }
}

}  // namespace

void Gate::tell(char sign) const {
  if (write(out_, &sign, 1) != 1) ADD_FAILURE() << "nobody listens for '" << sign << "'";
}

bool Gate::wait_for(char sign) const {
  pollfd waiting{in_, POLLIN, 0};
  char got = 0;
  if (poll(&waiting, 1, patience_ms) != 1 || read(in_, &got, 1) != 1) {
    ADD_FAILURE() << "'" << sign << "' did not come";
    return false;
  }
  EXPECT_EQ(got, sign);
  return got == sign;
}

bool Gate::has_sign() const {
  pollfd waiting{in_, POLLIN, 0};
  return poll(&waiting, 1, 0) == 1 && (waiting.revents & POLLIN) != 0;
}

void Gate::close() {
  ::close(in_);
  ::close(out_);
}

Child::Child(const std::function<int(Gate&)>& body, Output output) {
  int down[2];
  int up[2];
  if (pipe2(down, O_CLOEXEC) != 0 || pipe2(up, O_CLOEXEC) != 0) std::abort();
  if (output == Output::captured) {
    output_file_ = memfd_create("output", MFD_CLOEXEC);
    errors_file_ = memfd_create("errors", MFD_CLOEXEC);
  }
  signal(SIGPIPE, SIG_IGN);
  std::fflush(nullptr);
  pid_ = fork();
  if (pid_ < 0) std::abort();
  Gate below(down[0], up[1]);
  gate_ = Gate(up[0], down[1]);
  if (pid_ == 0) {
    gate_.close();
    run(body, below);
  }
  below.close();
}

void Child::run(const std::function<int(Gate&)>& body, Gate& gate) const {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (output_file_ >= 0) {
    dup2(output_file_, STDOUT_FILENO);
    dup2(errors_file_, STDERR_FILENO);
  }
  int status = body(gate);
  if (status == 0 && ::testing::Test::HasFailure()) status = failed_expectation;
  std::fflush(nullptr);
  _exit(status);
}

Child::~Child() {
  kill();
  gate_.close();
}

void Child::wait_until_asleep() const {
  wait_until([&] {
    const char state = state_of(pid_);
    return state != 'R' && state != 'D';
  });
}

void Child::wait_until_blocked_at_record_lock() const {
  wait_until([&] { return has_sign() || waits_for_record_lock(pid_); });
}

int Child::exit_status() {
  if (!reaped_) {
    const int process = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
    pollfd ended{process, POLLIN, 0};
    if (poll(&ended, 1, patience_ms) != 1) {
      ADD_FAILURE() << "child " << pid_ << " does not end";
      ::kill(pid_, SIGKILL);
    }
    close(process);
    int raw = 0;
    waitpid(pid_, &raw, 0);
    reaped_ = true;
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
    if (output_file_ >= 0) {
      output_ = take_text(output_file_);
      errors_ = take_text(errors_file_);
    }
  }
  return status_;
}

void Child::kill() {
  if (reaped_) return;
  ::kill(pid_, SIGKILL);
  exit_status();
}

}  // namespace cachet::test
