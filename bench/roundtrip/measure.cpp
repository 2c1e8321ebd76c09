#include "measure.h"

#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

namespace roundtrip {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int warm_up = 1000;
constexpr int per_look_at_the_clock = 200;

// The first byte of a request that is the last one.
constexpr char last_request = 'x';

[[noreturn]] void answer_until_told(Way& way, int body_bytes) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  way.enter_child();
  std::vector<char> bytes(static_cast<std::size_t>(body_bytes));
  do {
    if (!way.answer(bytes)) fail("answer");
  } while (bytes[0] != last_request);
  _exit(0);
}

void ask(Way& way, std::vector<char>& bytes, int times) {
  for (int i = 0; i < times; ++i) {
    const char mark = static_cast<char>(i % 100);
    bytes.front() = bytes.back() = mark;
    if (!way.ask(bytes) || bytes.front() != mark || bytes.back() != mark) fail("ask");
  }
}

}  // namespace

BusyProcessors::BusyProcessors() {
  for (long i = sysconf(_SC_NPROCESSORS_ONLN); i > 0; --i) {
    const pid_t pid = fork();
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      cpu_set_t one;
      CPU_ZERO(&one);
      CPU_SET(static_cast<int>(i - 1), &one);
      sched_setaffinity(0, sizeof one, &one);
      for (volatile unsigned count = 0;;) count = count + 1;
    }
    spinners_.push_back(pid);
  }
}

BusyProcessors::~BusyProcessors() {
  for (const pid_t pid : spinners_) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
}

double mean_round_trip_ns(Kind kind, int body_bytes, int milliseconds) {
  const std::unique_ptr<Way> way = make_way(kind);
  const pid_t child = fork();
  if (child == 0) answer_until_told(*way, body_bytes);

  std::vector<char> bytes(static_cast<std::size_t>(body_bytes));
  ask(*way, bytes, warm_up);
  const auto start = Clock::now();
  const auto end = start + std::chrono::milliseconds(milliseconds);
  long round_trips = 0;
  auto now = start;
  while (now < end) {
    ask(*way, bytes, per_look_at_the_clock);
    round_trips += per_look_at_the_clock;
    now = Clock::now();
  }
  bytes[0] = last_request;
  if (!way->ask(bytes)) fail("ask");
  waitpid(child, nullptr, 0);
  return std::chrono::duration<double, std::nano>(now - start).count() / static_cast<double>(round_trips);
}

std::vector<double> median_round_trips_ns(int body_bytes, int series, int milliseconds) {
  std::vector<std::vector<double>> means(std::size(kinds));
  for (int i = 0; i < series; ++i) {
    for (std::size_t kind = 0; kind < means.size(); ++kind) {
      means[kind].push_back(mean_round_trip_ns(kinds[kind], body_bytes, milliseconds));
    }
  }
  std::vector<double> medians;
  for (auto& of_kind : means) {
    std::nth_element(of_kind.begin(), of_kind.begin() + series / 2, of_kind.end());
    medians.push_back(of_kind[static_cast<std::size_t>(series / 2)]);
  }
  return medians;
}

}  // namespace roundtrip
