#include "zt/screen.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "zt/status.h"

namespace zt {
namespace {

constexpr char enter[] = "\033[?1049h\033[?25l";  // the other screen, without a cursor
constexpr char leave[] = "\033[?25h\033[?1049l";
constexpr char home[] = "\033[H";
constexpr char rest_of_line[] = "\033[K";
constexpr char rest_of_screen[] = "\033[J";

winsize size_of_terminal() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
    return {24, 80, 0, 0};
  return size;
}

void print(const std::string& bytes) {
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  std::fflush(stdout);
}

}  // namespace

Screen::Screen(const Encoding& encoding) : encoding_(encoding) {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0 || tcgetattr(STDIN_FILENO, &before_) != 0) {
    throw UsageError(tr("a full screen needs a terminal; for a pipe there is zt stat"));
  }
  termios raw = before_;
  raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
  raw.c_cc[VSUSP] = _POSIX_VDISABLE;  // a stopped tool would leave the other screen behind
  tcsetattr(STDIN_FILENO, TCSANOW, &raw);
  print(enter);
}

Screen::~Screen() {
  print(leave);
  tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

int Screen::columns() const {
  return size_of_terminal().ws_col;
}

int Screen::lines() const {
  return size_of_terminal().ws_row;
}

void Screen::show(const std::vector<std::string>& lines) const {
  std::string frame = home;
  const std::size_t count = std::min(lines.size(), static_cast<std::size_t>(this->lines()));
  for (std::size_t i = 0; i < count; ++i) {
    frame += encoding_.to_outside(lines[i]) + rest_of_line + (i + 1 < count ? "\r\n" : "");
  }
  print(frame + rest_of_screen);
}

char Screen::key() const {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  char pressed = 0;
  if (poll(&input, 1, 0) <= 0 || read(STDIN_FILENO, &pressed, 1) != 1) return 0;
  return pressed;
}

}  // namespace zt
