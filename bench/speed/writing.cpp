// The scenarios of one process that change rows. See operations.h.
#include <algorithm>
#include <utility>

#include "clock.h"
#include "interruption.h"
#include "operations.h"

namespace bench {
namespace {

constexpr std::int64_t changes = 100000;
constexpr std::int64_t rows_per_transaction = 100;
constexpr std::int64_t rows_per_rollback = 1000;
constexpr std::int64_t rollbacks = 10;
constexpr std::int64_t empty_transactions = 100000;
constexpr double raise = 0.25;

bool always(const System&) {
  return true;
}
bool rolls_back(const System& system) {
  return system.rolls_back();
}
bool locks(const System& system) {
  return system.locks();
}

double sum_of_all(const Rows& rows) {
  const auto count = static_cast<double>(rows.count());
  return count * (count - 1) / 2;
}

// Reports nanoseconds per item, 100 to a transaction.
template <typename Item, typename Change>
void change_all(const Session& session, const char* operation, const std::vector<Item>& items,
                Change change) {
  const Stopwatch stopwatch;
  for (std::size_t i = 0; i < items.size();) {
    check_interruption();
    const std::size_t end = std::min(i + rows_per_transaction, items.size());
    session.system.begin();
    for (; i < end; ++i) change(items[i]);
    session.system.commit();
  }
  session.report(operation, stopwatch.elapsed_ns() / static_cast<double>(items.size()));
}

// The new prices are looked up beforehand: they are the benchmark's memory, not the system's.
void update(const Session& session) {
  std::vector<std::pair<std::int64_t, double>> prices;
  for (const std::int64_t id : distinct_ids(session.rows.count(), session.at_most(changes), session.seed))
    prices.emplace_back(id, session.rows.price(id) + raise);
  change_all(session, "update", prices,
             [&](const auto& price) { session.system.set_price(price.first, price.second); });
  check_sum(session.system.range(0, session.rows.count()),
            sum_of_all(session.rows) + raise * static_cast<double>(prices.size()));
}

// Of updates; only the taking back is measured.
void rollback(const Session& session) {
  const double before = session.system.range(0, session.rows.count());
  const std::int64_t count = std::min(rows_per_rollback, session.rows.count());
  double ns = 0;
  for (std::int64_t round = 0; round < rollbacks; ++round) {
    const std::vector<std::int64_t> ids =
        distinct_ids(session.rows.count(), count, session.seed + static_cast<std::uint64_t>(round));
    session.system.begin();
    for (const std::int64_t id : ids) session.system.set_price(id, 0);
    const Stopwatch stopwatch;
    session.system.rollback();
    ns += stopwatch.elapsed_ns();
  }
  check_sum(session.system.range(0, session.rows.count()), before);
  session.report("rollback", ns / static_cast<double>(rollbacks * count));
}

void lock_unlock(const Session& session) {
  session.system.lock_unlock();
  const Stopwatch stopwatch;
  for (std::int64_t i = 0; i < empty_transactions; ++i) session.system.lock_unlock();
  session.report("lock_unlock", stopwatch.elapsed_ns() / static_cast<double>(empty_transactions));
}

// Half of the table at most.
void erase(const Session& session) {
  const std::int64_t count = std::min(session.at_most(changes), session.rows.count() / 2);
  const std::vector<std::int64_t> ids = distinct_ids(session.rows.count(), count, session.seed + 1);
  double left = session.system.range(0, session.rows.count());
  for (const std::int64_t id : ids) left -= session.system.get_id(id);
  change_all(session, "delete", ids, [&](std::int64_t id) { session.system.erase(id); });
  check_sum(session.system.range(0, session.rows.count()), left);
}

}  // namespace

std::span<const Scenario> writing() {
  static constexpr Scenario scenarios[] = {
      {"update", always, update},
      {"rollback", rolls_back, rollback},
      {"lock_unlock", locks, lock_unlock},
  };
  return scenarios;
}

std::span<const Scenario> removing() {
  static constexpr Scenario scenarios[] = {{"delete", always, erase}};
  return scenarios;
}

}  // namespace bench
