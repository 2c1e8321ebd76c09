// See rows.h.
#include "rows.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <random>

namespace bench {
namespace {

constexpr std::uint64_t cycle_seed = 1;
constexpr std::uint64_t order_seed = 2;

// A random permutation of one cycle (Sattolo's).
std::vector<std::int32_t> random_cycle(std::size_t count) {
  std::vector<std::int32_t> next(count);
  std::iota(next.begin(), next.end(), 0);
  std::mt19937_64 random(cycle_seed);
  for (std::size_t i = count; i-- > 1;) std::swap(next[i], next[random() % i]);
  return next;
}

std::vector<std::int64_t> shuffled(std::int64_t rows, std::uint64_t seed) {
  std::vector<std::int64_t> ids(static_cast<std::size_t>(rows));
  std::iota(ids.begin(), ids.end(), 0);
  std::mt19937_64 random(seed);
  std::shuffle(ids.begin(), ids.end(), random);
  return ids;
}

}  // namespace

Rows::Rows(std::int64_t count, Order order)
    : next_(random_cycle(static_cast<std::size_t>(count))), insertion_order_(shuffled(count, order_seed)) {
  if (order == Order::sorted) std::sort(insertion_order_.begin(), insertion_order_.end());
}

Row Rows::row(std::int64_t id) const {
  return {id, name(id), group(id), price(id)};
}

Name Rows::name(std::int64_t id) const {
  Name name = {};
  if (id == outlier()) {
    std::snprintf(name.text, sizeof name.text, "aaa");
  } else {
    std::snprintf(name.text, sizeof name.text, "name-%08lld", static_cast<long long>(id));
  }
  return name;
}

std::int32_t Rows::group(std::int64_t id) {
  const auto scattered = static_cast<std::uint64_t>(id) * 0x9E3779B97F4A7C15U;
  return static_cast<std::int32_t>((scattered >> 40) % groups);
}

std::vector<std::int64_t> random_ids(std::int64_t rows, std::int64_t count, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<std::int64_t> ids(static_cast<std::size_t>(count));
  for (std::int64_t& id : ids) id = static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(rows));
  return ids;
}

std::vector<std::int64_t> distinct_ids(std::int64_t rows, std::int64_t count, std::uint64_t seed) {
  std::vector<std::int64_t> ids = shuffled(rows, seed);
  ids.resize(static_cast<std::size_t>(count));
  return ids;
}

}  // namespace bench
