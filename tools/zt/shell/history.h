// The lines that were typed, also in earlier shells: a file with one line each, newest last, of bounded length. It lies
// in $XDG_STATE_HOME/zt, or ~/.local/state/zt, for its user alone.
#ifndef CACHET_TOOLS_ZT_SHELL_HISTORY_H
#define CACHET_TOOLS_ZT_SHELL_HISTORY_H

#include <filesystem>
#include <string>
#include <vector>

namespace zt {

inline constexpr int most_remembered = 1000;

// Lines are in the locale's encoding. What cannot be read or written is left out: a shell works without a history.
class HistoryFile {
 public:
  HistoryFile();

  // The newest lines, oldest first. Shortens a file that has grown to twice as many.
  std::vector<std::string> read() const;
  void append(const std::string& line) const;

 private:
  void write(const std::vector<std::string>& lines) const;

  std::filesystem::path path_;  // empty when there is no home
};

}  // namespace zt

#endif
