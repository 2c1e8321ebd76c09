// Usage: bench_recovery [ROWS]
//
// What it costs an insert that a process may die in it: inserts ROWS rows (200,000) with the library and with one that was
// built without recovery (CACHET_WITHOUT_RECOVERY), in turn, and prints the medians and the median of the ratios.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr int pairs = 9;

// Nanoseconds per row; exits when the program fails.
double run(const std::filesystem::path& program, const std::string& rows, const char* order) {
  const std::string command = program.string() + " " + rows + " " + order;
  FILE* const output = popen(command.c_str(), "r");
  double time_ns = 0;
  const bool read = output != nullptr && std::fscanf(output, "%lf", &time_ns) == 1;
  if (output == nullptr || pclose(output) != 0 || !read) {
    std::fprintf(stderr, "bench_recovery: '%s' failed\n", command.c_str());
    std::exit(1);
  }
  return time_ns;
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + pairs / 2, values.end());
  return values[pairs / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const std::string rows = argc > 1 ? argv[1] : "200000";
  const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  for (const char* const order : {"random", "sorted"}) {
    std::vector<double> with, without, ratios;
    for (int pair = 0; pair < pairs; ++pair) {
      with.push_back(run(folder / "insert_rows", rows, order));
      without.push_back(run(folder / "insert_rows_without_recovery", rows, order));
      ratios.push_back(with.back() / without.back());
    }
    std::printf("insert, %s order: %.0f ns with recovery, %.0f ns without, ratio %.3f\n", order, median(with),
                median(without), median(ratios));
  }
}
