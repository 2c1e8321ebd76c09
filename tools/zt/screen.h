// The terminal as a whole screen, in plain ANSI sequences; whatever ends the scope gives it back as it was.
#ifndef CACHET_TOOLS_ZT_SCREEN_H
#define CACHET_TOOLS_ZT_SCREEN_H

#include <termios.h>

#include <string>
#include <vector>

#include "zt/output/encoding.h"

namespace zt {

class Screen {
 public:
  // Throws UsageError when standard input or output is no terminal.
  explicit Screen(const Encoding& encoding);
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  int columns() const;
  int lines() const;
  // Replaces what is shown. Lines are UTF-8, and as wide as the screen at most.
  void show(const std::vector<std::string>& lines) const;
  // The key that was pressed, 0 when none was.
  char key() const;

 private:
  const Encoding& encoding_;
  termios before_{};
};

}  // namespace zt

#endif
