// zt verify: whether everything in a database is as it should be, and what is wrong where.
#include "inspect/database_check.h"
#include "zt/commands.h"

namespace zt {
namespace {

using namespace cachet::inspect;

class Verify final : public Command {
 public:
  void declare(CLI::App& app) override { declare_database(app, path_); }

  Status run(Context& context) override {
    const Verdict verdict = verify(BasePath::parse(path_));
    const auto rows = context.rows({{"severity", Kind::state}, {"where"}, {"what"}});
    for (const Finding& each : verdict.findings.list()) {
      rows->row({std::string(severity_name(each.severity)), context.from_stored(each.where), each.what});
    }
    rows->end();
    if (verdict.left_alone) context.say_left_alone(path_);
    return conclude(context, verdict);
  }

 private:
  Status conclude(const Context& context, const Verdict& verdict) const {
    const auto kept = static_cast<std::int64_t>(verdict.findings.list().size());
    if (verdict.findings.count() > kept) {
      context.say(tr("and {} more", verdict.findings.count() - kept));
    }
    if (verdict.moving) {
      context.say(
          tr("{} was being written: only what all of {} passes found is shown", path_, verdict.passes));
    }
    if (verdict.findings.has(Severity::damage)) {
      context.say(tr("{} is damaged; it can be emptied with ZtResetDb, or removed and made anew", path_));
      return Status::damaged;
    }
    if (verdict.findings.has(Severity::leftover)) {
      context.say(tr("dead processes have left something in {}; to clear it: zt reap {}", path_, path_));
      return Status::ok;
    }
    context.print(tr("{} is whole", path_) + "\n");
    return Status::ok;
  }

  std::string path_;
};

}  // namespace

std::unique_ptr<Command> make_verify() {
  return std::make_unique<Verify>();
}

}  // namespace zt
