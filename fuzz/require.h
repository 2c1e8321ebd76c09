// The fuzz targets' assertion: not one of the tests', since it ends the process, for the fuzzer to see.
#ifndef CACHET_FUZZ_REQUIRE_H
#define CACHET_FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

namespace cachet::fuzz {

inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace cachet::fuzz

#endif
