// Usage: bench_roundtrip [MILLISECONDS]
//
// A round trip between two processes through the mailbox and through a Unix socket, pipes and a futex: the median of
// series of MILLISECONDS (200) each, taken in turn, with free processors and with a busy process on every one.
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "roundtrip/measure.h"

namespace {

constexpr int series = 7;

void print_row(int body_bytes, bool busy, int milliseconds) {
  std::optional<roundtrip::BusyProcessors> spinners;
  if (busy) spinners.emplace();
  const std::vector<double> medians_ns = roundtrip::median_round_trips_ns(body_bytes, series, milliseconds);
  std::printf("%s processors, %d bytes:", busy ? "busy" : "free", body_bytes);
  for (std::size_t i = 0; i < medians_ns.size(); ++i) {
    std::printf("  %s %.0f ns", roundtrip::name_of(roundtrip::kinds[i]), medians_ns[i]);
  }
  std::printf("  mailbox/socket %.3f\n", medians_ns[0] / medians_ns[1]);
}

}  // namespace

int main(int argc, char** argv) {
  const int milliseconds = argc > 1 ? std::atoi(argv[1]) : 200;
  for (const bool busy : {false, true}) {
    for (const int body_bytes : {64, 1024}) print_row(body_bytes, busy, milliseconds);
  }
}
