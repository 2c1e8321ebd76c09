// The shared store of before-images. How an entry is published, so that the owner may die anywhere:
//
//   1. the segment it needs is made (a failure ends here, nothing has changed)
//   2. the rest of a segment that cannot hold it is filled with zeros
//   3. head and record bytes are written, behind write_pos
//   4. the last entry's `next` is led to it
//   5. write_pos moves past it
//
// A walk ends at write_pos, so that steps 2 to 4 are invisible until step 5. Emptying goes the other way:
// write_pos falls to 16 before a segment is removed.
#include "shmrecordcopyset.h"

#include <sys/shm.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/thread_identity.h"
#include "shared_word.h"

namespace {

constexpr int store_key_id = 1;
constexpr int segment_bytes = 0x8000000;
constexpr long entry_alignment = 8;
constexpr long entry_head_bytes = sizeof(CopySetEntry);
// An entry that ends exactly at a segment's end moves on to the next one, so none fills a whole segment.
constexpr long max_entry_bytes = segment_bytes - entry_alignment;
// More segments than the kernel has identifiers for; bounds what a damaged header can ask for.
constexpr std::int64_t max_segments = 32768;

// A place in the space that the store's segments form.
enum class StorePosition : long {};

constexpr StorePosition first_entry{sizeof(CopySetHeader)};
constexpr StorePosition broken_link{-1};
constexpr long first_segment_room = segment_bytes - static_cast<long>(first_entry);

constexpr long raw(StorePosition position) {
  return static_cast<long>(position);
}
constexpr StorePosition operator+(StorePosition position, long bytes) {
  return StorePosition{raw(position) + bytes};
}
constexpr long segment_of(StorePosition position) {
  return raw(position) / segment_bytes;
}
constexpr long offset_in_segment(StorePosition position) {
  return raw(position) % segment_bytes;
}
constexpr long room_in_segment(StorePosition position) {
  return segment_bytes - offset_in_segment(position);
}

constexpr long entry_bytes(int length) {
  return (entry_head_bytes + length + entry_alignment - 1) / entry_alignment * entry_alignment;
}

// Where an entry of this size goes: at `end`, or at the start of the next segment.
constexpr StorePosition place_of_entry(StorePosition end, long size) {
  return segment_of(end) == segment_of(end + size) ? end : end + room_in_segment(end);
}

constexpr bool may_start_entry(StorePosition position) {
  return position >= first_entry && raw(position) % entry_alignment == 0;
}

StorePosition write_pos_of(const CopySetHeader* header) {
  return StorePosition{cachet::load_acquire<std::int64_t>(&header->write_pos)};
}

void publish_write_pos(CopySetHeader* header, StorePosition position) {
  cachet::store_release<std::int64_t>(&header->write_pos, raw(position));
}

std::string segment_name(const char* name, unsigned long pid, int number) {
  return std::string(name) + "_rcsetshm_" + std::to_string(pid) + "_" + std::to_string(number);
}

// Takes no notice of how many others are attached, and removes nothing.
void detach(Cztshamem& segment) {
  if (segment.m_p != nullptr) shmdt(segment.m_p);
  segment.m_p = nullptr;
  segment.m_shamemid = -1;
}

// Removes segment and key file even while others are attached. The segment goes first: its key file is what
// it is found by.
void remove_segment(Cztshamem& segment) {
  if (segment.m_shamemid >= 0) shmctl(segment.m_shamemid, IPC_RMID, nullptr);
  detach(segment);
  segment.Delete();
}

// Attaches a whole segment of a store. False, detached, when it is not there or is something smaller.
bool open_segment(Cztshamem& segment, const std::string& name) {
  if (!segment.Open(name.c_str(), store_key_id, false)) return false;
  struct shmid_ds status;
  if (shmctl(segment.m_shamemid, IPC_STAT, &status) == 0 && status.shm_segsz >= segment_bytes) return true;
  detach(segment);
  return false;
}

// From the last down, so that whoever finishes after a death still finds the ones in front.
void remove_segments_from(std::vector<Cztshamem>& segments, std::size_t first) {
  while (segments.size() > first) {
    remove_segment(segments.back());
    segments.pop_back();
  }
}

// False when the name does not fit.
bool keep_name(char (&kept)[128], const char* name) {
  const std::size_t length = std::strlen(name);
  if (length >= sizeof kept) return false;
  std::memset(kept, 0, sizeof kept);
  std::memcpy(kept, name, length);
  return true;
}

// Without a system call, which every transaction would pay.
unsigned long current_pid() {
  return static_cast<unsigned long>(cachet::this_thread().pid);
}

// Whether another process created this set, and a fork handed it down.
bool is_inherited(unsigned long creator_pid) {
  return creator_pid != 0 && creator_pid != current_pid();
}

}  // namespace

ShmRecordcopySet::ShmRecordcopySet()
    : db_shm_name_{},
      read_pos_off_(0),
      free_size_(0),
      tail_off_(0),
      copyset_header(nullptr),
      creator_pid_(0) {}

ShmRecordcopySet::~ShmRecordcopySet() {
  for (Cztshamem& segment : shm_segs) detach(segment);
}

bool ShmRecordcopySet::Create(const char* name) {
  if (!shm_segs.empty()) return false;
  if (!keep_name(db_shm_name_, name)) {
    std::printf("CreateSeg: shm %s create error.\n", segment_name(name, GetCurPid(), 0).c_str());
    return false;
  }
  creator_pid_ = GetCurPid();
  if (!CreateSeg()) {
    Delete();
    return false;
  }
  publish_write_pos(copyset_header, first_entry);
  read_pos_off_ = raw(first_entry);
  free_size_ = first_segment_room;
  tail_off_ = 0;
  return true;
}

bool ShmRecordcopySet::Open(const char* name, unsigned long pid) {
  if (!shm_segs.empty()) return false;
  Cztshamem first;
  const std::string first_name = segment_name(name, pid, 0);
  if (!keep_name(db_shm_name_, name) || !open_segment(first, first_name)) {
    std::printf("Open: shm %s open error.\n", first_name.c_str());
    return false;
  }
  creator_pid_ = 0;
  shm_segs.push_back(first);
  copyset_header = reinterpret_cast<CopySetHeader*>(first.m_p);
  free_size_ = first_segment_room;

  const auto count = std::min(cachet::load_acquire<std::int64_t>(&copyset_header->seg_cnt), max_segments);
  for (int number = 1; number < count; ++number) {
    open_segment(shm_segs.emplace_back(), segment_name(name, pid, number));
    free_size_ += segment_bytes;
  }
  read_pos_off_ = raw(first_entry);
  tail_off_ = 0;
  return true;
}

bool ShmRecordcopySet::Reserve(int length) {
  if (creator_pid_ == 0 || is_inherited(creator_pid_)) return false;
  const long size = entry_bytes(length);
  if (length < 0 || size > max_entry_bytes) return false;
  const StorePosition end = write_pos_of(copyset_header);
  if (!may_start_entry(end) || GetRaw(raw(end)) == nullptr) return false;
  const StorePosition place = place_of_entry(end, size);
  return segment_of(place) < static_cast<long>(shm_segs.size()) || AppendSeg();
}

bool ShmRecordcopySet::PushBack(int tableid, ZtRecord* pRecord, long record_offset, int length) {
  if (!Reserve(length)) return false;
  const long size = entry_bytes(length);
  const StorePosition end = write_pos_of(copyset_header);
  const StorePosition place = place_of_entry(end, size);
  const long skipped_bytes = raw(place) - raw(end);
  std::memset(GetRaw(raw(end)), 0, static_cast<std::size_t>(skipped_bytes));
  char* const entry = GetRaw(raw(place));
  const CopySetEntry head{record_offset, length, tableid, raw(place + entry_head_bytes), raw(place + size)};
  std::memcpy(entry, &head, sizeof head);
  std::memcpy(entry + sizeof head, pRecord, static_cast<std::size_t>(length));
  if (tail_off_ != 0) {
    auto* const last = reinterpret_cast<CopySetEntry*>(GetRaw(tail_off_));
    cachet::store_release<std::int64_t>(&last->next, raw(place));
  }
  publish_write_pos(copyset_header, place + size);
  tail_off_ = raw(place);
  free_size_ -= skipped_bytes + size;
  return true;
}

void ShmRecordcopySet::Begin() {
  read_pos_off_ = raw(first_entry);
}

CopySetEntry* ShmRecordcopySet::GetCurRecordCP() {
  const StorePosition position{read_pos_off_};
  if (copyset_header == nullptr || !may_start_entry(position)) return nullptr;
  const StorePosition end = write_pos_of(copyset_header);
  if (position >= end || room_in_segment(position) < entry_head_bytes) return nullptr;
  auto* const entry = reinterpret_cast<CopySetEntry*>(GetRaw(read_pos_off_));
  if (entry == nullptr) return nullptr;

  const int length = cachet::load_relaxed<std::int32_t>(&entry->length);
  const bool fits = length >= 0 && entry_bytes(length) <= room_in_segment(position) &&
                    raw(position) <= raw(end) - entry_bytes(length) &&
                    entry->data == raw(position + entry_head_bytes);
  return fits ? entry : nullptr;
}

ZtRecord* ShmRecordcopySet::GetCurRecord() {
  CopySetEntry* const entry = GetCurRecordCP();
  return entry == nullptr ? nullptr : reinterpret_cast<ZtRecord*>(entry + 1);
}

void ShmRecordcopySet::MoveNext() {
  CopySetEntry* const entry = GetCurRecordCP();
  if (entry == nullptr) return;
  const StorePosition here{read_pos_off_};
  const StorePosition next{cachet::load_acquire<std::int64_t>(&entry->next)};
  const bool leads_on = next == here + entry_bytes(entry->length) || next == here + room_in_segment(here);
  read_pos_off_ = raw(leads_on ? next : broken_link);
}

void ShmRecordcopySet::Clear() {
  if (copyset_header == nullptr) return;
  if (is_inherited(creator_pid_)) return Delete();
  publish_write_pos(copyset_header, first_entry);
  remove_segments_from(shm_segs, 1);
  free_size_ = first_segment_room;
  read_pos_off_ = raw(first_entry);
  tail_off_ = 0;
}

void ShmRecordcopySet::Delete() {
  if (!is_inherited(creator_pid_)) remove_segments_from(shm_segs, 0);
  for (Cztshamem& segment : shm_segs) detach(segment);
  shm_segs.clear();
  std::memset(db_shm_name_, 0, sizeof db_shm_name_);
  read_pos_off_ = 0;
  free_size_ = 0;
  tail_off_ = 0;
  copyset_header = nullptr;
  creator_pid_ = 0;
}

bool ShmRecordcopySet::CreateSeg() {
  const std::string name = segment_name(db_shm_name_, GetCurPid(), static_cast<int>(shm_segs.size()));
  Cztshamem segment;
  if (creator_pid_ != GetCurPid() || !segment.Create(name.c_str(), store_key_id, segment_bytes, false)) {
    std::printf("CreateSeg: shm %s create error.\n", name.c_str());
    return false;
  }
  shm_segs.push_back(segment);
  if (copyset_header == nullptr) copyset_header = reinterpret_cast<CopySetHeader*>(segment.m_p);
  cachet::store_release<std::int64_t>(&copyset_header->seg_cnt, static_cast<std::int64_t>(shm_segs.size()));
  return true;
}

bool ShmRecordcopySet::AppendSeg() {
  if (!CreateSeg()) return false;
  free_size_ += segment_bytes;
  return true;
}

char* ShmRecordcopySet::GetRaw(long offset) {
  const StorePosition position{offset};
  if (offset < 0 || segment_of(position) >= static_cast<long>(shm_segs.size())) return nullptr;
  char* const base = shm_segs[static_cast<std::size_t>(segment_of(position))].m_p;
  return base == nullptr ? nullptr : base + offset_in_segment(position);
}

unsigned long ShmRecordcopySet::GetCurPid() {
  return current_pid();
}

void ShmRecordcopySet::PrintSetInfo() {
  std::printf("ShmRecordcopySet info:--------------------\n");
  std::printf("read_pos_off_ = %ld\n", read_pos_off_);
  std::printf("free_size_ = %ld\n", free_size_);
  std::printf("tail_off_ = %ld\n", tail_off_);
  std::printf("copyset_header = 0x%p\n", static_cast<void*>(copyset_header));
  if (copyset_header != nullptr) std::printf("write_pos = %ld\n", raw(write_pos_of(copyset_header)));
  std::printf("shm_segs.size=%d\n", static_cast<int>(shm_segs.size()));
  int number = 0;
  for (const Cztshamem& segment : shm_segs) {
    std::printf("shm_segs NO. %d baseaddr = 0x%p\n", number++, static_cast<void*>(segment.m_p));
  }
  std::printf("ShmRecordcopySet info end --------------------\n\n");
}
