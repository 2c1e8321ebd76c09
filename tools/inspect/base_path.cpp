#include "inspect/base_path.h"

#include <array>
#include <cstdio>

namespace cachet::inspect {

BasePath BasePath::parse(const std::string& text) {
  const std::size_t name_at = text.find_last_of('/');
  if (name_at == std::string::npos) return {".", text};
  std::size_t directory_end = name_at;
  while (directory_end > 0 && text[directory_end - 1] == '/') --directory_end;
  return {directory_end == 0 ? "/" : text.substr(0, directory_end), text.substr(name_at + 1)};
}

std::string BasePath::segment_file(int index) const {
  std::array<char, 16> suffix{};
  std::snprintf(suffix.data(), suffix.size(), "%02d.data", index);
  return text() + suffix.data();
}

std::string BasePath::semaphore_file(int slot, char role) const {
  return text() + "." + std::to_string(slot + 1) + "." + role + ".s0.sem";
}

}  // namespace cachet::inspect
