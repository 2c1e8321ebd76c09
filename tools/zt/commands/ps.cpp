// zt ps: who is attached, and who holds or waits for the lock.
#include "zt/commands.h"
#include "zt/sessions.h"

namespace zt {
namespace {

using namespace cachet::inspect;

class Ps final : public Command {
 public:
  void declare(CLI::App& app) override { declare_database(app, path_); }

  Status run(Context& context) override {
    Look look(context, path_);
    const int segment_id = look->first_segment_id();
    look.close();
    const Participants all = participants_of(context, BasePath::parse(path_), segment_id);
    const auto rows = context.rows({{"pid", Kind::integer},
                                    {"thread", Kind::integer},
                                    {"state", Kind::state},
                                    {"slot", Kind::integer},
                                    {"since", Kind::time},
                                    {"age", Kind::seconds},
                                    {"process", Kind::state},
                                    {"attachments", Kind::integer},
                                    {"user"},
                                    {"command"}});
    for (const Participant& each : all.list) rows->row(row(context, each, all.unseen == 0));
    rows->end();
    if (all.unseen > 0) {
      context.say(trn("{} attachment belongs to a process that cannot be seen from here",
                      "{} attachments belong to processes that cannot be seen from here", all.unseen));
    }
    return Status::ok;
  }

 private:
  static Row row(const Context& context, const Participant& each, bool all_seen) {
    Row cells{std::int64_t{each.process.pid}};
    if (each.session) {
      cells.insert(cells.end(), {std::int64_t{each.session->tid}, std::string(state_name(each.session->type)),
                                 std::int64_t{each.session->slot}, std::int64_t{each.session->since},
                                 age_seconds(*each.session)});
    } else {
      cells.insert(cells.end(), {Cell(), std::string("attached"), Cell(), Cell(), Cell()});
    }
    cells.insert(cells.end(), {life_text(each, all_seen), std::int64_t{each.attachments}, each.process.user,
                               context.encoding().from_outside(each.process.command)});
    return cells;
  }

  std::string path_;
};

}  // namespace

std::unique_ptr<Command> make_ps() {
  return std::make_unique<Ps>();
}

}  // namespace zt
