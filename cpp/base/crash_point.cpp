// Only in the build for crash tests: the process kills itself before its n-th shared store.
#ifdef CACHET_CRASH_POINTS

#include <csignal>

namespace cachet {

long crash_countdown = 0;  // 0 = never

void crash_point() noexcept {
  if (crash_countdown > 0 && --crash_countdown == 0) raise(SIGKILL);
}

}  // namespace cachet

#endif
