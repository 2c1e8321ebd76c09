// Takes whatever lies in a box. The first byte chooses the box; the rest is its segment from the state on, the frame's
// length, check and body included.
#include "support/mailbox.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "require.h"
#include "support/keys.h"
#include "support/temp_database.h"

using namespace cachet::fuzz;
using namespace cachet::test;

namespace {

// A segment that fills a page: the byte behind it is nobody's.
constexpr int room = 4096 - 8;

struct Box {
  std::unique_ptr<RawBox> raw;
  bool (Cztmemchanel::*put)(_VEMROMSG*);
  int (Cztmemchanel::*get)(_VEMROMSG*, int);
};

struct Boxes {
  Cztmemchanel channel;
  Box request = {nullptr, &Cztmemchanel::PutRequest, &Cztmemchanel::GetRequest};
  Box answer = {nullptr, &Cztmemchanel::PutAnswer, &Cztmemchanel::GetAnswer};

  Boxes() {
    const TempDirectory directory;
    require(channel.Create(directory.base().c_str(), mailbox_key, room, 1), "a mailbox");
    request.raw = std::make_unique<RawBox>(directory.base() + ".rsha");
    answer.raw = std::make_unique<RawBox>(directory.base() + ".asha");
    channel.Delete();  // only this process has them now, so nothing is left of them when it crashes
  }
};

Boxes& boxes() {
  static auto* const boxes = new Boxes;
  return *boxes;
}

void put_and_get_again(const Box& box, _VEMROMSG& message) {
  const std::string body(body_of(message));
  require((boxes().channel.*box.put)(&message), "a message that came can be sent on");
  require((boxes().channel.*box.get)(&message, 0) == 1 && body_of(message) == body, "the same message");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const Box& box = data[0] % 2 == 1 ? boxes().answer : boxes().request;
  char* const state = box.raw->frame() - 4;
  std::memset(state, 0, room + 4);
  std::memcpy(state, data + 1, std::min<std::size_t>(size - 1, room + 4));
  const bool is_full = box.raw->state() == box_full;

  const _VEMROMSG nothing = {};
  const GuardedBytes guarded(&nothing, sizeof nothing);
  _VEMROMSG& message = *reinterpret_cast<_VEMROMSG*>(guarded.data());
  const int result = (boxes().channel.*box.get)(&message, 0);
  const int error = errno;
  require(box.raw->state() == box_empty && box.raw->lock_word() == 0, "an empty box");
  require((result == 0) == !is_full, "a frame where the state says so");
  require(result != -1 || error == EBADMSG, "a reason");
  if (result != 1) return 0;
  require(message.head.length >= 0 && message.head.length <= room - VEMRO_HEAD_BYTES, "a length that fits");
  put_and_get_again(box, message);
  return 0;
}
