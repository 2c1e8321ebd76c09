#include "inspect/stop.h"

#include <csignal>

#include "inspect/translate.h"

namespace cachet::inspect {
namespace {

volatile std::sig_atomic_t asked_by = 0;

}  // namespace

void ask_to_stop(int signal) noexcept {
  if (asked_by == 0 || asked_by == SIGINT) asked_by = signal;
}

bool stop_asked() noexcept {
  return asked_by != 0;
}

bool forget_interrupt() noexcept {
  if (asked_by == SIGINT) asked_by = 0;
  return asked_by == 0;
}

void throw_stopped() {
  throw Stopped(tr("interrupted"));
}

}  // namespace cachet::inspect
