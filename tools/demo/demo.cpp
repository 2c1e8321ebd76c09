// One parent, two writers, two readers. The parent keeps a read-only handle from the moment everybody is
// attached to the final comparison, so it is the last to leave, and its leaving removes the database.
#include "demo.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "isolated.h"
#include "loader.h"
#include "reader.h"
#include "text.h"
#include "verifier.h"
#include "writer.h"

namespace demo {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr int kRunSeconds = 8;
constexpr auto kWriterPause = microseconds(300);  // a writer that never pauses keeps waiting readers out
constexpr auto kTurnPause = microseconds(100);

volatile sig_atomic_t signal_received = 0;

void remember_signal(int number) {
  signal_received = number;
}

std::string new_directory() {
  std::string name = std::filesystem::temp_directory_path() / "cachet-demo.XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make a directory like " + name);
  return name;
}

Ledger new_ledger(const Model& model) {
  const size_t count = static_cast<size_t>(model.count());
  return {shared_array<int32_t>(count), shared_array<uint32_t>(count), shared_array<bool>(kMadeUpRowsMax)};
}

std::string one_decimal(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

}  // namespace

void catch_signals() {
  signal(SIGINT, remember_signal);
  signal(SIGTERM, remember_signal);
  signal(SIGHUP, remember_signal);
  signal(SIGPIPE, SIG_IGN);
}

bool interrupted() {
  return signal_received != 0;
}

Demo::Demo(Model model)
    : model_(std::move(model)),
      directory_(new_directory()),
      board_(*shared_array<Board>(1)),
      ledgers_{new_ledger(model_), new_ledger(model_)},
      children_(board_),
      audit_(directory_),
      segments_before_(objects_of_all_programs("shm")),
      semaphore_sets_before_(objects_of_all_programs("sem")) {}

Demo::~Demo() {
  children_.end_all();
  database_.reset();
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

bool Demo::run() {
  const bool compared =
      load_packages() && attach_the_others() && run_for_some_seconds() && be_isolated() && compare_all();
  print_complaints();
  const bool in_order = compared && nothing_wrong();
  const bool clean = clean_up(in_order);
  return in_order && clean;
}

// ---- the phases ----

bool Demo::load_packages() {
  const Clock::time_point begin = Clock::now();
  children_.start(kWriter1, [this] { be_first_writer(); });
  const auto show = [&](bool final) {
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    print_progress("  loaded " + with_thousands(board_.rows_loaded) + " of " +
                       with_thousands(model_.count()) + " packages in " + one_decimal(seconds) + " s",
                   final);
  };
  const bool loaded =
      wait_for([this] { return board_.reports[kWriter1].ready.load(); }, 60, [&] { show(false); });
  show(true);
  return loaded;
}

bool Demo::attach_the_others() {
  children_.start(kWriter2, [this] { be_second_writer(); });
  children_.start(kReaderReadOnly, [this] { be_reader(kReaderReadOnly, ZT_MODE_READ_ONLY); });
  children_.start(kReaderReadWrite, [this] { be_reader(kReaderReadWrite, ZT_MODE_READ_WRITE); });
  const auto all_ready = [this] {
    bool ready = true;
    for (const Report& report : board_.reports) ready = ready && report.ready;
    return ready;
  };
  if (!wait_for(all_ready, 10, [] {})) return false;
  database_ = open_database(directory_, ZT_MODE_READ_ONLY);
  while_up_ = audit_.look();
  return database_ != nullptr;
}

bool Demo::run_for_some_seconds() {
  const Clock::time_point begin = Clock::now();
  const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
  const auto show = [&](bool final) {
    print_progress("  ran " + one_decimal(elapsed()) + " s: " + with_thousands(done(kLookUp)) +
                       " look-ups, " + with_thousands(done(kCommit)) + " commits, " +
                       with_thousands(done(kRollback)) + " rollbacks",
                   final);
  };
  print("\nTwo writers and two readers work at once for " + std::to_string(kRunSeconds) + " seconds\n");
  board_.go = true;
  wait_for([&] { return elapsed() >= kRunSeconds; }, kRunSeconds + 1, [&] { show(false); });
  board_.stop = true;
  run_seconds_ = elapsed();
  const bool ended = wait_for([this] { return !children_.any_running(); }, 15, [] {});
  show(true);
  print_figures();
  return ended && !interrupted();
}

bool Demo::be_isolated() {
  const std::string trouble = show_isolated_client(directory_, model_, database_, ledgers_[0]);
  if (!trouble.empty()) print("\nWRONG: " + trouble + "\n");
  return trouble.empty();
}

void Demo::print_figures() const {
  std::vector<std::vector<std::string>> rows;
  for (const Role role : kAllRoles) {
    std::string name = std::string(kRoleNames[role]) + ", process " + std::to_string(children_.pid(role));
    for (int task = 0; task < kTasks; ++task) {
      const Latencies& latencies = board_.reports[role].tasks[task];
      if (latencies.count() == 0) continue;
      rows.push_back(
          {name, kTaskNames[task], with_thousands(latencies.count()),
           with_thousands(static_cast<int64_t>(static_cast<double>(latencies.count()) / run_seconds_)),
           one_decimal(latencies.percentile_us(0.5)), one_decimal(latencies.percentile_us(0.99))});
      name.clear();
    }
  }
  print("\nWhat each process did (times in microseconds, with all waiting)\n");
  print_table({{"process", 36},
               {"what", 18},
               {"count", 10, true},
               {"per second", 10, true},
               {"median", 9, true},
               {"99 %", 9, true}},
              rows);
}

bool Demo::compare_all() {
  print("\nA search: the packages from the name \"adwaita-qt\" on\n");
  show_search(database_, "adwaita-qt", 10);

  int64_t rows_checked = 0;
  for (const Report& report : board_.reports) rows_checked += report.rows_checked;
  const int64_t answers = done(kLookUp) + done(kListSection) + done(kTenLargest);
  const Comparison result = compare(database_, model_, ledgers_);
  if (!result.difference.empty()) {
    print("\nWRONG in the final comparison: " + result.difference + "\n");
    return false;
  }
  print("\nChecks\n");
  if (nothing_wrong()) {
    print("  every answer equals the plain copy: " + with_thousands(answers) + " answers, " +
          with_thousands(rows_checked) + " rows\n");
  }
  print("  the whole database equals it: " + with_thousands(result.rows) + " rows, " +
        with_thousands(result.made_up) + " of them made up by the writers,\n  and " +
        with_thousands(result.changes) + " committed changes; " + with_thousands(result.comparisons) +
        " rows compared along the table and three indexes\n");
  return true;
}

// In the ordinary case the parent is the last to leave, and nothing is left. Where a process was killed, or
// the parent never attached, the leftovers are replaced by a new database, which is removed.
bool Demo::clean_up(bool in_order) {
  children_.end_all();
  database_.reset();
  SystemVAudit::Found left = audit_.look();
  const bool clean = left.segments + left.semaphore_sets == 0 && left.files.size() <= 1;
  if (in_order) print_what_is_left(left);
  if (!clean) {
    remove_leftovers(directory_);
    left = audit_.look();
  }
  if (!in_order) print_what_is_left(left);
  return clean;
}

void Demo::print_what_is_left(const SystemVAudit::Found& left) const {
  const auto objects = [](int segments, int semaphore_sets) {
    return std::to_string(segments) + " segments and " + std::to_string(semaphore_sets) + " semaphore sets";
  };
  print("  left behind: " + objects(left.segments, left.semaphore_sets) +
        " (while it was up: " + objects(while_up_.segments, while_up_.semaphore_sets) +
        ")\n  of all programs: " + objects(segments_before_, semaphore_sets_before_) + " before, " +
        objects(objects_of_all_programs("shm"), objects_of_all_programs("sem")) + " after\n  in " +
        directory_ + " of " + std::to_string(while_up_.files.size()) + " files:");
  for (const std::string& file : left.files) print(" " + file);
  print(left.files.size() == 1 ? " (the lock file; now removed)\n" : "\n");
}

// ---- what the children do ----

void Demo::be_first_writer() {
  Report& report = board_.reports[kWriter1];
  const Database database = create_database(directory_, model_.packages());
  if (!database) return report.complain("the database could not be created");
  ZtUnLockDb(database.get());  // from here on others may open it
  if (!load(database, model_, board_, report)) return;
  write_until_stopped(database, kWriter1);
}

void Demo::be_second_writer() {
  const Database database = open_database(directory_, ZT_MODE_READ_WRITE);
  if (!database) return board_.reports[kWriter2].complain("the database could not be opened");
  write_until_stopped(database, kWriter2);
}

void Demo::write_until_stopped(const Database& database, Role role) {
  Report& report = board_.reports[role];
  Writer writer(database, model_, role + 1, report, ledgers_[role]);
  report.ready = true;
  wait_for_go();
  while (!board_.stop) {
    writer.write_once();
    std::this_thread::sleep_for(kWriterPause);
  }
  report.finished = true;
}

void Demo::be_reader(Role role, int mode) {
  Report& report = board_.reports[role];
  const Database database = open_database(directory_, mode);
  if (!database) return report.complain("the database could not be opened");
  Reader reader(database, model_, mode, report);
  report.ready = true;
  wait_for_go();
  while (!board_.stop) {
    reader.read_once();
    if (mode == ZT_MODE_READ_WRITE) std::this_thread::sleep_for(kTurnPause);
  }
  report.finished = true;
}

// ---- waiting and complaints ----

void Demo::wait_for_go() {
  while (!board_.go && !board_.stop) std::this_thread::sleep_for(milliseconds(1));
}

bool Demo::wait_for(const std::function<bool()>& done, int seconds,
                    const std::function<void()>& show_progress) {
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(seconds);
  while (!done()) {
    children_.collect();
    if (interrupted() || !nothing_wrong()) return false;
    if (Clock::now() > deadline) {
      print("\nWRONG: the processes were not done in " + std::to_string(seconds) + " s\n");
      return false;
    }
    show_progress();
    std::this_thread::sleep_for(milliseconds(50));
  }
  return true;
}

bool Demo::nothing_wrong() const {
  for (const Report& report : board_.reports) {
    if (report.complaint_count != 0) return false;
  }
  return true;
}

void Demo::print_complaints() const {
  if (interrupted()) print("\nInterrupted\n");
  for (const Role role : kAllRoles) {
    const Report& report = board_.reports[role];
    if (report.complaint_count == 0) continue;
    print(std::string("\nWRONG in ") + kRoleNames[role] + " (" + std::to_string(report.complaint_count) +
          " times): " + report.first_complaint + "\n");
  }
}

int64_t Demo::done(Task task) const {
  int64_t count = 0;
  for (const Report& report : board_.reports) count += report.tasks[task].count();
  return count;
}

}  // namespace demo
