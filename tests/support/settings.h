// What a run of the tests may be told by its environment.
#ifndef CACHET_TESTS_SUPPORT_SETTINGS_H
#define CACHET_TESTS_SUPPORT_SETTINGS_H

#include <cstdio>
#include <cstdlib>
#include <random>

namespace cachet::test {

inline long setting(const char* name, long otherwise) {
  const char* const text = std::getenv(name);
  return text != nullptr ? std::atol(text) : otherwise;
}

// Another one every time, printed; CACHET_SEED repeats a run.
inline unsigned announced_seed() {
  const auto seed = static_cast<unsigned>(setting("CACHET_SEED", std::random_device()() & 0xffffff));
  std::printf("CACHET_SEED=%u\n", seed);
  return seed;
}

}  // namespace cachet::test

#endif
