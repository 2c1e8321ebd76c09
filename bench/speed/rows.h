// The rows of the comparison, the keys that are looked up, and so the sums that every system must come to.
//
// The price of a row is the id of another one: all rows form one cycle, so that a lookup's key can come from the row
// found before. Updates add less than one to a price. All sums are exact in a double.
#ifndef CACHET_BENCH_ROWS_H
#define CACHET_BENCH_ROWS_H

#include <cstdint>
#include <vector>

namespace bench {

inline constexpr int name_bytes = 24;
inline constexpr int groups = 1000;

struct Name {
  char text[name_bytes];  // padded with zeros
};

struct Row {
  std::int64_t id;
  Name name;
  std::int32_t grp;
  double price;
};

enum class Order { random, sorted };

class Rows {
 public:
  Rows(std::int64_t count, Order order);

  std::int64_t count() const { return static_cast<std::int64_t>(next_.size()); }
  Row row(std::int64_t id) const;
  double price(std::int64_t id) const { return next_[static_cast<std::size_t>(id)]; }
  // The row whose name is unlike all others.
  std::int64_t outlier() const { return count() / 2; }
  Name name(std::int64_t id) const;
  // All ids, in the order in which they are inserted.
  const std::vector<std::int64_t>& insertion_order() const { return insertion_order_; }

  static std::int32_t group(std::int64_t id);

 private:
  std::vector<std::int32_t> next_;
  std::vector<std::int64_t> insertion_order_;
};

// `count` ids below `rows`, some of them more than once; the same for the same seed in every process.
std::vector<std::int64_t> random_ids(std::int64_t rows, std::int64_t count, std::uint64_t seed);

// `count` different ids.
std::vector<std::int64_t> distinct_ids(std::int64_t rows, std::int64_t count, std::uint64_t seed);

}  // namespace bench

#endif
