// The peers' ways: a Unix stream socket, two pipes, and two futex words with the bytes in shared memory.
#include "ways.h"

#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace roundtrip {

namespace {

bool send_all(int descriptor, const std::vector<char>& bytes) {
  return write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

bool receive_all(int descriptor, std::vector<char>& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t got = read(descriptor, bytes.data() + done, bytes.size() - done);
    if (got <= 0) return false;
    done += static_cast<std::size_t>(got);
  }
  return true;
}

// Descriptors: what the parent reads and writes, what the child reads and writes.
class Stream : public Way {
 public:
  ~Stream() override {
    for (const int descriptor : {parent_in, parent_out, child_in, child_out}) close(descriptor);
  }
  bool ask(std::vector<char>& bytes) override {
    return send_all(parent_out, bytes) && receive_all(parent_in, bytes);
  }
  bool answer(std::vector<char>& bytes) override {
    return receive_all(child_in, bytes) && send_all(child_out, bytes);
  }

 protected:
  int parent_in = -1, parent_out = -1, child_in = -1, child_out = -1;
};

class UnixSocket : public Stream {
 public:
  UnixSocket() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) fail("socketpair");
    parent_in = ends[0];
    parent_out = dup(ends[0]);
    child_in = ends[1];
    child_out = dup(ends[1]);
  }
};

class Pipes : public Stream {
 public:
  Pipes() {
    int request[2], reply[2];
    if (::pipe(request) != 0 || ::pipe(reply) != 0) fail("pipe");
    parent_in = reply[0];
    parent_out = request[1];
    child_in = request[0];
    child_out = reply[1];
  }
};

// Sleeps at once, as the plain use of a futex does.
class Futex : public Way {
 public:
  Futex() {
    void* const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) fail("mmap");
    shared_ = new (memory) Shared;
  }
  ~Futex() override { munmap(shared_, sizeof(Shared)); }

  bool ask(std::vector<char>& bytes) override {
    give(shared_->request, bytes);
    return take(shared_->reply, bytes);
  }
  bool answer(std::vector<char>& bytes) override {
    if (!take(shared_->request, bytes)) return false;
    give(shared_->reply, bytes);
    return true;
  }

 private:
  struct Slot {
    alignas(64) std::atomic<std::uint32_t> full{0};
    char bytes[8192];
  };
  struct Shared {
    Slot request;
    Slot reply;
  };

  static void call(Slot& slot, int operation, unsigned value) {
    syscall(SYS_futex, &slot.full, operation, value, nullptr, nullptr, 0);
  }
  static void give(Slot& slot, const std::vector<char>& bytes) {
    std::memcpy(slot.bytes, bytes.data(), bytes.size());
    slot.full.store(1, std::memory_order_release);
    call(slot, FUTEX_WAKE, 1);
  }
  static bool take(Slot& slot, std::vector<char>& bytes) {
    while (slot.full.load(std::memory_order_acquire) == 0) call(slot, FUTEX_WAIT, 0);
    std::memcpy(bytes.data(), slot.bytes, bytes.size());
    slot.full.store(0, std::memory_order_relaxed);
    return true;
  }

  Shared* shared_;
};

}  // namespace

void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

const char* name_of(Kind kind) {
  switch (kind) {
    case Kind::mailbox:
      return "mailbox";
    case Kind::unix_socket:
      return "Unix socket";
    case Kind::pipe:
      return "pipe";
    case Kind::futex:
      break;
  }
  return "futex";
}

std::unique_ptr<Way> make_way(Kind kind) {
  switch (kind) {
    case Kind::mailbox:
      return make_mailbox();
    case Kind::unix_socket:
      return std::make_unique<UnixSocket>();
    case Kind::pipe:
      return std::make_unique<Pipes>();
    case Kind::futex:
      break;
  }
  return std::make_unique<Futex>();
}

}  // namespace roundtrip
