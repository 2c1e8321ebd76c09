// How far a long command is: a bar, rows a second and the time left, on one line of standard error. Nothing is shown
// unless standard error is a terminal that can take a line back.
#ifndef CACHET_TOOLS_ZT_OUTPUT_PROGRESS_H
#define CACHET_TOOLS_ZT_OUTPUT_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

#include "zt/output/encoding.h"

namespace zt {

// What a bar says; its words are in the language of the user.
struct ProgressText {
  std::string doing;   // "importing"
  std::string unit;    // "rows"
  std::int64_t count;  // of units so far
  double share;        // of all work, from 0 to 1; negative when it is not known
  double elapsed_s;
};
std::string progress_line(const ProgressText& text, int columns, bool boxes);

class Progress {
 public:
  // `encoding` outlives it. `wanted` false: nothing is shown, whatever standard error is.
  Progress(const Encoding& encoding, std::string doing, std::string unit, bool wanted = true);
  ~Progress() { end(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Cheap enough to be called for every row: looks at the clock now and then, and draws ten times a second at most.
  void at(std::int64_t count, double share) {
    if (shown_ && ++calls_ % calls_per_look == 0) look(count, share);
  }
  // Draws now, however short ago the last time was; for steps that take long each.
  void draw(std::int64_t count, double share);
  // Takes the line away.
  void end();

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr unsigned calls_per_look = 64;

  void look(std::int64_t count, double share);

  const Encoding& encoding_;
  std::string doing_, unit_;
  bool shown_;
  bool drawn_ = false;
  unsigned calls_ = 0;
  Clock::time_point begin_, next_;
};

}  // namespace zt

#endif
