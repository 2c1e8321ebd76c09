// A process is traced through an insert and its commit, one machine instruction after the other. Then others are killed
// after each of a few hundred of them, where a breakpoint stops them, and a survivor clears: the record is there or not,
// and everything is whole.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <random>
#include <vector>

#include "support/bank.h"
#include "support/sanitizers.h"
#include "support/settings.h"

namespace cachet::test {
namespace {

// A child that stops before the transaction and again behind it. The first one, rolled back, resolves what the loader
// and the C library resolve at a first use.
class Traced {
 public:
  Traced(const TempDirectory& directory, int id) {
    pid_ = fork();
    if (pid_ != 0) {
      waitpid(pid_, &status_, 0);
      return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Database db = bank::open(directory);
    ZtBeginTransaction(db);
    bank::put(db, id, 0);
    ZtRollbackTransaction(db);
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    raise(SIGSTOP);
    ZtBeginTransaction(db);
    bank::put(db, id, 1);
    ZtCommitTransaction(db);
    raise(SIGSTOP);
    _exit(0);
  }
  ~Traced() {
    kill(pid_, SIGKILL);
    waitpid(pid_, &status_, 0);
  }
  Traced(const Traced&) = delete;
  Traced& operator=(const Traced&) = delete;

  bool is_stopped() const { return WIFSTOPPED(status_) && WSTOPSIG(status_) == SIGSTOP; }

  // Executes the transaction instruction by instruction: where each of them lies.
  std::vector<std::uint64_t> trace() {
    std::vector<std::uint64_t> places = {place()};
    while (go(PTRACE_SINGLESTEP)) {
      if (place() != places.back()) places.push_back(place());
    }
    return places;
  }

  // Lets it run until it comes to a place for the n-th time, or to the transaction's end.
  void run_to(std::uint64_t address, long times) {
    if (place() == address && --times == 0) return;
    const long word = ptrace(PTRACE_PEEKTEXT, pid_, address, nullptr);
    const long trap = (word & ~0xffL) | 0xcc;
    for (;; --times) {
      ptrace(PTRACE_POKETEXT, pid_, address, trap);
      if (!go(PTRACE_CONT)) return;
      ptrace(PTRACE_POKETEXT, pid_, address, word);
      user_regs_struct registers = this->registers();
      registers.rip = address;
      ptrace(PTRACE_SETREGS, pid_, nullptr, &registers);
      if (times == 1 || !go(PTRACE_SINGLESTEP)) return;
    }
  }

 private:
  // False when the transaction is over.
  bool go(__ptrace_request how) {
    const bool stopped =
        ptrace(how, pid_, nullptr, nullptr) == 0 && waitpid(pid_, &status_, 0) == pid_ && WIFSTOPPED(status_);
    EXPECT_TRUE(stopped) << "it ended by itself";
    return stopped && WSTOPSIG(status_) != SIGSTOP;
  }
  user_regs_struct registers() const {
    user_regs_struct registers{};
    ptrace(PTRACE_GETREGS, pid_, nullptr, &registers);
    return registers;
  }
  std::uint64_t place() const { return registers().rip; }

  pid_t pid_;
  int status_ = 0;
};

struct SingleStep : DatabaseTest {};

TEST_F(SingleStep, AnInsertAndItsCommitCanEndAfterAnyInstruction) {
  if (sanitized) GTEST_SKIP() << "a sanitizer's instructions are not the library's";
  const long kills = setting("CACHET_STEPS", 300);
  std::mt19937 random(announced_seed());
  bank::Balances model = {{10, 1}, {20, 2}, {30, 3}, {40, 4}};
  Database db = bank::create(directory, model);
  std::vector<std::uint64_t> places;
  {
    Traced whole(directory, 15);
    if (!whole.is_stopped()) GTEST_SKIP() << "tracing is not permitted here";
    places = whole.trace();
  }
  ASSERT_TRUE(ZtClearDBWildTrans(db));
  model[15] = 1;
  ASSERT_EQ(bank::check_everything(db), model);

  int committed = 0;
  for (long n = 0; n < kills; ++n) {
    const int id = 1000 + static_cast<int>(random() % 1000) * 1000 + static_cast<int>(n);
    const auto last = places.begin() + static_cast<long>(places.size()) * n / kills;
    SCOPED_TRACE("id " + std::to_string(id) + ", after instruction " + std::to_string(last - places.begin()) +
                 " of " + std::to_string(places.size()));
    {
      Traced child(directory, id);
      ASSERT_TRUE(child.is_stopped());
      child.run_to(*last, std::count(places.begin(), last + 1, *last));
    }
    ASSERT_TRUE(ZtClearDBWildTrans(db));
    const bank::Balances found = bank::check_everything(db);
    if (found.contains(id)) {
      model[id] = 1;
      ++committed;
    }
    ASSERT_EQ(found, model);
    check_idle(db);
    ASSERT_FALSE(HasFailure());
  }
  std::printf("killed after %ld of %zu instructions, %d of them behind the commit\n", kills, places.size(),
              committed);
  EXPECT_GT(committed, 0);
  EXPECT_LT(committed, kills * 3 / 4);
}

}  // namespace
}  // namespace cachet::test
