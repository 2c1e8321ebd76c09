// zt: the databases of this host, in the hands of whoever sits at a terminal.
#include <clocale>
#include <cstdio>
#include <exception>
#include <filesystem>

#include "inspect/translate.h"
#include "zt/dispatch.h"

namespace {

// Installed beside bin/, or in a build tree beside the program itself.
std::string folder_of_catalogues() {
  std::error_code error;
  const auto folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  const auto built = folder / "share/locale";
  return std::filesystem::is_directory(built, error) ? built : folder.parent_path() / "share/locale";
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  cachet::inspect::choose_language(folder_of_catalogues());
  zt::Status status = zt::Status::failure;
  try {
    status = zt::CommandLine().run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zt: %s\n", error.what());
  }
  const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  return static_cast<int>(written || status != zt::Status::ok ? status : zt::Status::failure);
}
