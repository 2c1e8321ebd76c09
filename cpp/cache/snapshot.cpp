#include "cache/snapshot.h"

#include <algorithm>
#include <ctime>

namespace cachet {

namespace {

constexpr int writers_position = 0;
constexpr long first_pause_ns = 1'000;
constexpr long longest_pause_ns = 1'000'000;

}  // namespace

void WriterWait::operator()() {
  const bool held_already = database_->locks.contains(writers_position);
  if (!held_already && ZtLockPosition(database_, writers_position)) return;
  pause_ns_ = std::clamp(pause_ns_ * 2, first_pause_ns, longest_pause_ns);
  const timespec pause{0, pause_ns_};
  nanosleep(&pause, nullptr);
}

}  // namespace cachet
