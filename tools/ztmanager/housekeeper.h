// Housekeeper: clears after dead processes, at its start and then again and again.
//
// On a thread and a handle of its own, since clearing may have to wait for a live writer, which may be a client of this
// very manager.
#ifndef CACHET_TOOLS_ZTMANAGER_HOUSEKEEPER_H
#define CACHET_TOOLS_ZTMANAGER_HOUSEKEEPER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "baseclass.h"
#include "ztmanager/database.h"

namespace manager {

class Housekeeper : public Cmodule {
 public:
  // `notice`: called on the housekeeper's thread as its last act.
  Housekeeper(Database& database, std::chrono::milliseconds interval, std::function<void()> notice);

  int Run() override;
  bool Terminate() override;

  // Any thread. It ends as soon as the database lets it.
  void stop();
  bool ended() const { return ended_.load(std::memory_order_acquire); }

 private:
  bool sleep();
  void clear(ZtDbHandle handle);

  Database& database_;
  const std::chrono::milliseconds interval_;
  const std::function<void()> notice_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
  bool failed_before_ = false;
  std::atomic<bool> ended_{false};
};

}  // namespace manager

#endif
