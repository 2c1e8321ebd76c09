// Every measured number, and the medians that are reported.
#ifndef CACHET_BENCH_RESULTS_H
#define CACHET_BENCH_RESULTS_H

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

class Results {
 public:
  void add(const std::string& system, const std::string& operation, double ns);
  // Nothing where the system has no such operation.
  std::optional<double> median(const std::string& system, const std::string& operation) const;
  // In the order in which they first came.
  const std::vector<std::string>& systems() const { return systems_; }
  const std::vector<std::string>& operations() const { return operations_; }

 private:
  std::map<std::pair<std::string, std::string>, std::vector<double>> values_;
  std::vector<std::string> systems_;
  std::vector<std::string> operations_;
};

}  // namespace bench

#endif
