// See tasks.h.
#include "tasks.h"

#include <algorithm>
#include <map>

#include "clock.h"
#include "systems.h"

namespace bench {
namespace {

constexpr int rows_per_update = 100;

// What updates add to a price is left out, since a writer may be at work.
double sum_of_lookups(System& system, std::span<const std::int64_t> ids) {
  std::int64_t sum = 0;
  for (const std::int64_t id : ids) sum += static_cast<std::int64_t>(system.get_id(id));
  return static_cast<double>(sum);
}

void wait_for_start(Parent& parent) {
  parent.report({});
  require(parent.wait_for_signal(), "no parent");
}

// Every row once, so that a reader has met every page and filled whatever it keeps.
void warm_up(System& system, const Task& task) {
  sum_of_lookups(system, distinct_ids(task.place.rows, task.place.rows / system.slowness(), task.seed));
}

void fresh(const Task& task, System& system, Parent& parent) {
  const std::vector<std::int64_t> ids = random_ids(task.place.rows, task.count, task.seed);
  const std::span<const std::int64_t> all = ids;
  const auto few = static_cast<std::size_t>(std::min(few_lookups, task.count));
  const Stopwatch since_start;
  system.attach(task.place, Access::read_write);
  const Stopwatch since_attached;
  double sum = sum_of_lookups(system, all.first(1));
  const double attach_ns = since_start.elapsed_ns();
  sum += sum_of_lookups(system, all.subspan(1, few - 1));
  const double few_ns = since_attached.elapsed_ns();
  sum += sum_of_lookups(system, all.subspan(few));
  const double all_ns = since_attached.elapsed_ns();
  parent.report(
      {attach_ns, few_ns / static_cast<double>(few), all_ns / static_cast<double>(all.size()), sum});
}

void reader(const Task& task, System& system, Parent& parent) {
  system.attach(task.place, Access::read_only);
  warm_up(system, task);
  const std::vector<std::int64_t> ids = random_ids(task.place.rows, task.count, task.seed);
  wait_for_start(parent);
  const Stopwatch stopwatch;
  const double sum = sum_of_lookups(system, ids);
  parent.report({stopwatch.elapsed_ns() / static_cast<double>(ids.size()), sum});
}

void watcher(const Task& task, System& system, Parent& parent) {
  system.attach(task.place, Access::read_only);
  warm_up(system, task);
  const std::vector<std::int64_t> ids = random_ids(task.place.rows, task.count, task.seed);
  std::vector<double> times(ids.size());
  parent.report({});
  while (parent.wait_for_signal()) {
    std::int64_t sum = 0;
    double before = 0;
    const Stopwatch stopwatch;
    for (std::size_t i = 0; i < ids.size(); ++i) {
      sum += static_cast<std::int64_t>(system.get_id(ids[i]));
      const double now = stopwatch.elapsed_ns();
      times[i] = now - before;
      before = now;
    }
    std::sort(times.begin(), times.end());
    parent.report({times[times.size() / 2], times[times.size() * 999 / 1000], static_cast<double>(sum)});
  }
}

void writer(const Task& task, System& system, Parent& parent) {
  system.attach(task.place, Access::recoverable);
  const Rows rows(task.place.rows, Order::sorted);
  const std::vector<std::int64_t> ids = random_ids(task.place.rows, task.count, task.seed);
  wait_for_start(parent);
  for (std::size_t i = 0; !parent.has_signalled();) {
    system.begin();
    for (int row = 0; row < rows_per_update; ++row, i = (i + 1) % ids.size())
      system.set_price(ids[i], rows.price(ids[i]) + 0.5);
    system.commit();
  }
}

void taker(const Task& task, System& system, Parent& parent) {
  system.attach(task.place, Access::recoverable);
  const Rows rows(task.place.rows, Order::sorted);
  const std::vector<std::int64_t> ids = random_ids(task.place.rows, task.count, task.seed);
  wait_for_start(parent);
  const Stopwatch stopwatch;
  for (const std::int64_t id : ids) {
    system.begin();
    system.set_price(id, rows.price(id) + 0.5);
    system.commit();
  }
  parent.report({stopwatch.elapsed_ns()});
}

}  // namespace

void run_task(const Task& task) {
  static const std::map<std::string, void (*)(const Task&, System&, Parent&)> tasks = {
      {"fresh", fresh}, {"reader", reader}, {"watcher", watcher}, {"writer", writer}, {"taker", taker}};
  const std::unique_ptr<System> system = make_system(task.system);
  Parent parent;
  tasks.at(task.name)(task, *system, parent);
}

}  // namespace bench
