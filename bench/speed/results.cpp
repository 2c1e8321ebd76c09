// See results.h.
#include "results.h"

#include <algorithm>

namespace bench {
namespace {

void append_once(std::vector<std::string>& names, const std::string& name) {
  if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

}  // namespace

void Results::add(const std::string& system, const std::string& operation, double ns) {
  append_once(systems_, system);
  append_once(operations_, operation);
  values_[{system, operation}].push_back(ns);
}

std::optional<double> Results::median(const std::string& system, const std::string& operation) const {
  const auto found = values_.find({system, operation});
  if (found == values_.end()) return std::nullopt;
  std::vector<double> values = found->second;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace bench
