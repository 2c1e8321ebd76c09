// The demo's data: the Debian package index of this machine, which nobody wrote for the demo.
//
// A Package is one real record of it. (name, version) pairs are unique in what read_package_index returns.
#ifndef CACHET_TOOLS_DEMO_PACKAGE_INDEX_H
#define CACHET_TOOLS_DEMO_PACKAGE_INDEX_H

#include <cstdint>
#include <string>
#include <vector>

namespace demo {

struct Package {
  std::string name;
  std::string version;
  std::string section;
  std::string priority;
  std::string summary;  // UTF-8, as all texts of the index
  int64_t size_kib = 0;
};

struct PackageIndex {
  std::string source;  // where it comes from, for the user
  std::vector<Package> packages;
};

// Reads `apt-cache dumpavail`, or /var/lib/dpkg/status when that gives nothing. Empty when there is neither.
PackageIndex read_package_index();

}  // namespace demo

#endif
