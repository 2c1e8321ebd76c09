// The counters of a database at one moment, and what two moments tell together. Attaches only while it copies.
#ifndef CACHET_TOOLS_ZT_SNAPSHOT_H
#define CACHET_TOOLS_ZT_SNAPSHOT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "inspect/lock_state.h"
#include "zt/context.h"

namespace zt {

struct Snapshot {
  std::chrono::steady_clock::time_point taken;
  cachet::inspect::Fill fill;
  std::string version;
  int segment_id = -1;
  std::int64_t attachments = 0;
  std::int64_t inserts = 0;    // records ever inserted
  std::int64_t commits = 0;    // how often tables were marked: once for each transaction that inserts there
  std::int64_t rollbacks = 0;  // and resets
  std::optional<std::int64_t>
      changes;               // of records in place; none when there are too many records to count them
  std::int64_t waiting = 0;  // readers and writers, now
  std::int64_t writing = 0;
};

struct Rates {
  double inserts = 0, commits = 0, rollbacks = 0;
  std::optional<double> changes;
};

// Counts changes, for which every record is looked at, of up to `most_records`.
Snapshot take_snapshot(const Context& context, const std::string& path, std::int64_t most_records);

// Each second. A counter that went back (a reset) counts from 0.
Rates rates_between(const Snapshot& before, const Snapshot& after);

}  // namespace zt

#endif
