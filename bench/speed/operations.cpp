// See operations.h. This file has what all scenarios share, and those that fill the table and read it in one process.
#include "operations.h"

#include <algorithm>

#include "clock.h"
#include "interruption.h"

namespace bench {
namespace {

constexpr int rows_per_transaction = 1000;
constexpr std::int64_t lookups = 200000;
constexpr std::int64_t group_lookups = 20000;
constexpr std::int64_t ranges = 5000;
constexpr int rows_of_group = 10;
constexpr int rows_of_range = 100;

bool always(const System&) {
  return true;
}

std::vector<Name> names_of(const Rows& rows, const std::vector<std::int64_t>& ids) {
  std::vector<Name> names;
  names.reserve(ids.size());
  for (const std::int64_t id : ids) names.push_back(rows.name(id));
  return names;
}

std::vector<std::int64_t> some_ids(const Session& session, std::int64_t count) {
  return random_ids(session.rows.count(), session.at_most(count), session.seed);
}

void insert(const Session& session) {
  std::vector<Row> rows;
  rows.reserve(session.rows.insertion_order().size());
  for (const std::int64_t id : session.rows.insertion_order()) rows.push_back(session.rows.row(id));
  const std::int64_t bytes_before = session.system.bytes();
  const Stopwatch stopwatch;
  for (std::size_t i = 0; i < rows.size();) {
    check_interruption();
    const std::size_t end = std::min(i + rows_per_transaction, rows.size());
    session.system.begin();
    for (; i < end; ++i) session.system.insert(rows[i]);
    session.system.commit();
  }
  const auto count = static_cast<double>(rows.size());
  session.report("insert", stopwatch.elapsed_ns() / count);
  session.report("bytes_per_row", static_cast<double>(session.system.bytes() - bytes_before) / count);
}

// Every row once by id and once by name, so that whatever a system keeps of earlier lookups is there. Not measured.
void meet_all_rows(const Session& session) {
  const std::int64_t count = session.rows.count() / session.system.slowness();
  session.system.begin_reads();
  for (const std::int64_t id : distinct_ids(session.rows.count(), count, session.seed + 1)) {
    session.system.get_id(id);
    session.system.get_name(session.rows.name(id));
  }
  session.system.end_reads();
}

// Looks all keys up, one by one, and reports nanoseconds per key.
template <typename Key, typename Read>
void look_up(const Session& session, const char* operation, const std::vector<Key>& keys, double expected,
             Read read) {
  check_interruption();
  session.system.begin_reads();
  double sum = 0;
  const Stopwatch stopwatch;
  for (const Key& key : keys) sum += read(session.system, key);
  const double ns = stopwatch.elapsed_ns();
  session.system.end_reads();
  check_sum(sum, expected);
  session.report(operation, ns / static_cast<double>(keys.size()));
}

void get_id(const Session& session) {
  const auto ids = some_ids(session, lookups);
  look_up(session, "get_id", ids, sum_of_prices(session.rows, ids),
          [](System& system, std::int64_t id) { return system.get_id(id); });
}

void get_id_dependent(const Session& session) {
  const std::int64_t count = session.at_most(lookups);
  double price = 0;
  for (std::int64_t i = 0; i < count; ++i) price = session.rows.price(static_cast<std::int64_t>(price));
  session.system.begin_reads();
  double found = 0;
  const Stopwatch stopwatch;
  for (std::int64_t i = 0; i < count; ++i) found = session.system.get_id(static_cast<std::int64_t>(found));
  const double ns = stopwatch.elapsed_ns();
  session.system.end_reads();
  check_sum(found, price);
  session.report("get_id_dependent", ns / static_cast<double>(count));
}

void get_name(const Session& session) {
  const auto ids = some_ids(session, lookups);
  look_up(session, "get_name", names_of(session.rows, ids), sum_of_prices(session.rows, ids),
          [](System& system, const Name& name) { return system.get_name(name); });
}

void get_group(const Session& session) {
  std::vector<std::int64_t> rows_in(groups);
  for (std::int64_t id = 0; id < session.rows.count(); ++id)
    ++rows_in[static_cast<std::size_t>(Rows::group(id))];
  std::vector<std::int32_t> keys;
  double expected = 0;
  for (const std::int64_t id : some_ids(session, group_lookups)) {
    keys.push_back(Rows::group(id));
    const std::int64_t rows =
        std::min<std::int64_t>(rows_in[static_cast<std::size_t>(keys.back())], rows_of_group);
    expected += static_cast<double>(rows * keys.back());
  }
  look_up(session, "get_group", keys, expected,
          [](System& system, std::int32_t group) { return system.get_group(group, rows_of_group); });
}

void range100(const Session& session) {
  const auto from = some_ids(session, ranges);
  double expected = 0;
  for (const std::int64_t first : from) {
    const std::int64_t end = std::min(first + rows_of_range, session.rows.count());
    for (std::int64_t id = first; id < end; ++id) expected += session.rows.price(id);
  }
  look_up(session, "range100", from, expected,
          [](System& system, std::int64_t first) { return system.range(first, rows_of_range); });
}

void full_scan(const Session& session) {
  check_interruption();
  const auto count = static_cast<double>(session.rows.count());
  session.system.begin_reads();
  const Stopwatch stopwatch;
  const double sum = session.system.range(0, session.rows.count());
  const double ns = stopwatch.elapsed_ns();
  session.system.end_reads();
  check_sum(sum, count * (count - 1) / 2);
  session.report("full_scan", ns / count);
}

// Looks all keys up, batch_size at a time, and reports nanoseconds per key.
template <typename Key, typename Read>
void look_up_batches(const Session& session, const char* operation, const std::vector<Key>& keys,
                     double expected, Read read) {
  check_interruption();
  const std::span<const Key> all = keys;
  double prices[batch_size];
  double sum = 0;
  session.system.begin_reads();
  const Stopwatch stopwatch;
  for (std::size_t i = 0; i < all.size(); i += batch_size) {
    const std::span<const Key> batch = all.subspan(i, std::min<std::size_t>(batch_size, all.size() - i));
    read(session.system, batch, prices);
    for (std::size_t found = 0; found < batch.size(); ++found) sum += prices[found];
  }
  const double ns = stopwatch.elapsed_ns();
  session.system.end_reads();
  check_sum(sum, expected);
  session.report(operation, ns / static_cast<double>(keys.size()));
}

void batch16_id(const Session& session) {
  const auto ids = some_ids(session, lookups);
  look_up_batches(session, "batch16_id", ids, sum_of_prices(session.rows, ids),
                  [](System& system, std::span<const std::int64_t> batch, double* prices) {
                    system.get_ids(batch, prices);
                  });
}

void batch16_name(const Session& session) {
  const auto ids = some_ids(session, lookups);
  look_up_batches(
      session, "batch16_name", names_of(session.rows, ids), sum_of_prices(session.rows, ids),
      [](System& system, std::span<const Name> batch, double* prices) { system.get_names(batch, prices); });
}

bool takes_batches(const System& system) {
  return system.batches();
}

}  // namespace

std::int64_t Session::at_most(std::int64_t count) const {
  return std::max<std::int64_t>(std::min(rows.count(), count) / system.slowness(), 1);
}

void check_sum(double sum, double expected) {
  if (sum == expected) return;
  throw std::runtime_error("it came to " + std::to_string(sum) + ", not to " + std::to_string(expected));
}

double sum_of_prices(const Rows& rows, std::span<const std::int64_t> ids) {
  double sum = 0;
  for (const std::int64_t id : ids) sum += rows.price(id);
  return sum;
}

std::span<const Scenario> loading() {
  static constexpr Scenario scenarios[] = {{"insert", always, insert}};
  return scenarios;
}

std::span<const Scenario> reading() {
  static constexpr Scenario scenarios[] = {
      {"meet_all_rows", always, meet_all_rows},
      {"get_id", always, get_id},
      {"get_id_dependent", always, get_id_dependent},
      {"get_name", always, get_name},
      {"get_group", always, get_group},
      {"range100", always, range100},
      {"full_scan", always, full_scan},
      {"batch16_id", takes_batches, batch16_id},
      {"batch16_name", takes_batches, batch16_name},
  };
  return scenarios;
}

}  // namespace bench
