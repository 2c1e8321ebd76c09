// Processes of the benchmark's own: a fresh run of this program attaches to a table that this process has made, does one
// task and reports numbers. A child dies with its parent.
#ifndef CACHET_BENCH_CHILD_H
#define CACHET_BENCH_CHILD_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "system.h"

namespace bench {

// What a child needs to know; passed as its arguments.
struct Task {
  std::string name;  // see tasks.cpp
  std::string system;
  Place place;
  std::int64_t count;  // operations
  std::uint64_t seed;  // of its keys
};

// The parent's end.
class Child {
 public:
  explicit Child(const Task& task);
  // Ends a child that still runs.
  ~Child();
  Child(Child&& other) noexcept;
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  Child& operator=(Child&&) = delete;

  // Waits for the child's next line of numbers; throws when it ends without one.
  std::vector<double> numbers();
  // The same; none when the line does not begin within so many seconds.
  std::optional<std::vector<double>> numbers_within(int seconds);
  // Lets a child that waits go on, or one that goes on for ever stop.
  void signal();

 private:
  pid_t pid_ = 0;
  int to_child_ = -1;
  int from_child_ = -1;
};

// The child's end.
class Parent {
 public:
  void report(const std::vector<double>& numbers);
  // False when the parent has no more.
  bool wait_for_signal();
  // Whether a signal has come; does not wait.
  bool has_signalled();
};

// If the arguments are a child's, its task.
bool is_child(int argc, char** argv);
Task task_of(char** argv);

}  // namespace bench

#endif
