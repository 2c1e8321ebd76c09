// The demo's story, told by the parent process: load, run, compare, clean up.
#ifndef CACHET_TOOLS_DEMO_DEMO_H
#define CACHET_TOOLS_DEMO_DEMO_H

#include <array>
#include <functional>
#include <string>

#include "board.h"
#include "children.h"
#include "model.h"
#include "system_v_audit.h"

namespace demo {

class Demo {
 public:
  explicit Demo(Model model);
  ~Demo();
  Demo(const Demo&) = delete;
  Demo& operator=(const Demo&) = delete;

  // True when every check passed.
  bool run();

 private:
  // The phases; each is false when the demo cannot go on.
  bool load_packages();
  bool attach_the_others();
  bool run_for_some_seconds();
  bool be_isolated();
  void print_figures() const;
  bool compare_all();
  bool clean_up(bool in_order);
  void print_what_is_left(const SystemVAudit::Found& left) const;

  // What the children do.
  void be_first_writer();
  void be_second_writer();
  void be_reader(Role role, int mode);
  void write_until_stopped(const Database& database, Role role);

  // Waits, watching the children and the user. False on a complaint, after Ctrl-C, and, said aloud, after
  // `seconds`.
  bool wait_for(const std::function<bool()>& done, int seconds, const std::function<void()>& show_progress);
  void wait_for_go();
  bool nothing_wrong() const;
  void print_complaints() const;
  int64_t done(Task task) const;

  const Model model_;
  const std::string directory_;
  Board& board_;
  std::array<Ledger, 2> ledgers_;  // of the two writers
  Children children_;
  Database database_;  // the parent's own handle
  SystemVAudit audit_;
  SystemVAudit::Found while_up_;
  int segments_before_;
  int semaphore_sets_before_;
  double run_seconds_ = 0;
};

// Makes Ctrl-C and termination requests end the demo in order.
void catch_signals();
bool interrupted();

}  // namespace demo

#endif
