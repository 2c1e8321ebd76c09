#include "ztmanager/mailboxes.h"

#include <spdlog/spdlog.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace fs = std::filesystem;

namespace manager {

namespace {

constexpr std::string_view infix = ".mailbox-";
constexpr int first_keyid = 2;
constexpr int keyids = 254;  // a key has room for eight bits
constexpr int attempts = 3;
constexpr std::size_t longest_base_path = 120;  // of 194 bytes for a whole name
constexpr int semaphore_count = 1;

std::atomic<unsigned> made{0};

long long now_ns() {
  return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

// What a key file's name says behind the infix.
struct Origin {
  pid_t manager;
  int keyid;
};

// The next number of the text, which loses it and the "-" or "." behind.
template <class Number>
bool take_number(std::string_view& text, Number& number) {
  const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (fault != std::errc{}) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  if (!text.starts_with('-') && !text.starts_with('.')) return false;
  text.remove_prefix(1);
  return true;
}

std::optional<Origin> origin_of(std::string_view file, std::string_view database) {
  if (!file.starts_with(database) || !file.substr(database.size()).starts_with(infix)) return std::nullopt;
  std::string_view rest = file.substr(database.size() + infix.size());
  Origin origin{};
  long long start = 0;
  unsigned number = 0;
  const bool whole = take_number(rest, origin.manager) && take_number(rest, start) &&
                     take_number(rest, number) && take_number(rest, origin.keyid);
  return whole ? std::optional(origin) : std::nullopt;
}

bool is_gone(pid_t process) {
  return process > 0 && kill(process, 0) != 0 && errno == ESRCH;
}

// A segment or a semaphore set: whichever the key stands for.
void remove_object(const fs::path& key_file, int keyid) {
  const key_t key = ftok(key_file.c_str(), keyid);
  if (key != -1 && key_file.extension() == ".sem") {
    if (const int id = semget(key, 0, 0); id >= 0) semctl(id, 0, IPC_RMID);
  } else if (key != -1) {
    if (const int id = shmget(key, 0, 0); id >= 0) shmctl(id, IPC_RMID, nullptr);
  }
  unlink(key_file.c_str());
}

}  // namespace

void Mailbox::remove_objects() const {
  for (const Cztshamem* const box : {&channel->m_shmem_r, &channel->m_shmem_a}) {
    shmctl(box->m_shamemid, IPC_RMID, nullptr);
    unlink(box->m_name);
  }
  for (const Cztsema* const semaphore : {&channel->m_sema_r, &channel->m_sema_a}) {
    semctl(semaphore->m_sempid, 0, IPC_RMID);
    unlink(semaphore->m_name.c_str());
  }
}

Mailboxes::Mailboxes(std::string base_path)
    : base_path_(std::move(base_path)),
      stem_(base_path_ + std::string(infix) + std::to_string(getpid()) + "-" + std::to_string(now_ns())) {
  if (base_path_.size() > longest_base_path) throw std::length_error("the directory's path is too long");
}

Mailbox Mailboxes::make() const {
  for (int attempt = 0; attempt < attempts; ++attempt) {
    const unsigned number = made++;
    const int keyid = first_keyid + static_cast<int>((static_cast<unsigned>(getpid()) + number) % keyids);
    Mailbox mailbox{stem_ + "-" + std::to_string(number) + "-" + std::to_string(keyid), keyid,
                    std::make_unique<Cztmemchanel>()};
    if (mailbox.channel->Create(mailbox.name.c_str(), keyid, VEMRO_FRAME_BYTES, semaphore_count))
      return mailbox;
  }
  return {};
}

void Mailboxes::remove_those_of_dead() const {
  const fs::path base(base_path_);
  const std::string database = base.filename().string();
  for (const auto& entry : fs::directory_iterator(base.parent_path())) {
    const std::optional<Origin> origin = origin_of(entry.path().filename().string(), database);
    if (!origin.has_value() || !is_gone(origin->manager)) continue;
    spdlog::info("removing {}, which a dead manager left", entry.path().filename().string());
    remove_object(entry.path(), origin->keyid);
  }
}

}  // namespace manager
