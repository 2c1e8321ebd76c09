// Database: this process's attachment, and the handles of its threads, which all use that one.
//
// The library's list of attachments is not guarded, so handles are opened and ended one at a time, under a mutex. The
// first handle, which does the attaching, also owns the process's shared store of before-images. A process has one store,
// but only the thread with the writers' lock needs it: a session borrows it for as long as it holds the lock, so that what
// this process leaves behind if it is killed can be rolled back, whoever's transaction it was.
#ifndef CACHET_TOOLS_ZTMANAGER_DATABASE_H
#define CACHET_TOOLS_ZTMANAGER_DATABASE_H

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "caches.h"

namespace manager {

// The library's own code and text (GBK).
struct Refusal : std::runtime_error {
  Refusal(int error_code, const std::string& text) : std::runtime_error(text), code(error_code) {}
  int code;
};

class Database {
 public:
  // Attaches. Throws a Refusal.
  Database(const std::string& directory, const std::string& name, const std::string& version);
  // All other handles have ended. Who leaves last removes the database.
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  class EndHandle {
   public:
    explicit EndHandle(Database& database) : database_(&database) {}
    void operator()(ZtDbHandle handle) const;

   private:
    Database* database_;
  };
  using Handle = std::unique_ptr<ZtDb, EndHandle>;

  // A loaded handle for the calling thread. Throws a Refusal. Waits while somebody holds the file lock exclusively.
  Handle open(int mode);

  ShmRecordcopySet* shared_store() const { return first_->shm_recordcopyset; }
  // "DIR//NAME" with an absolute directory, in which key files of other objects may be made.
  const std::string& base_path() const { return base_path_; }

 private:
  enum class Attachment { first, reused };

  ZtDbHandle open(int mode, Attachment attachment) const;

  std::string directory_;
  std::string name_;
  std::string version_;
  std::string base_path_;
  std::mutex mutex_;
  ZtDbHandle first_;
};

}  // namespace manager

#endif
