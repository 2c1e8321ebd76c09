// zt stat: what is done in a database, one row for each interval. Nothing is attached between two rows.
#include <fmt/format.h>

#include "zt/commands.h"
#include "zt/output/width.h"
#include "zt/snapshot.h"
#include "zt/stop.h"

namespace zt {
namespace {

constexpr std::int64_t most_records_unasked = 200'000;
constexpr std::int64_t any_number = INT64_MAX;
constexpr int lines_between_titles = 20;

// Rows as they come: for people in columns of one width, since no later row is known.
class LiveRows {
 public:
  LiveRows(const Context& context, std::vector<Column> columns)
      : context_(context), columns_(std::move(columns)) {
    if (!context.for_people()) sink_ = context.rows(columns_);
  }

  void row(const Row& cells) {
    if (sink_) {
      sink_->row(cells);
    } else {
      if (lines_++ % lines_between_titles == 0) print([&](std::size_t i) { return columns_[i].name; });
      print([&](std::size_t i) { return for_people(cells[i], columns_[i].kind); });
    }
    std::fflush(stdout);
  }
  void end() {
    if (sink_) sink_->end();
  }

 private:
  template <class TextOf>
  void print(const TextOf& text_of) const {
    constexpr std::size_t narrowest = 9;
    std::string line;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const std::string text = text_of(i);
      const std::size_t width =
          columns_[i].kind == Kind::time ? 19 : std::max(narrowest, columns_[i].name.size());
      line += std::string(width - std::min(width, width_of(text)), ' ') + text + "  ";
    }
    context_.print(line + "\n");
  }

  const Context& context_;
  std::vector<Column> columns_;
  std::unique_ptr<RowSink> sink_;
  int lines_ = 0;
};

class Stat final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_option("-i,--interval", interval_s_, "Seconds between two rows")
        ->check(CLI::Range(0.05, 86400.0))
        ->capture_default_str();
    app.add_option("-n,--count", count_, "How many rows; 0: until it is stopped")
        ->check(CLI::NonNegativeNumber);
    app.add_flag("--changes", changes_, "Count changes in place also of large databases, record by record");
  }

  Status run(Context& context) override {
    catch_stop_signals();
    Snapshot before = take(context);
    LiveRows rows(context, {{"time", Kind::time},
                            {"inserts_s", Kind::real},
                            {"changes_s", Kind::real},
                            {"commits_s", Kind::real},
                            {"rollbacks_s", Kind::real},
                            {"writing", Kind::integer},
                            {"lock_waits", Kind::integer},
                            {"used", Kind::percent},
                            {"free", Kind::bytes},
                            {"attachments", Kind::integer}});
    try {
      for (long shown = 0; count_ == 0 || shown < count_; ++shown) {
        if (wait_for(interval_s_, false) == Wait::stop) break;
        const Snapshot now = take(context);
        rows.row(row(rates_between(before, now), now));
        before = now;
      }
    } catch (const cachet::inspect::Stopped&) {
      // Its ordinary end.
    } catch (const std::runtime_error&) {
      rows.end();
      throw;
    }
    rows.end();
    return Status::ok;
  }

 private:
  Snapshot take(const Context& context) const {
    return take_snapshot(context, path_, changes_ ? any_number : most_records_unasked);
  }

  static Row row(const Rates& rates, const Snapshot& now) {
    return {std::int64_t{std::time(nullptr)},
            rates.inserts,
            rates.changes ? Cell(*rates.changes) : Cell(),
            rates.commits,
            rates.rollbacks,
            now.writing,
            now.waiting,
            now.fill.used_percent(),
            now.fill.free_bytes(),
            now.attachments};
  }

  std::string path_;
  double interval_s_ = 1;
  long count_ = 0;
  bool changes_ = false;
};

}  // namespace

std::unique_ptr<Command> make_stat() {
  return std::make_unique<Stat>();
}

}  // namespace zt
