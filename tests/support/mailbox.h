// Messages for the mailbox, and its boxes seen through shmget and shmat alone.
#ifndef CACHET_TESTS_SUPPORT_MAILBOX_H
#define CACHET_TESTS_SUPPORT_MAILBOX_H

#include <sys/sem.h>

#include <atomic>
#include <cstring>
#include <initializer_list>
#include <random>
#include <string>
#include <string_view>

#include "memchanel.h"
#include "support/raw_memory.h"

namespace cachet::test {

inline constexpr int mailbox_key = 1;
inline constexpr int frame_room = VEMRO_FRAME_BYTES;

inline void fill(_VEMROMSG& message, char cmd, std::string_view body) {
  message.head = {static_cast<int>(body.size()), cmd, VEMRO_LOCAL, 0, 0};
  std::memcpy(message.body.buffer, body.data(), body.size());
}

inline std::string_view body_of(const _VEMROMSG& message) {
  return {message.body.buffer, static_cast<std::size_t>(message.head.length)};
}

// Parts of bodies: numbers one after the other, and a name in its field.
inline std::string ints(std::initializer_list<int> values) {
  return {reinterpret_cast<const char*>(values.begin()), values.size() * sizeof(int)};
}

inline std::string padded(std::string text, std::size_t size = 256) {
  text.resize(size);
  return text;
}

// A body of any length, which tells its number.
inline std::string numbered_body(unsigned number) {
  std::mt19937 random(number);
  std::string body(random() % (random() % 8 == 0 ? VEMRO_BODY_BYTES : 200), '\0');
  for (char& byte : body) byte = static_cast<char>(random());
  return std::to_string(number).append(body).substr(0, VEMRO_BODY_BYTES);
}

enum BoxState { box_empty = 0, box_full = 1, box_awaited = 2 };

// A box by its segment's key file.
class RawBox : public RawSegment {
 public:
  using RawSegment::RawSegment;
  std::atomic_ref<int> lock_word() const { return std::atomic_ref(*reinterpret_cast<int*>(place(0))); }
  std::atomic_ref<int> state() const { return std::atomic_ref(*reinterpret_cast<int*>(place(4))); }
  char* frame() const { return place(8); }
};

// The semaphore set behind a key file, -1 without one.
inline int semaphore_set(const std::string& key_file) {
  const key_t key = ftok(key_file.c_str(), mailbox_key);
  return key == -1 ? -1 : semget(key, 0, 0);
}

inline bool post(int semaphore_set, unsigned short member) {
  sembuf give{member, 1, 0};
  return semop(semaphore_set, &give, 1) == 0;
}

}  // namespace cachet::test

#endif
