#include "zt/context.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

#include "zt/status.h"

namespace zt {
namespace {

Format format_of(const Settings& settings) {
  const int chosen =
      settings.box + settings.tabs + settings.json + settings.csv + settings.markdown + settings.line;
  if (chosen > 1)
    throw UsageError(tr("only one of --box, --tsv, --json, --csv, --md and --line can be asked for"));
  if (settings.box) return Format::box;
  if (settings.tabs) return Format::tabs;
  if (settings.json) return Format::json;
  if (settings.csv) return Format::csv;
  if (settings.markdown) return Format::markdown;
  if (settings.line) return Format::line;
  return isatty(STDOUT_FILENO) != 0 ? Format::box : Format::tabs;
}

bool use_color(const std::string& choice) {
  if (choice != "auto") return choice == "always";
  const char* const terminal = std::getenv("TERM");
  const bool dumb = terminal == nullptr || std::string(terminal) == "dumb";
  return isatty(STDOUT_FILENO) != 0 && !dumb && std::getenv("NO_COLOR") == nullptr;
}

// 0 when the output is no terminal.
int terminal_width() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace

void Settings::take_format(const Settings& other) {
  box = other.box;
  tabs = other.tabs;
  json = other.json;
  csv = other.csv;
  markdown = other.markdown;
  line = other.line;
}

Context::Context(const Settings& settings)
    : settings_(settings),
      encoding_(settings.encoding.empty() ? Encoding::of_locale() : settings.encoding,
                settings.stored_encoding),
      style_{format_of(settings), Shape::table, use_color(settings.color), terminal_width()} {}

std::unique_ptr<RowSink> Context::rows(std::vector<Column> columns, Shape shape) const {
  Style style = style_;
  style.shape = shape;
  return make_sink(style, std::move(columns), encoding_, stdout);
}

void Context::print(const std::string& utf8) const {
  if (for_people()) std::fputs(encoding_.to_outside(utf8).c_str(), stdout);
}

void Context::say(const std::string& utf8) const {
  std::fflush(stdout);
  std::fputs(("zt: " + encoding_.to_outside(utf8) + "\n").c_str(), stderr);
}

std::string Context::argument(std::string_view text) const {
  if (auto utf8 = encoding_.exactly_from_outside(text)) return *std::move(utf8);
  throw UsageError(tr("\"{}\" is no text in the locale's encoding; to name another: --encoding",
                      encoding_.from_outside(text)));
}

void Context::say_left_alone(const std::string& shown_path) const {
  say(tr(
      "the last process left {} while it was looked at, so its memory stays behind; to remove it: zt rm {}",
      shown_path, shown_path));
}

}  // namespace zt
