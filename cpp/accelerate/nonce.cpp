// Drawing nonces.
#include <sys/random.h>

#include "accelerate_nonce.h"
#include "base/features.h"

namespace cachet {

namespace {

std::uint64_t random_number() noexcept {
  std::uint64_t number = 0;
  if constexpr (features::nonces) {
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number) return 0;
  }
  return number;
}

}  // namespace

void renew_nonce(Rb_node head) noexcept {
  store_release<std::uint64_t>(reinterpret_cast<char*>(head) + nonce_at, random_number());
}

}  // namespace cachet
