// See round_trips.h.
#include "round_trips.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "channel.h"
#include "clock.h"
#include "interruption.h"
#include "system.h"

namespace bench {
namespace {

constexpr int trips = 20000;
constexpr int trips_when_busy = 2000;
constexpr int untimed_trips = 200;

// A child made by fork that runs `work`, and is killed in the end if it still does.
class Forked {
 public:
  template <typename Work>
  explicit Forked(Work work) : pid_(fork()) {
    require(pid_ >= 0, "no child process");
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
      work();
    } catch (...) {
      _exit(1);
    }
    _exit(0);
  }
  ~Forked() {
    if (pid_ == 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Forked(Forked&& other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
  Forked(const Forked&) = delete;
  Forked& operator=(const Forked&) = delete;
  Forked& operator=(Forked&&) = delete;

 private:
  pid_t pid_;
};

std::vector<Forked> busy_cores() {
  std::vector<Forked> cores;
  for (unsigned core = 0; core < std::thread::hardware_concurrency(); ++core) {
    cores.emplace_back([] {
      for (volatile unsigned work = 0;;) work = work + 1;
    });
  }
  return cores;
}

double ns_per_trip(Channel& channel, std::size_t size, int count) {
  const Forked server([&] {
    channel.be_server();
    for (int trip = 0; trip < untimed_trips + count; ++trip) channel.answer(size);
  });
  channel.be_client();
  char sent[max_message_bytes];
  char message[max_message_bytes];
  std::memset(sent, 'm', sizeof sent);
  std::memcpy(message, sent, sizeof message);
  for (int trip = 0; trip < untimed_trips; ++trip) channel.ask(message, size);
  const Stopwatch stopwatch;
  for (int trip = 0; trip < count; ++trip) channel.ask(message, size);
  const double ns = stopwatch.elapsed_ns();
  require(std::memcmp(message, sent, size) == 0, "a channel changed its message");
  return ns / count;
}

}  // namespace

void measure_round_trips(const std::string& folder, Results& results) {
  const std::pair<const char*, std::unique_ptr<Channel> (*)(const std::string&)> channels[] = {
      {"cachet", make_mailbox},
      {"unix-socket", [](const std::string&) { return make_unix_socket(); }},
      {"pipe", [](const std::string&) { return make_pipe(); }},
      {"futex", [](const std::string&) { return make_futex(); }},
  };
  const std::pair<const char*, std::size_t> messages[] = {{"roundtrip_64", 64}, {"roundtrip_1k", 1024}};
  for (const bool busy : {false, true}) {
    const std::vector<Forked> cores = busy ? busy_cores() : std::vector<Forked>();
    for (const auto& [operation, size] : messages) {
      for (const auto& [name, make] : channels) {
        check_interruption();
        const std::unique_ptr<Channel> channel = make(folder);
        results.add(name, std::string(operation) + (busy ? "_busy" : ""),
                    ns_per_trip(*channel, size, busy ? trips_when_busy : trips));
      }
    }
  }
}

}  // namespace bench
