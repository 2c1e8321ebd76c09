// zt top: a database on the full screen: its memory as one bar, its rates, and one line for each process.
#include <fmt/format.h>

#include <optional>

#include "zt/commands.h"
#include "zt/output/bar.h"
#include "zt/output/color.h"
#include "zt/output/width.h"
#include "zt/screen.h"
#include "zt/sessions.h"
#include "zt/snapshot.h"
#include "zt/stop.h"

namespace zt {
namespace {

using namespace cachet::inspect;

constexpr std::int64_t most_records_to_count = 200'000;
constexpr int columns_around_bar = 40;

class Top final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_option("-i,--interval", interval_s_, "Seconds between two looks")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
    app.add_option("-n,--count", count_, "How many looks; 0: until q is pressed")
        ->check(CLI::NonNegativeNumber);
  }

  Status run(Context& context) override {
    std::optional<Snapshot> before;
    take_snapshot(context, path_, 0);  // what cannot be looked at is said before the screen changes
    catch_stop_signals();
    const Screen screen(context.encoding());
    try {
      for (long shown = 0; count_ == 0 || shown < count_; ++shown) {
        if (shown > 0 && !wait(screen)) break;
        const Snapshot now = take_snapshot(context, path_, most_records_to_count);
        show(context, screen, before ? rates_between(*before, now) : Rates{}, now);
        before = now;
      }
    } catch (const Stopped&) {
      // Its ordinary end.
    }
    return Status::ok;
  }

 private:
  // False when it is to end.
  bool wait(const Screen& screen) const {
    switch (wait_for(interval_s_, true)) {
      case Wait::stop:
        return false;
      case Wait::key: {
        const char key = screen.key();
        return key != 'q' && key != 'Q' && key != 0;  // 0: the terminal is gone
      }
      case Wait::over:
        break;
    }
    return true;
  }

  void show(const Context& context, const Screen& screen, const Rates& rates, const Snapshot& now) const {
    const auto width = static_cast<std::size_t>(screen.columns());
    std::vector<std::string> lines;
    const auto plain = [&](const std::string& text) { lines.push_back(cut_to(visible(text), width, "~")); };
    plain(fmt::format("{}   version {}   {}   q quits", context.encoding().from_outside(path_),
                      context.from_stored(now.version),
                      for_people(std::int64_t{std::time(nullptr)}, Kind::time)));
    lines.push_back(bar(context, screen, now.fill));
    plain(fmt::format("{} of {} free   {} attached", for_people(now.fill.free_bytes(), Kind::bytes),
                      for_people(now.fill.size_bytes, Kind::bytes), now.attachments));
    plain(fmt::format("inserts {:.0f}/s   changes {}/s   commits {:.0f}/s   rollbacks {:.0f}/s   waiting {}",
                      rates.inserts, rates.changes ? fmt::format("{:.0f}", *rates.changes) : "-",
                      rates.commits, rates.rollbacks, now.waiting));
    plain("");
    plain(fmt::format("{:>8} {:>8}  {:<15} {:>12}  {:<12} {:<10} {}", "PID", "THREAD", "STATE", "AGE",
                      "PROCESS", "USER", "COMMAND"));
    const Participants all = participants_of(context, BasePath::parse(path_), now.segment_id);
    for (const Participant& each : all.list) lines.push_back(line_of(context, each, all.unseen == 0, width));
    screen.show(lines);
  }

  static std::string bar(const Context& context, const Screen& screen, const Fill& fill) {
    BarStyle style;
    style.width = std::max(10, screen.columns() - columns_around_bar);
    style.color = context.color();
    style.boxes = context.encoding().has_boxes();
    const double size = static_cast<double>(std::max<std::int64_t>(fill.size_bytes, 1));
    return fmt::format("nodes {} records {:.1f} % used",
                       memory_bar(static_cast<double>(fill.node_bytes) / size,
                                  static_cast<double>(fill.data_bytes) / size, style),
                       fill.used_percent());
  }

  static std::string line_of(const Context& context, const Participant& each, bool all_seen,
                             std::size_t width) {
    const std::string state = each.session ? state_name(each.session->type) : "attached";
    const std::string life = life_text(each, all_seen);
    const std::string line =
        fmt::format("{:>8} {:>8}  {:<15} {:>12}  {:<12} {:<10} {}", each.process.pid,
                    each.session ? std::to_string(each.session->tid) : "", state,
                    each.session ? for_people(age_seconds(*each.session), Kind::seconds) : "", life,
                    each.process.user, context.encoding().from_outside(each.process.command));
    const std::string_view color = !context.color() ? "" : color_of_state(life == "alive" ? state : life);
    return colored(cut_to(visible(line), width, "~"), color);
  }

  std::string path_;
  double interval_s_ = 1;
  long count_ = 0;
};

}  // namespace

std::unique_ptr<Command> make_top() {
  return std::make_unique<Top>();
}

}  // namespace zt
