#include "ztmanager/housekeeper.h"

#include <spdlog/spdlog.h>

#include <utility>

#include "ztmanager/log.h"

namespace manager {

namespace {

char* module_name() {
  static char name[] = "housekeeper";
  return name;
}

}  // namespace

Housekeeper::Housekeeper(Database& database, std::chrono::milliseconds interval, std::function<void()> notice)
    : Cmodule(module_name()), database_(database), interval_(interval), notice_(std::move(notice)) {}

int Housekeeper::Run() {
  try {
    const Database::Handle handle = database_.open(ZT_MODE_READ_WRITE);
    do {
      clear(handle.get());
    } while (sleep());
  } catch (const std::exception& error) {
    spdlog::error("housekeeper: {}", for_log(error.what()));
  }
  return 0;
}

bool Housekeeper::Terminate() {
  const std::function<void()> notice = notice_;
  ended_.store(true, std::memory_order_release);
  notice();
  return true;
}

void Housekeeper::stop() {
  const std::lock_guard guard(mutex_);
  stopping_ = true;
  wake_.notify_all();
}

// False when it is time to end.
bool Housekeeper::sleep() {
  std::unique_lock guard(mutex_);
  return !wake_.wait_for(guard, interval_, [this] { return stopping_; });
}

// What cannot be cleared is told once, not every time.
void Housekeeper::clear(ZtDbHandle handle) {
  const bool failed = !ZtClearDBWildTrans(handle);
  if (failed && !failed_before_) spdlog::warn("something that a dead process left cannot be cleared");
  if (!failed && failed_before_) spdlog::info("everything that dead processes left is cleared");
  failed_before_ = failed;
}

}  // namespace manager
