// The mailbox as a way: 10 bytes of head travel with each message, and each is checked on arrival.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "memchanel.h"
#include "ways.h"

namespace roundtrip {

namespace {

constexpr int key_id = 7;

class Mailbox : public Way {
 public:
  Mailbox() {
    char folder[] = "/tmp/roundtrip-XXXXXX";
    if (mkdtemp(folder) == nullptr) fail("mkdtemp");
    folder_ = folder;
    if (!parent_.Create(name().c_str(), key_id, VEMRO_FRAME_BYTES, 1)) fail("Create");
  }
  ~Mailbox() override {
    parent_.Close();
    parent_.Delete();
    rmdir(folder_.c_str());
  }

  void enter_child() override {
    if (!child_.Open(name().c_str(), key_id)) fail("Open");
  }
  bool ask(std::vector<char>& bytes) override {
    fill(bytes);
    if (!parent_.PutRequest(&message_) || parent_.GetAnswer(&message_, -1) != 1) return false;
    return empty(bytes);
  }
  bool answer(std::vector<char>& bytes) override {
    if (child_.GetRequest(&message_, -1) != 1 || !empty(bytes)) return false;
    fill(bytes);
    return child_.PutAnswer(&message_);
  }

 private:
  std::string name() const { return folder_ + "/box"; }

  void fill(const std::vector<char>& bytes) {
    message_.head.length = static_cast<int>(bytes.size());
    message_.head.cmd = CMD_OK;
    message_.head.lorn = VEMRO_LOCAL;
    std::memcpy(message_.body.buffer, bytes.data(), bytes.size());
  }
  bool empty(std::vector<char>& bytes) const {
    if (message_.head.length != static_cast<int>(bytes.size())) return false;
    std::memcpy(bytes.data(), message_.body.buffer, bytes.size());
    return true;
  }

  std::string folder_;
  Cztmemchanel parent_;
  Cztmemchanel child_;
  _VEMROMSG message_ = {};
};

}  // namespace

std::unique_ptr<Way> make_mailbox() {
  return std::make_unique<Mailbox>();
}

}  // namespace roundtrip
