#include "ztmanager/database.h"

#include <filesystem>

namespace manager {

namespace {

constexpr int session_tracking = 1;

// Errors are kept in the handle, and asked for where they matter.
bool go_on(int, const char*) {
  return true;
}

Refusal refusal_of(ZtDbHandle handle) {
  int code = ZT_ERR_GENERAL;
  char text[ZT_ERRMSG_SIZE];
  ZtGetError(handle, &code, text);
  return {code, text};
}

}  // namespace

Database::Database(const std::string& directory, const std::string& name, const std::string& version)
    : directory_(directory),
      name_(name),
      version_(version),
      base_path_(std::filesystem::canonical(directory).string() + "//" + name),
      first_(open(ZT_MODE_READ_WRITE, Attachment::first)) {}

Database::~Database() {
  ZtDeleteDb(first_);
}

ZtDbHandle Database::open(int mode, Attachment attachment) const {
  const int reuse = attachment == Attachment::reused ? 1 : 0;
  const int shared_store = attachment == Attachment::first ? 1 : 0;
  ZtDbHandle handle = nullptr;
  bool usable = ZtOpenDb(&handle, directory_.c_str(), name_.c_str(), version_.c_str(), mode, 0, false, reuse,
                         shared_store, session_tracking);
  ZtSetErrorHandle(handle, go_on);
  if (usable) {
    ZtLoadDbInfo(handle);
    ZtLoadDb(handle);
    usable = handle->lasterrno == ZT_OK;
    ZtUnLockDb(handle);
  }
  if (usable) return handle;
  Refusal refusal = refusal_of(handle);
  ZtDeleteDb(handle);
  throw refusal;
}

Database::Handle Database::open(int mode) {
  const std::lock_guard guard(mutex_);
  return {open(mode, Attachment::reused), EndHandle(*this)};
}

void Database::EndHandle::operator()(ZtDbHandle handle) const {
  const std::lock_guard guard(database_->mutex_);
  ZtDeleteDb(handle);
}

}  // namespace manager
