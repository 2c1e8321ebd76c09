// Groups and orders the packages with the standard library alone.
#include "model.h"

#include <algorithm>
#include <map>
#include <numeric>

namespace demo {

Model::Model(std::vector<Package> packages) : packages_(std::move(packages)) {
  std::map<std::string, size_t> numbers;
  for (int id = 0; id < count(); ++id) {
    const auto [found, is_new] = numbers.try_emplace(package(id).section, sections_.size());
    if (is_new) sections_.push_back({package(id).section, {}});
    sections_[found->second].record_ids.push_back(id);
    section_numbers_.push_back(found->second);
  }
  largest_.resize(packages_.size());
  std::iota(largest_.begin(), largest_.end(), 0);
  const size_t shown = std::min<size_t>(10, largest_.size());
  std::partial_sort(
      largest_.begin(), largest_.begin() + static_cast<std::ptrdiff_t>(shown), largest_.end(),
      [this](int a, int b) { return std::pair(package(a).size_kib, a) > std::pair(package(b).size_kib, b); });
  largest_.resize(shown);
}

int Model::choose(std::mt19937& random) const {
  constexpr int64_t favourites = 16;
  const auto below = [&](int64_t limit) {
    return std::uniform_int_distribution<int64_t>(0, limit - 1)(random);
  };
  const bool favourite = below(2) == 0;
  return static_cast<int>(favourite ? below(favourites) * count() / favourites : below(count()));
}

const char* Model::complaint_about(const Row& row) const {
  if (!row.sealed) return "the seal of a row is broken: it was read half-way through a change";
  if (row.account.stock < 0) return "a stock is negative: a change was seen that was rolled back";
  if (row.record_id < 0) return "a row has no record id";
  if (row.record_id >= count()) {
    return row.name.starts_with(kKeptPrefix) ? nullptr : "a row was seen that nobody ever committed";
  }
  const Package& expected = package(row.record_id);
  const bool equal = row.name == expected.name && row.version == expected.version &&
                     row.section == expected.section && row.priority == expected.priority &&
                     row.summary == expected.summary && row.size_kib == expected.size_kib;
  return equal ? nullptr : "a row differs from its package";
}

Package made_up_package(const Model& model, std::string_view prefix, int writer, int serial) {
  const Package& pattern = model.package((serial * 7919 + writer) % model.count());
  Package package;
  package.name = std::string(prefix) + std::to_string(writer) + "-" + std::to_string(serial);
  package.version = "1";
  package.section = pattern.section;
  package.priority = "extra";
  package.summary = "made up by writer " + std::to_string(writer);
  package.size_kib = std::min(pattern.size_kib, model.size_limit_kib() - 1);
  return package;
}

}  // namespace demo
