// zt bench: the library's own speed on this host, measured in a database of its own.
#include <cmath>

#include "zt/bench/workload.h"
#include "zt/commands.h"
#include "zt/output/progress.h"
#include "zt/stop.h"

namespace zt {
namespace {

class Bench final : public Command {
 public:
  void declare(CLI::App& app) override {
    app.add_option("--rows", rows_, "Rows in the table")
        ->check(CLI::Range(1000, 50'000'000))
        ->capture_default_str();
    app.add_option("--seconds", seconds_, "How long to measure, without filling the table")
        ->check(CLI::Range(0.01, 3600.0))
        ->capture_default_str();
  }

  Status run(Context& context) override {
    catch_stop_signals();
    const bench::PrivateDatabase database(rows_);
    const auto rows = context.rows({{"operation"},
                                    {"handle"},
                                    {"rows", Kind::integer},
                                    {"done", Kind::integer},
                                    {"ns", Kind::real},
                                    {"per_second", Kind::integer}});
    const auto operations = bench::operations();
    const double each_s = seconds_ / static_cast<double>(operations.size());
    Progress progress(context.encoding(), tr("measuring"), tr("operations"));
    for (std::size_t i = 0; i < operations.size(); ++i) {
      progress.draw(static_cast<std::int64_t>(i),
                    static_cast<double>(i) / static_cast<double>(operations.size()));
      const bench::Measured measured = operations[i].run(database, each_s);
      rows->row({std::string(operations[i].name), std::string(operations[i].handle), std::int64_t{rows_},
                 measured.count, std::round(measured.nanoseconds_each() * 10) / 10,
                 static_cast<std::int64_t>(static_cast<double>(measured.count) / measured.seconds)});
    }
    progress.end();
    rows->end();
    return Status::ok;
  }

 private:
  int rows_ = 200'000;
  double seconds_ = 8;
};

}  // namespace

std::unique_ptr<Command> make_bench() {
  return std::make_unique<Bench>();
}

}  // namespace zt
