#include "isolated.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>

#include "manager_process.h"
#include "text.h"

namespace demo {
namespace {

constexpr int kPackage = 0;  // the record id of the package that is changed
enum Outcome : int { kDone, kNotOpened, kNotFound, kNotChanged };

bool find(const Database& database, const Package& package, ZtRecordHandle record) {
  Condition condition(kByNameAndVersion);
  condition.add(package.name);
  condition.add(package.version);
  return ZtFindRecord(database.get(), kTable, condition, ZT_OP_EQUAL) &&
         ZtGetRecord(database.get(), condition, record);
}

// Runs `work` on an isolated handle in a process of its own, and returns how that ended, as waitpid tells.
int in_isolation(const std::string& directory, int port, const Package& package,
                 const std::function<Outcome(const Database&, ZtRecordHandle)>& work) {
  const pid_t child = fork();
  if (child == 0) {
    Outcome outcome = kNotOpened;
    if (const Database database = open_database(directory, ZT_MODE_READ_WRITE, port)) {
      const Record record(database);
      outcome = find(database, package, record) ? work(database, record) : kNotFound;
    }
    std::fflush(stdout);  // what the library printed
    _exit(outcome);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

// Does not come back.
Outcome write_to_the_mapping(const Database& database, ZtRecordHandle record) {
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  int type = 0;
  *ZtGetField(database.get(), record, kStock, &type) = 1;
  return kDone;
}

Outcome ask_the_manager(const Database& database, ZtRecordHandle record) {
  const Row row = read_row(database, record);
  Transaction transaction(database);
  if (!change_account(database, record, row, {row.account.stock + 1, row.account.revision + 1}))
    return kNotChanged;
  transaction.commit();
  return kDone;
}

std::string wrong_end(const char* what, int status) {
  return std::string(what) + (WIFSIGNALED(status) ? ": signal " + std::to_string(WTERMSIG(status))
                                                  : ": status " + std::to_string(WEXITSTATUS(status)));
}

Account account_of(const Database& database, const Package& package) {
  const Record record(database);
  return find(database, package, record) ? read_row(database, record).account : Account{-1, 0};
}

}  // namespace

std::string show_isolated_client(const std::string& directory, const Model& model, const Database& watcher,
                                 Ledger& ledger) {
  print("\nAn isolated client: it maps the database read-only, and a manager makes its changes\n");
  if (!ManagerProcess::is_built()) {
    print("  left out: ztmanager was not built (cmake says what it misses)\n");
    return {};
  }
  ManagerProcess manager(directory);
  if (!manager.is_ready()) return "the manager did not become ready";
  const Package& package = model.package(kPackage);
  const Account before = account_of(watcher, package);

  int status = in_isolation(directory, manager.port(), package, write_to_the_mapping);
  if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGSEGV) return wrong_end("a write to the mapping", status);
  print("  it writes to the stock of " + package.name + " itself: the kernel ends it (" +
        std::string(strsignal(SIGSEGV)) + ")\n");

  status = in_isolation(directory, manager.port(), package, ask_the_manager);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != kDone)
    return wrong_end("a change through the manager", status);
  const Account after = account_of(watcher, package);
  print("  it asks the manager for the same in a transaction: the stock was " + std::to_string(before.stock) +
        " and is " + std::to_string(after.stock) + "\n");
  if (after.stock != before.stock + 1) return "the manager's change cannot be seen";
  ++ledger.stock_changes[kPackage];
  ++ledger.revisions[kPackage];
  return manager.end() ? std::string() : "the manager did not end in order";
}

}  // namespace demo
