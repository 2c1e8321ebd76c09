// What set and delete have in common: rows that must be named, one transaction for all of them, and a dry run that only
// shows them.
#ifndef CACHET_TOOLS_ZT_CHANGE_H
#define CACHET_TOOLS_ZT_CHANGE_H

#include <functional>
#include <string>

#include "zt/cursor.h"

namespace zt {

using RowChange = std::function<void(ZtRecordHandle)>;
// Made before anything is changed, so that what is wrong with it is said first.
using RowChangeMaker = std::function<RowChange(const Database&, const Table&)>;

struct Change {
  std::string path, table;
  RowChoice choice;
  bool dry_run = false;

  // The options that say which rows.
  void declare(CLI::App& app);
  // Changes the rows and prints how many, under the title `done`. All of them or, when it throws, none.
  // The maker may still take words off the choice.
  Status run(const Context& context, const char* done, const RowChangeMaker& maker);

 private:
  void show(const Context& context, const char* done, const RowChangeMaker& maker);
};

}  // namespace zt

#endif
