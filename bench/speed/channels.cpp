// What the mailbox is compared with: a pair of Unix sockets, two pipes, and a shared page with a futex.
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <new>

#include "channel.h"
#include "system.h"

namespace bench {
namespace {

void write_all(int descriptor, const char* bytes, std::size_t size) {
  require(write(descriptor, bytes, size) == static_cast<ssize_t>(size), "a channel is broken");
}

void read_all(int descriptor, char* bytes, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t got = read(descriptor, bytes + done, size - done);
    require(got > 0, "a channel is broken");
    done += static_cast<std::size_t>(got);
  }
}

// Two descriptors for each side: one to write to, one to read from.
class Descriptors : public Channel {
 public:
  ~Descriptors() override {
    for (const int descriptor : {client_out_, client_in_, server_out_, server_in_}) close(descriptor);
  }
  void ask(char* message, std::size_t size) override {
    write_all(client_out_, message, size);
    read_all(client_in_, message, size);
  }
  void answer(std::size_t size) override {
    char message[max_message_bytes];
    read_all(server_in_, message, size);
    write_all(server_out_, message, size);
  }

 protected:
  int client_out_ = -1, client_in_ = -1, server_out_ = -1, server_in_ = -1;
};

class UnixSocket final : public Descriptors {
 public:
  UnixSocket() {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "no sockets");
    client_out_ = ends[0];
    client_in_ = dup(ends[0]);
    server_out_ = ends[1];
    server_in_ = dup(ends[1]);
  }
};

class TwoPipes final : public Descriptors {
 public:
  TwoPipes() {
    int down[2];
    int up[2];
    require(pipe(down) == 0 && pipe(up) == 0, "no pipes");
    server_in_ = down[0];
    client_out_ = down[1];
    client_in_ = up[0];
    server_out_ = up[1];
  }
};

// One word says whose turn it is; the other side sleeps on it.
class Futex final : public Channel {
 public:
  Futex() {
    void* const memory =
        mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(memory != MAP_FAILED, "no shared page");
    page_ = new (memory) Page;
  }
  ~Futex() override { munmap(page_, sizeof(Page)); }

  void ask(char* message, std::size_t size) override {
    std::memcpy(page_->message, message, size);
    hand_over(server);
    wait_for(client);
    std::memcpy(message, page_->message, size);
  }
  void answer(std::size_t size) override {
    char message[max_message_bytes];
    wait_for(server);
    std::memcpy(message, page_->message, size);
    std::memcpy(page_->message, message, size);
    hand_over(client);
  }

 private:
  enum Side : std::uint32_t { client, server };
  struct Page {
    std::atomic<std::uint32_t> turn{client};
    char message[max_message_bytes] = {};
  };

  void hand_over(Side side) {
    page_->turn.store(side, std::memory_order_release);
    syscall(SYS_futex, &page_->turn, FUTEX_WAKE, 1, nullptr, nullptr, 0);
  }
  void wait_for(Side side) {
    for (std::uint32_t turn; (turn = page_->turn.load(std::memory_order_acquire)) != side;) {
      syscall(SYS_futex, &page_->turn, FUTEX_WAIT, turn, nullptr, nullptr, 0);
    }
  }

  Page* page_;
};

}  // namespace

std::unique_ptr<Channel> make_unix_socket() {
  return std::make_unique<UnixSocket>();
}
std::unique_ptr<Channel> make_pipe() {
  return std::make_unique<TwoPipes>();
}
std::unique_ptr<Channel> make_futex() {
  return std::make_unique<Futex>();
}

}  // namespace bench
