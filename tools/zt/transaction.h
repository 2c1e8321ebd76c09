// One transaction of a command: what is not committed is taken back, also when the command is interrupted, and also by
// a survivor when the process is killed.
#ifndef CACHET_TOOLS_ZT_TRANSACTION_H
#define CACHET_TOOLS_ZT_TRANSACTION_H

#include "zt/database.h"

namespace zt {

class Transaction {
 public:
  // Waits for other writers; until it has the lock, an interruption ends the process. Throws Failure, and
  // Damaged when that writer is dead.
  Transaction(const Context& context, const Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // To be called now and then: throws Failure when the user wants to stop.
  void go_on() const;
  void commit();

 private:
  const Database& database_;
  bool open_ = true;
};

}  // namespace zt

#endif
