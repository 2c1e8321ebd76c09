// zt doctor: everything that can be wrong with this host, and with a database, and how to mend it.
#include <algorithm>

#include "inspect/host.h"
#include "zt/commands.h"
#include "zt/diagnosis.h"

namespace zt {
namespace {

class Doctor final : public Command {
 public:
  void declare(CLI::App& app) override {
    app.add_option(database_argument, path_, "A database to look at as well")->type_name("DIR/NAME");
  }

  Status run(Context& context) override {
    Diagnoses diagnoses;
    examine_host(diagnoses);
    const bool found = path_.empty() || examine_database(context, path_, diagnoses);
    const auto rows = context.rows({{"state", Kind::state}, {"check"}, {"detail"}, {"remedy"}});
    for (const Diagnosis& each : diagnoses) rows->row({each.state, each.check, each.detail, each.remedy});
    rows->end();
    if (!found) throw cachet::inspect::NotFound(tr("there is no database {}", path_));
    const bool fault = std::any_of(diagnoses.begin(), diagnoses.end(),
                                   [](const Diagnosis& each) { return each.state == "fault"; });
    return fault ? Status::damaged : Status::ok;
  }

 private:
  std::string path_;
};

}  // namespace

std::unique_ptr<Command> make_doctor() {
  return std::make_unique<Doctor>();
}

}  // namespace zt
