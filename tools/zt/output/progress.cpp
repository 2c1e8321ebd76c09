#include "zt/output/progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "zt/output/bar.h"
#include "zt/output/width.h"
#include "zt/translation.h"

namespace zt {
namespace {

constexpr auto between_drawings = std::chrono::milliseconds(100);
constexpr int widest_bar = 40, narrowest_bar = 8;
constexpr char to_line_begin[] = "\r";
constexpr char rest_of_line[] = "\033[K";

bool can_take_back_a_line() {
  const char* const terminal = std::getenv("TERM");
  return isatty(STDERR_FILENO) != 0 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

int columns_of_terminal() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

std::string clock_text(double seconds) {
  const auto whole = static_cast<std::int64_t>(std::ceil(seconds));
  if (whole < 3600) return fmt::format("{}:{:02}", whole / 60, whole % 60);
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

std::string rate_text(double rate) {
  if (rate >= 1e6) return fmt::format("{:.1f}M ", rate / 1e6);
  if (rate >= 1e4) return fmt::format("{:.0f}k ", rate / 1e3);
  return fmt::format("{:.0f} ", rate);
}

}  // namespace

std::string progress_line(const ProgressText& text, int columns, bool boxes) {
  std::string numbers = fmt::format("{} {}", text.count, text.unit);
  if (text.elapsed_s > 0) {
    const double rate = static_cast<double>(text.count) / text.elapsed_s;
    numbers += fmt::format(", {}{}/s", rate_text(rate), text.unit);
  }
  if (text.share < 0) return cut_to(text.doing + ": " + numbers, static_cast<std::size_t>(columns), "~");
  const double share = std::min(text.share, 1.0);
  if (share > 0) numbers += ", " + tr("{} left", clock_text(text.elapsed_s * (1 - share) / share));
  std::string line = fmt::format(" {:3.0f} %, {}", 100 * share, numbers);
  const int room = columns - static_cast<int>(width_of(text.doing) + width_of(line)) - 3;
  const std::string bar =
      room < narrowest_bar ? "" : " " + memory_bar(share, 0, {std::min(room, widest_bar), false, boxes});
  return cut_to(text.doing + bar + line, static_cast<std::size_t>(columns), "~");
}

Progress::Progress(const Encoding& encoding, std::string doing, std::string unit, bool wanted)
    : encoding_(encoding),
      doing_(std::move(doing)),
      unit_(std::move(unit)),
      shown_(wanted && can_take_back_a_line()),
      begin_(Clock::now()),
      next_(begin_ + between_drawings) {}

void Progress::look(std::int64_t count, double share) {
  if (Clock::now() >= next_) draw(count, share);
}

void Progress::draw(std::int64_t count, double share) {
  if (!shown_) return;
  const Clock::time_point now = Clock::now();
  next_ = now + between_drawings;
  const double elapsed_s = std::chrono::duration<double>(now - begin_).count();
  // The last column stays empty: a character there would take the cursor to the next line.
  const std::string line = progress_line({doing_, unit_, count, share, elapsed_s},
                                         std::max(columns_of_terminal() - 1, 1), encoding_.has_boxes());
  std::fputs((to_line_begin + encoding_.to_outside(line) + rest_of_line).c_str(), stderr);
  std::fflush(stderr);
  drawn_ = true;
}

void Progress::end() {
  if (drawn_) std::fprintf(stderr, "%s%s", to_line_begin, rest_of_line);
  std::fflush(stderr);
  drawn_ = false;
}

}  // namespace zt
