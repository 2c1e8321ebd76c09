// A forked process that runs one function and meets its parent at pipe barriers.
//
//   Child child([&](Gate& gate) { ...; gate.tell('r'); gate.wait_for('g'); ...; return 0; });
//   child.wait_for('r'); ...; child.tell('g'); EXPECT_EQ(child.exit_status(), 0);
#ifndef CACHET_TESTS_SUPPORT_CHILD_PROCESS_H
#define CACHET_TESTS_SUPPORT_CHILD_PROCESS_H

#include <sys/types.h>

#include <functional>
#include <string>

namespace cachet::test {

// One side of a pair of pipes. Nobody waits longer than a minute: a lost partner fails the test.
class Gate {
 public:
  Gate() = default;
  Gate(int in, int out) : in_(in), out_(out) {}

  void tell(char sign) const;
  // False, with a failure of the test, when another sign or none comes.
  bool wait_for(char sign) const;
  // Whether a sign is there; does not wait.
  bool has_sign() const;
  void close();

 private:
  int in_ = -1;
  int out_ = -1;
};

class Child {
 public:
  enum class Output { shared, captured };

  // Exit status of a child whose function returned 0 although an expectation failed in it.
  static constexpr int failed_expectation = 98;

  explicit Child(const std::function<int(Gate&)>& body, Output output = Output::shared);
  ~Child();  // kills and reaps it
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void tell(char sign) const { gate_.tell(sign); }
  bool wait_for(char sign) const { return gate_.wait_for(sign); }
  bool has_sign() const { return gate_.has_sign(); }
  pid_t pid() const { return pid_; }

  // Waits until the child sleeps in the kernel (a lock, a semaphore, a pipe) or has ended.
  void wait_until_asleep() const;
  // Waits until the system lists the child as waiting for a record lock, or the child has given a sign.
  void wait_until_blocked_at_record_lock() const;

  // Waits for the end, a minute at most: the status of exit, or minus the number of the signal.
  int exit_status();
  void kill();
  // What it printed, on standard output and standard error, when captured; to be asked after its end.
  const std::string& output() const { return output_; }
  const std::string& errors() const { return errors_; }

 private:
  [[noreturn]] void run(const std::function<int(Gate&)>& body, Gate& gate) const;

  pid_t pid_ = -1;
  bool reaped_ = false;
  int status_ = 0;
  Gate gate_;
  int output_file_ = -1;
  int errors_file_ = -1;
  std::string output_;
  std::string errors_;
};

}  // namespace cachet::test

#endif
