// A way from one process to another and back, for the round trips.
#ifndef CACHET_BENCH_CHANNEL_H
#define CACHET_BENCH_CHANNEL_H

#include <cstddef>
#include <memory>
#include <string>

namespace bench {

inline constexpr std::size_t max_message_bytes = 1024;

// Made before a fork; then one process calls `ask` and the other one `answer`, in turn. Failures throw.
class Channel {
 public:
  Channel() = default;
  virtual ~Channel() = default;
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  // Each side calls its one before it goes on.
  virtual void be_client() {}
  virtual void be_server() {}
  // Sends `size` bytes and puts what comes back in their place.
  virtual void ask(char* message, std::size_t size) = 0;
  // Waits for a message of `size` bytes and sends it back.
  virtual void answer(std::size_t size) = 0;
};

std::unique_ptr<Channel> make_unix_socket();
std::unique_ptr<Channel> make_pipe();
std::unique_ptr<Channel> make_futex();
// cachet's mailbox, with its key files in `folder`.
std::unique_ptr<Channel> make_mailbox(const std::string& folder);

}  // namespace bench

#endif
