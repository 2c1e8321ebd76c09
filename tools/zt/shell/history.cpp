#include "zt/shell/history.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <system_error>

namespace zt {
namespace {

constexpr std::size_t longest_file = 2UL * most_remembered;

std::filesystem::path state_folder() {
  const char* const state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && state[0] == '/') return state;
  const char* const home = std::getenv("HOME");
  return home != nullptr && home[0] == '/' ? std::filesystem::path(home) / ".local/state"
                                           : std::filesystem::path();
}

}  // namespace

HistoryFile::HistoryFile() {
  const auto state = state_folder();
  if (state.empty()) return;
  std::error_code error;
  std::filesystem::create_directories(state, error);
  mkdir((state / "zt").c_str(), S_IRWXU);
  path_ = state / "zt/history";
}

std::vector<std::string> HistoryFile::read() const {
  std::vector<std::string> lines;
  std::ifstream file(path_);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty()) lines.push_back(line);
  }
  const std::size_t read = lines.size();
  if (read > most_remembered) lines.erase(lines.begin(), lines.end() - most_remembered);
  if (read >= longest_file) write(lines);
  return lines;
}

// Whole under another name first: whoever reads meanwhile reads either the old file or the new one.
void HistoryFile::write(const std::vector<std::string>& lines) const {
  const std::string beside = path_.string() + "." + std::to_string(getpid());
  const int file = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (file < 0) return;
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  const bool whole = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  if (close(file) != 0 || !whole || rename(beside.c_str(), path_.c_str()) != 0) unlink(beside.c_str());
}

// In one write, so that the lines of two shells do not mix.
void HistoryFile::append(const std::string& line) const {
  if (path_.empty()) return;
  const int file =
      open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  if (file < 0) return;
  const std::string text = line + "\n";
  [[maybe_unused]] const ssize_t written = ::write(file, text.data(), text.size());
  close(file);
}

}  // namespace zt
