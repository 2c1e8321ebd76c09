// The scenarios with several processes; their work is in tasks.cpp. See operations.h.
#include <algorithm>
#include <optional>

#include "child.h"
#include "interruption.h"
#include "operations.h"
#include "tasks.h"

namespace bench {
namespace {

constexpr std::int64_t first_lookups = 50000;
constexpr std::int64_t lookups = 200000;
constexpr std::int64_t transactions = 20000;

bool shared(const System& system) {
  return system.shared();
}

Task task(const Session& session, const char* name, std::int64_t count, std::uint64_t seed) {
  return {name, session.name, session.place, count, seed};
}

// What the child of this task reads in all.
double expected_sum(const Session& session, const Task& task) {
  return sum_of_prices(session.rows, random_ids(session.rows.count(), task.count, task.seed));
}

// Attach, and the first lookups after it.
void cold(const Session& session) {
  check_interruption();
  const Task fresh = task(session, "fresh", std::min(first_lookups, session.rows.count()), session.seed + 2);
  const std::vector<double> times = Child(fresh).numbers();
  check_sum(times.at(3), expected_sum(session, fresh));
  session.report("attach", times[0]);
  session.report("get_id_cold_2k", times[1]);
  session.report("get_id_cold_50k", times[2]);
}

// Two at once; the mean of both.
void two_readers(const Session& session) {
  check_interruption();
  const std::int64_t count = session.at_most(lookups);
  const Task tasks[] = {task(session, "reader", count, session.seed),
                        task(session, "reader", count, session.seed + 1)};
  Child readers[] = {Child(tasks[0]), Child(tasks[1])};
  for (Child& reader : readers) reader.numbers();
  for (Child& reader : readers) reader.signal();
  double ns = 0;
  for (int i = 0; i < 2; ++i) {
    const std::vector<double> result = readers[i].numbers();
    check_sum(result.at(1), expected_sum(session, tasks[i]));
    ns += result[0] / 2;
  }
  session.report("two_readers", ns);
}

// What 200,000 lookups beside a writer may take. Some locks let readers starve.
constexpr int patience_seconds = 60;

// The same reader alone, and while another process commits 100 updates at a time.
void reader_beside_writer(const Session& session) {
  check_interruption();
  const Task watching = task(session, "watcher", session.at_most(lookups), session.seed);
  const double sum = expected_sum(session, watching);
  Child watcher(watching);
  watcher.numbers();
  watcher.signal();
  const std::vector<double> alone = watcher.numbers();
  check_sum(alone.at(2), sum);

  Child writer(task(session, "writer", session.at_most(lookups), session.seed + 1));
  writer.numbers();
  writer.signal();
  watcher.signal();
  const std::optional<std::vector<double>> beside = watcher.numbers_within(patience_seconds);
  writer.signal();
  session.report("reader_alone", alone[0]);
  session.report("reader_alone_p999", alone[1]);
  if (!beside) {
    watcher.numbers();  // alone again, it comes to its end, and leaves the lock
    return;
  }
  check_sum(beside->at(2), sum);
  session.report("reader_beside_writer", (*beside)[0]);
  session.report("reader_beside_writer_p999", (*beside)[1]);
}

// Both want the lock all the time: nanoseconds per transaction of one update.
void writer_two(const Session& session) {
  check_interruption();
  const std::int64_t count = session.at_most(transactions);
  Child writers[] = {Child(task(session, "taker", count, session.seed)),
                     Child(task(session, "taker", count, session.seed + 1))};
  for (Child& writer : writers) writer.numbers();
  for (Child& writer : writers) writer.signal();
  const double ns = std::max(writers[0].numbers().at(0), writers[1].numbers().at(0));
  session.report("writer_two", ns / static_cast<double>(2 * count));
}

}  // namespace

std::span<const Scenario> in_processes() {
  static constexpr Scenario scenarios[] = {
      {"cold", shared, cold},
      {"two_readers", shared, two_readers},
      {"reader_beside_writer", shared, reader_beside_writer},
      {"writer_two", shared, writer_two},
  };
  return scenarios;
}

}  // namespace bench
