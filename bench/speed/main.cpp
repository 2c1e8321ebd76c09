// Usage: bench_speed [OPTION...], as scripts/bench describes them; --folder DIR is where the tables lie.
//
// cachet and its peers do the same work on the same rows, one system after the other, in several rounds; the medians are
// printed. Every sum that a system comes to is checked. Everything that is made lies in one folder, which is removed.
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iostream>

#include "dependent_load.h"
#include "interruption.h"
#include "operations.h"
#include "options.h"
#include "report.h"
#include "round_trips.h"
#include "systems.h"
#include "tasks.h"

namespace bench {
namespace {

constexpr std::int64_t growth = 10;  // from the small table to the large one

class Folder {
 public:
  explicit Folder(std::string path) : path_(std::move(path)) { std::filesystem::create_directories(path_); }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

std::string new_folder() {
  std::string path = "/dev/shm/cachet-bench-XXXXXX";
  require(mkdtemp(path.data()) != nullptr, "no folder in /dev/shm");
  return path;
}

void run(std::span<const Scenario> scenarios, const Session& session) {
  for (const Scenario& scenario : scenarios) {
    if (!scenario.possible(session.system)) continue;
    try {
      scenario.run(session);
    } catch (const std::exception& error) {
      throw std::runtime_error(session.name + ", " + scenario.name + ": " + error.what());
    }
  }
}

// All operations on a new table.
void run_all(const std::string& name, const Rows& rows, const std::string& path, int round,
             Results& results) {
  const Folder folder(path);
  const std::unique_ptr<System> system = make_system(name);
  const Place place = {folder.path(), rows.count()};
  system->create(place);
  if (system->warm_up_ns() > 0) results.add(name, "warm_up", system->warm_up_ns());
  const Session session = {*system, name, rows, place, static_cast<std::uint64_t>(round) * 100 + 10, results};
  for (const auto scenarios : {loading(), reading(), writing(), in_processes(), removing()})
    run(scenarios, session);
}

// get_id on a table of a tenth of the rows, to see how the time grows.
void run_tenth(const std::string& name, const Rows& rows, const std::string& path, int round,
               Results& results) {
  Results small;
  const Folder folder(path);
  const std::unique_ptr<System> system = make_system(name);
  const Place place = {folder.path(), rows.count()};
  system->create(place);
  const Session session = {*system, name, rows, place, static_cast<std::uint64_t>(round) * 100 + 10, small};
  run(loading(), session);
  run(reading().first(2), session);  // meets all rows, and looks them up by id
  results.add(name, "get_id_tenth", *small.median(name, "get_id"));
}

Results measure(const Options& options, const std::string& folder) {
  const Rows rows(options.rows, options.order);
  const Rows tenth(options.rows / growth, options.order);
  Results results;
  for (int round = 0; round < options.rounds; ++round) {
    for (const std::string& name : options.systems) {
      std::cerr << "round " << round + 1 << " of " << options.rounds << ": " << name << '\n';
      run_all(name, rows, folder + "/" + name, round, results);
      run_tenth(name, tenth, folder + "/tenth", round, results);
    }
    measure_round_trips(folder, results);
    measure_dependent_load(results);
  }
  return results;
}

template <typename Print>
void write_file(const std::string& file, Print print) {
  if (file.empty()) return;
  std::ofstream out(file);
  print(out);
  out.flush();
  require(out.good(), "a result cannot be written");
}

void run(Options options) {
  if (options.systems.empty()) options.systems = available_systems();
  for (const std::string& name : options.systems) make_system(name);
  getloadavg(&options.load, 1);
  const Folder folder(options.folder.empty() ? new_folder() : options.folder);
  const Results results = measure(options, folder.path());
  print_text(std::cout, options, results);
  write_file(options.json_file, [&](std::ostream& out) { print_json(out, options, results); });
  write_file(options.markdown_file, [&](std::ostream& out) { print_markdown(out, options, results); });
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  try {
    if (bench::is_child(argc, argv)) {
      bench::run_task(bench::task_of(argv));
    } else {
      bench::catch_interruptions();
      bench::run(bench::parse(argc, argv));
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "bench_speed: " << error.what() << '\n';
    return 1;
  }
}
