// A process is traced through an insert and its commit, one machine instruction after the other, and killed after each
// of a few hundred of them; a survivor clears. The record is then there or not, and everything is whole.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "support/bank.h"
#include "support/settings.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define CACHET_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define CACHET_SANITIZED 1
#endif
#endif

namespace cachet::test {
namespace {

constexpr int stopped_at_neither_end = -1;

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

  // Executes at most so many instructions; how many it were until the transaction was over.
  long step(long most) {
    for (long done = 0; done < most; ++done) {
      if (ptrace(PTRACE_SINGLESTEP, pid_, nullptr, nullptr) != 0) return stopped_at_neither_end;
      if (waitpid(pid_, &status_, 0) != pid_ || !WIFSTOPPED(status_)) return stopped_at_neither_end;
      if (WSTOPSIG(status_) == SIGSTOP) return done;
    }
    return most;
  }

 private:
  pid_t pid_;
  int status_ = 0;
};

struct SingleStep : DatabaseTest {};

TEST_F(SingleStep, AnInsertAndItsCommitCanEndAfterAnyInstruction) {
#ifdef CACHET_SANITIZED
  GTEST_SKIP() << "a sanitizer's instructions are not the library's";
#endif
  constexpr long endless = 100'000'000;
  const long kills = setting("CACHET_STEPS", 300);
  std::mt19937 random(announced_seed());
  bank::Balances model = {{10, 1}, {20, 2}, {30, 3}, {40, 4}};
  Database db = bank::create(directory, model);
  long instructions = 0;
  {
    Traced whole(directory, 15);
    if (!whole.is_stopped()) GTEST_SKIP() << "tracing is not permitted here";
    instructions = whole.step(endless);
    ASSERT_GT(instructions, 0);
  }
  ASSERT_TRUE(ZtClearDBWildTrans(db));
  model[15] = 1;
  ASSERT_EQ(bank::check_everything(db), model);

  int committed = 0;
  for (long n = 0; n < kills; ++n) {
    const int id = 1000 + static_cast<int>(random() % 1000) * 1000 + static_cast<int>(n);
    const long last = instructions * n / kills;
    SCOPED_TRACE("id " + std::to_string(id) + ", after instruction " + std::to_string(last) + " of " +
                 std::to_string(instructions));
    {
      Traced child(directory, id);
      ASSERT_TRUE(child.is_stopped());
      ASSERT_NE(child.step(last), stopped_at_neither_end);
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
  std::printf("killed after %ld of %ld instructions, %d of them behind the commit\n", kills, instructions,
              committed);
  EXPECT_GT(committed, 0);
  EXPECT_LT(committed, kills / 2);
}

}  // namespace
}  // namespace cachet::test
