// cachet's mailbox as a channel; part of cachet's module, since its class comes from the library.
#include <cstring>

#include "../module.h"
#include "../system.h"
#include "memchanel.h"

namespace bench {
namespace {

constexpr int key_number = 1;
constexpr int semaphore_count = 1;
constexpr int patience_ms = 10000;

class Mailbox final : public Channel {
 public:
  explicit Mailbox(const std::string& folder) : name_(folder + "/mailbox") {
    require(manager_.Create(name_.c_str(), key_number, VEMRO_FRAME_BYTES, semaphore_count), "no mailbox");
  }

  void be_client() override { require(client_.Open(name_.c_str(), key_number), "no mailbox to open"); }

  void ask(char* message, std::size_t size) override {
    frame_.head = {};
    frame_.head.length = static_cast<int>(size);
    frame_.head.cmd = CMD_OK;  // a body of bytes
    std::memcpy(frame_.body.buffer, message, size);
    require(client_.PutRequest(&frame_) && client_.GetAnswer(&frame_, patience_ms) == 1,
            "the mailbox is broken");
    std::memcpy(message, frame_.body.buffer, size);
  }
  void answer(std::size_t) override {
    require(manager_.GetRequest(&frame_, patience_ms) == 1 && manager_.PutAnswer(&frame_),
            "the mailbox is broken");
  }

 private:
  std::string name_;
  Cztmemchanel manager_;  // made before the fork, and used by the one that answers
  Cztmemchanel client_;
  _VEMROMSG frame_ = {};
};

}  // namespace
}  // namespace bench

bench::Channel* bench_make_mailbox(const char* folder) {
  return new bench::Mailbox(folder);
}
