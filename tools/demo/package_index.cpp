// Reads "Key: value" stanzas separated by empty lines. Continuation lines start with a blank and are skipped:
// of a description only its first line is kept.
#include "package_index.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <istream>
#include <memory>
#include <sstream>
#include <string_view>
#include <unordered_set>

namespace demo {
namespace {

void take_line(std::string_view line, Package& package) {
  const size_t colon = line.find(": ");
  if (colon == std::string_view::npos || line.front() == ' ' || line.front() == '\t') return;
  const std::string_view key = line.substr(0, colon);
  const std::string_view value = line.substr(colon + 2);
  if (key == "Package") package.name = value;
  if (key == "Version") package.version = value;
  if (key == "Section") package.section = value;
  if (key == "Priority") package.priority = value;
  if (key == "Description" || key == "Description-en") package.summary = value;
  if (key == "Installed-Size") package.size_kib = std::strtoll(value.data(), nullptr, 10);
}

std::vector<Package> parse(std::istream& in) {
  std::vector<Package> packages;
  std::unordered_set<std::string> seen;
  Package package;
  const auto finish = [&] {
    const bool complete = !package.name.empty() && !package.version.empty() && !package.section.empty();
    if (complete && seen.insert(package.name + '\n' + package.version).second) packages.push_back(package);
    package = Package{};
  };
  for (std::string line; std::getline(in, line);) {
    if (line.empty()) {
      finish();
    } else {
      take_line(line, package);
    }
  }
  finish();
  return packages;
}

std::string output_of(const char* command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command, "r"), pclose);
  std::string output;
  char block[1 << 16];
  while (pipe) {
    const size_t length = std::fread(block, 1, sizeof block, pipe.get());
    if (length == 0) break;
    output.append(block, length);
  }
  return output;
}

}  // namespace

PackageIndex read_package_index() {
  std::istringstream available(output_of("apt-cache dumpavail 2>/dev/null"));
  PackageIndex index{"apt-cache dumpavail", parse(available)};
  if (!index.packages.empty()) return index;
  std::ifstream installed("/var/lib/dpkg/status");
  return {"/var/lib/dpkg/status", parse(installed)};
}

}  // namespace demo
