// See child.h. Signals go through the child's standard input, numbers come through descriptor 3: what a library prints
// on standard output stays out of it.
#include "child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <utility>

namespace bench {
namespace {

constexpr char child_word[] = "--child";
constexpr int child_arguments = 8;
constexpr int report_descriptor = 3;

struct Pipe {
  Pipe() { require(pipe2(ends, O_CLOEXEC) == 0, "no pipe"); }
  int ends[2];
};

pid_t spawn(const Task& task, int input, int output) {
  std::vector<std::string> words = {"/proc/self/exe",
                                    child_word,
                                    task.name,
                                    task.system,
                                    task.place.folder,
                                    std::to_string(task.place.rows),
                                    std::to_string(task.count),
                                    std::to_string(task.seed)};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, report_descriptor);
  pid_t pid = 0;
  const int status = posix_spawn(&pid, words[0].c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  require(status == 0, "no child process");
  return pid;
}

}  // namespace

Child::Child(const Task& task) {
  const Pipe down;
  const Pipe up;
  pid_ = spawn(task, down.ends[0], up.ends[1]);
  close(down.ends[0]);
  close(up.ends[1]);
  to_child_ = down.ends[1];
  from_child_ = up.ends[0];
}

Child::Child(Child&& other) noexcept
    : pid_(std::exchange(other.pid_, 0)),
      to_child_(std::exchange(other.to_child_, -1)),
      from_child_(std::exchange(other.from_child_, -1)) {}

// A child that has done its task, or was told to stop, comes to its end by itself: reading meets the end of the pipe.
Child::~Child() {
  if (pid_ == 0) return;
  close(to_child_);
  pollfd end = {from_child_, POLLIN, 0};
  constexpr int patience_ms = 20000;
  if (poll(&end, 1, patience_ms) <= 0) kill(pid_, SIGKILL);
  close(from_child_);
  waitpid(pid_, nullptr, 0);
}

std::vector<double> Child::numbers() {
  std::string line;
  for (char byte = 0; byte != '\n'; line += byte) {
    require(read(from_child_, &byte, 1) == 1, "a child process failed");
  }
  std::istringstream words(line);
  std::vector<double> numbers;
  for (double number; words >> number;) numbers.push_back(number);
  return numbers;
}

std::optional<std::vector<double>> Child::numbers_within(int seconds) {
  pollfd line = {from_child_, POLLIN, 0};
  if (poll(&line, 1, seconds * 1000) <= 0) return std::nullopt;
  return numbers();
}

void Child::signal() {
  require(write(to_child_, "", 1) == 1, "a child process is gone");
}

void Parent::report(const std::vector<double>& numbers) {
  std::ostringstream line;
  line.precision(17);
  for (const double number : numbers) line << number << ' ';
  line << '\n';
  const std::string text = line.str();
  require(write(report_descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
          "no parent");
}

bool Parent::wait_for_signal() {
  char byte;
  return read(STDIN_FILENO, &byte, 1) == 1;
}

bool Parent::has_signalled() {
  pollfd input = {STDIN_FILENO, POLLIN, 0};
  return poll(&input, 1, 0) > 0;
}

bool is_child(int argc, char** argv) {
  const bool child = argc == child_arguments && std::strcmp(argv[1], child_word) == 0;
  if (child) prctl(PR_SET_PDEATHSIG, SIGKILL);
  return child;
}

Task task_of(char** argv) {
  return {argv[2], argv[3], {argv[4], std::stoll(argv[5])}, std::stoll(argv[6]), std::stoull(argv[7])};
}

}  // namespace bench
