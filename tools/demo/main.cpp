// cachet-demo: several processes fill, change and search a database that holds this machine's Debian package
// index, and check every answer. Status 0: all checks passed; 1: something differs; 2: the demo could not
// start.
#include <clocale>
#include <cstdio>
#include <exception>

#include "demo.h"
#include "text.h"

int main() {
  std::setlocale(LC_ALL, "");
  demo::catch_signals();
  try {
    demo::PackageIndex index = demo::read_package_index();
    if (index.packages.empty()) {
      std::fputs("cachet-demo: this machine has no Debian package index\n", stderr);
      return 2;
    }
    const size_t count = index.packages.size();
    demo::print(std::string("cachet ") + ZtGetLibVersion() + "\n\n" +
                demo::with_thousands(static_cast<int64_t>(count)) + " packages from " + index.source +
                (count < 10'000 ? " (after apt-get update there are more)" : "") + "\n");
    demo::Demo story{demo::Model(std::move(index.packages))};
    const bool passed = story.run();
    demo::print(passed ? "\nAll checks passed.\n" : "\nFAILED\n");
    return passed ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "cachet-demo: %s\n", error.what());
    return 2;
  }
}
