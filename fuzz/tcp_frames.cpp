// Receives whatever a peer sends: the input after its first byte is the stream. An odd first byte has the checks of
// its frames put right first, as a peer would that means harm.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "require.h"
#include "tcpchanel.h"

using cachet::fuzz::require;

namespace {

constexpr std::size_t max_stream_bytes = 60000;  // what a socket takes without a reader

// The frame that a stream begins with, by the bytes alone.
struct Expected {
  bool whole = false;
  bool good = false;
  std::size_t frame_bytes = 0;
};

std::uint16_t right_check(std::string frame) {
  frame[6] = frame[7] = 0;
  return VEMROCRC(frame.data(), static_cast<int>(frame.size()));
}

Expected expect(const std::string& stream) {
  Expected expected;
  if (stream.size() < VEMRO_HEAD_BYTES) return expected;
  std::uint32_t length = 0;
  std::memcpy(&length, stream.data(), sizeof length);
  expected.frame_bytes = VEMRO_HEAD_BYTES + std::size_t{length};
  expected.whole = length <= VEMRO_BODY_BYTES && expected.frame_bytes <= stream.size();
  if (!expected.whole) return expected;
  std::uint16_t check = 0;
  std::memcpy(&check, &stream[6], sizeof check);
  expected.good = check == right_check(stream.substr(0, expected.frame_bytes)) &&
                  stream[8] == VEMRO_VERSION && stream[9] == 0;
  return expected;
}

void put_checks_right(std::string& stream) {
  for (std::size_t at = 0;;) {
    const std::string rest = stream.substr(at);
    const Expected expected = expect(rest);
    if (!expected.whole) return;
    const std::uint16_t check = right_check(rest.substr(0, expected.frame_bytes));
    std::memcpy(&stream[at + 6], &check, sizeof check);
    at += expected.frame_bytes;
  }
}

void require_same(const _VEMROMSG& msg, std::string frame) {
  frame[5] = VEMRO_LOCAL;
  frame[6] = frame[7] = 0;
  require(std::memcmp(&msg, frame.data(), frame.size()) == 0, "the bytes that were sent");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::string stream(reinterpret_cast<const char*>(data) + 1, std::min(size - 1, max_stream_bytes));
  if (data[0] % 2 == 1) put_checks_right(stream);

  int sockets[2];
  require(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) == 0, "a pair of sockets");
  VemroTcpChanel channel;
  channel.AttachSocket(sockets[0], true);
  require(send(sockets[1], stream.data(), stream.size(), 0) == static_cast<ssize_t>(stream.size()),
          "a stream");
  close(sockets[1]);

  // On the heap, with nothing behind it that a body too long could reach unseen.
  const auto msg = std::make_unique<_VEMROMSG>();
  for (bool goes_on = true; goes_on;) {
    const Expected expected = expect(stream);
    require(channel.Recv(msg.get()) == expected.good, "a judgement by check, version and length");
    if (expected.good) require_same(*msg, stream.substr(0, expected.frame_bytes));
    goes_on = expected.whole;
    if (goes_on) stream.erase(0, expected.frame_bytes);
  }
  return 0;
}
