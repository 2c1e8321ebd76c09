#include "cache/work.h"

#include "base/thread_identity.h"
#include "cache/heads.h"
#include "cache/link.h"
#include "cache/record.h"
#include "cache/stale_sessions.h"
#include "lock_section.h"
#include "rb_stage.h"

namespace cachet {

namespace {

constexpr int writers_position = 0;

std::atomic_ref<std::uint64_t> owner_of(WorkRecord& record) {
  return shared_word<std::uint64_t>(&record.owner);
}

void give_up(WorkRecord& record) {
  store_release<std::int32_t>(&record.kind, work_none);
  owner_of(record).store(0);
}

WorkKind kind_of(const WorkRecord& record) {
  return static_cast<WorkKind>(load_acquire<std::int32_t>(&record.kind));
}

// A claim that its dead owner had not begun to use goes at once. A reset and a load take over whatever a dead process
// left: they abandon it all. Other work goes on without the page then (a writer finishes dead work before its own).
bool claim(LockPage& page, WorkKind kind) {
  const auto self = static_cast<std::uint64_t>(this_thread().pid);
  std::uint64_t owner = 0;
  if (owner_of(page.work).compare_exchange_strong(owner, self)) return true;
  if (!is_gone(owner)) return false;
  if (kind_of(page.work) == work_none) return owner_of(page.work).compare_exchange_strong(owner, self);
  if (kind != work_reset && kind != work_load) return false;
  const CleanerLock only_cleaner(&page);
  give_up(page.work);
  owner = 0;
  return owner_of(page.work).compare_exchange_strong(owner, self);
}

// The record's links behind the last stage that was published. It comes back deleted: its transaction is not whole.
void finish_insert(ZtDbHandle database, const WorkRecord& work) {
  ZtTable& table = database->database[static_cast<std::size_t>(work.tableid)];
  ZtRecord* const record = record_at(&database->base, work.record_offset);
  set_deleted(record, true);
  const std::optional<int> finished = redo_current_step(&database->base);
  resume_entering(database, table, record, finished ? *finished + 1 : 0);
}

bool is_sound(const ZtDb* database, const WorkRecord& work) {
  if (work.kind != work_insert) return true;
  const auto id = static_cast<std::size_t>(work.tableid);
  return work.tableid >= 0 && id < database->database.size() &&
         is_data(&database->base, work.record_offset, stored_bytes(database->database[id]));
}

}  // namespace

Work::Work(ZtDbHandle database, WorkKind kind, int tableid, std::int64_t record_offset)
    : database_(database) {
  LockPage* const page = database->lock.RecoverablePage();
  if (page == nullptr || !claim(*page, kind)) return;
  record_ = &page->work;
  record_->tableid = tableid;
  record_->record_offset = record_offset;
  store_release<std::uint32_t>(&page->stages.current, 0);
  store_release<std::int32_t>(&record_->kind, kind);
  database->base.stages = &page->stages;
  database->base.stage_step = 0;
}

Work::~Work() {
  if (record_ == nullptr) return;
  database_->base.stages = nullptr;
  give_up(*record_);
}

WorkKind work_of_dead(const ZtDb* database) {
  LockPage* const page = database->lock.RecoverablePage();
  if (page == nullptr) return work_none;
  std::uint64_t owner = owner_of(page->work).load();
  if (owner == 0 || !is_gone(owner)) return work_none;
  const WorkKind kind = kind_of(page->work);
  if (kind == work_none) owner_of(page->work).compare_exchange_strong(owner, 0);
  return kind;
}

bool finish_work_of_dead(ZtDbHandle database) {
  LockPage* const page = database->lock.RecoverablePage();
  if (page == nullptr) return true;
  WorkRecord& work = page->work;
  const std::uint64_t owner = owner_of(work).load();
  if (owner == 0 || !is_gone(owner)) return true;
  if (!is_sound(database, work)) return false;

  StageLog* const own_log = database->base.stages;
  database->base.stages = &page->stages;
  bool finished = true;
  switch (kind_of(work)) {
    case work_insert:
      finish_insert(database, work);
      break;
    case work_lists:
      redo_current_step(&database->base);
      break;
    case work_commit:
      finished = finish_commit_of(database, owner);
      break;
    case work_reset:
      database->base.memory->transactioncount = 0;
      reset_in_place(database, database->base.memory->size);
      for (std::size_t id = 0; id < database->database.size(); ++id) {
        unmark_table(catalog_of(database, static_cast<int>(id)));
      }
      break;
    case work_load:
      finished = false;
      break;
    case work_none:
      break;
  }
  database->base.stages = own_log;
  if (finished) give_up(work);
  return finished;
}

void settle_dead_work(ZtDbHandle database) {
  const WorkKind kind = work_of_dead(database);
  if (kind == work_none) return;
  const bool is_exclusive =
      database->locks.contains(writers_position) || !database->lock.WriterHolds(writers_position);
  if (!is_exclusive) return;
  LockPage* const page = database->lock.RecoverablePage();
  const CleanerLock only_cleaner(page);
  const int tableid = page->work.tableid;
  const bool finished = finish_work_of_dead(database);
  // Inside a transaction of this handle the mark may be its own by now; its commit takes it off.
  if (finished && kind == work_insert && !database->base.intransaction) {
    unmark_table(catalog_of(database, tableid));
  }
}

CleanerLock::CleanerLock(LockPage* page) : page_(page) {
  if (page_ != nullptr && lock_robust(page_->cleaner)) pthread_mutex_consistent(&page_->cleaner);
}

CleanerLock::~CleanerLock() {
  if (page_ != nullptr) pthread_mutex_unlock(&page_->cleaner);
}

}  // namespace cachet
