#include "zt/database.h"

#include <fmt/format.h>

#include <optional>

#include "inspect/database_check.h"
#include "inspect/file_lock.h"
#include "inspect/host.h"
#include "zt/quiet.h"
#include "zt/status.h"

namespace zt {

using namespace cachet::inspect;
namespace inspect = cachet::inspect;

namespace {

// What the handle would trust: it is not given a frame that contradicts itself.
std::string version_of_sound(const RawDatabase& database) {
  Findings findings;
  check_frame(database, read_schema(*database.view()), findings);
  if (findings.has(Severity::damage)) {
    throw Damaged(tr("{} is damaged ({}: {}); to see more: zt verify {}", database.path().shown(),
                     findings.list().front().where, findings.list().front().what, database.path().shown()));
  }
  const Rb_memory header = database.header();
  return text_in(header.version, sizeof header.version);
}

}  // namespace

Hold::Hold(const BasePath& path) {
  for (const Object& each : objects_of(path)) {
    if (each.kind == ObjectKind::semaphores || each.kind == ObjectKind::store || each.id < 0) continue;
    try {
      attachments_.emplace_back(each.id);
    } catch (const std::runtime_error&) {
      continue;  // gone, or not to be attached: then it is not ours to keep
    }
  }
}

bool Hold::release() noexcept {
  bool left_alone = false;
  for (Attachment& each : attachments_) left_alone = each.detach() || left_alone;
  return left_alone;
}

Database::Database(const Context& context, const std::string& path, Access access)
    : context_(context), path_(BasePath::parse(path)), access_(access) {
  Look look(context, path);
  const std::string version = version_of_sound(*look);
  was_orphan_ = look->others() == 0;
  look.close();
  if (const auto holder = exclusive_file_lock_holder(path_)) {
    throw Refused(tr("process {} holds the file lock of {}: it makes the database, or keeps others out",
                     *holder, path_.shown()));
  }
  open(version);
}

void Database::open(const std::string& version) {
  const int mode = access_ == Access::write ? ZT_MODE_READ_WRITE : ZT_MODE_READ_ONLY;
  bool opened = false;
  {
    const Quiet quiet;
    opened = ZtOpenDb(&handle_, path_.directory.c_str(), path_.name.c_str(), version.c_str(), mode, 0, false,
                      0, 0, 1);
    if (opened) {
      ZtSetErrorHandle(handle_, [](int, const char*) { return true; });
      ZtLoadDbInfo(handle_);
      ZtLoadDb(handle_);
      ZtUnLockDb(handle_);
    }
  }
  try {
    if (!opened) fail(tr("cannot open {}", shown_path()));
    Look look(context_, path_.shown());  // at what was opened, which stays now
    schema_ = read_schema(*look->view());
    for (inspect::Table& table : schema_.tables) table.record = nullptr;  // ends with the look
  } catch (...) {
    end();
    throw;
  }
}

void Database::fail(const std::string& doing) const {
  int code = 0;
  char text[ZT_ERRMSG_SIZE] = {};
  ZtGetError(handle_, &code, text);
  throw Failure(fmt::format("{}: {} ({})", doing, context_.from_stored(text), code));
}

void Database::throw_if_failed(const std::string& doing) const {
  int code = 0;
  char text[ZT_ERRMSG_SIZE] = {};
  ZtGetError(handle_, &code, text);
  if (code != ZT_OK) fail(doing);
}

Database::~Database() {
  end();
}

void Database::end() {
  if (handle_ == nullptr) return;
  std::optional<Hold> hold;
  if (survives_) hold.emplace(path_);
  {
    const Quiet quiet;
    ZtDeleteDb(handle_);
  }
  handle_ = nullptr;
  if (hold && hold->release() && !was_orphan_) context_.say_left_alone(path_.shown());
}

}  // namespace zt
