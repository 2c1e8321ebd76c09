// The message record: its check, which of its integers have a byte order, and the two ways to seal a frame.
#include "vemroprotocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vemroprotocol/frame.h"
#include "vemroprotocol/swap.h"

namespace cachet::test {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytes_of(const _VEMROMSG& msg, std::size_t size = sizeof(_VEMROMSG)) {
  const auto* first = reinterpret_cast<const unsigned char*>(&msg);
  return {first, first + size};
}

std::unique_ptr<_VEMROMSG> message(char command, int length) {
  auto msg = std::make_unique<_VEMROMSG>();
  msg->head.cmd = command;
  msg->head.length = length;
  for (int i = 0; i < VEMRO_BODY_BYTES; ++i) msg->body.buffer[i] = static_cast<char>(i * 7 + i / 256);
  return msg;
}

unsigned short check_of(std::string text) {
  return VEMROCRC(text.data(), static_cast<int>(text.size()));
}

// Bit by bit, as the polynomial is written down.
unsigned short plain_check(const Bytes& bytes) {
  unsigned crc = 0;
  for (const unsigned char byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) {
      const bool overflows = (crc & 0x8000U) != 0;
      crc = ((crc << 1) & 0xffffU) ^ (overflows != (((byte >> bit) & 1) != 0) ? 0x1021U : 0U);
    }
  }
  return static_cast<unsigned short>((crc << 8) | (crc >> 8));
}

TEST(VemroCrc, GivesTheKnownChecks) {
  EXPECT_EQ(check_of(""), 0);
  EXPECT_EQ(check_of("123456789"), 0xC331);
  EXPECT_EQ(check_of("A"), 0xE558);
  EXPECT_EQ(check_of(std::string(64, '\0')), 0);
  char unread = 'x';
  EXPECT_EQ(VEMROCRC(&unread, -1), 0);
  EXPECT_EQ(vemro_crc_tab[1], 0x1021);
  EXPECT_EQ(vemro_crc_tab[128], 0x9188);
}

TEST(VemroCrc, AgreesWithTheBitwiseOneAtEveryLengthAndPlace) {
  std::mt19937 random(1);
  Bytes bytes(600);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<unsigned char>(random()); });
  for (int size = 0; size <= 520; ++size) {
    const auto at = bytes.begin() + size % 9;
    EXPECT_EQ(VEMROCRC(&*at, size), plain_check({at, at + size})) << size;
  }
}

// ---- byte order ----

using Field = std::pair<std::size_t, std::size_t>;  // offset, size

// Of each kind of body one: texts in front, behind and between, data behind, 8 bytes, nothing at all.
const std::map<char, std::vector<Field>> fields_with_an_order = {
    {CMD_UPDATE, {{0, 4}, {4, 4}, {8, 4}, {12, 4}}},
    {CMD_INSERT_OK, {{0, 8}}},
    {CMD_CONNECT_OK, {{200, 4}}},
    {CMD_QUERYDBRESULT, {{240, 8}, {248, 8}}},
    {CMD_QUERYTABLERESULT, {{80, 8}, {88, 4}}},
    {CMD_QUERYCOLRESULT, {{0, 4}, {84, 4}, {88, 4}, {92, 4}}},
    {CMD_QUERYTABLEDATARESULT, {{0, 4}}},
    {CMD_CLEARWILDTRANS, {}},
    {CMD_LOCK, {}},
};

Bytes with_turned(Bytes bytes, const Field& field) {
  const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(field.first);
  std::reverse(at, at + static_cast<std::ptrdiff_t>(field.second));
  return bytes;
}

TEST(VemroByteOrder, TurnsTheHeadAndTheIntegersOfACommandAndNothingElse) {
  for (const auto& [command, fields] : fields_with_an_order) {
    const auto msg = message(command, 0x01020304);
    msg->head.crc = 0x1122;
    msg->head.version = 0x0506;
    const Bytes before = bytes_of(*msg);
    Bytes expected = with_turned(with_turned(before, {0, 4}), {8, 2});
    for (const Field& field : fields) {
      expected = with_turned(expected, {field.first + VEMRO_HEAD_BYTES, field.second});
    }
    swap::turn_integers(msg.get());
    EXPECT_EQ(bytes_of(*msg), expected) << int{command};
    swap::turn_integers(msg.get());
    EXPECT_EQ(bytes_of(*msg), before) << int{command};
  }
}

TEST(VemroByteOrder, OfThisHostIsTheWires) {
  for (int command = 0; command < 128; ++command) {
    const auto msg = message(static_cast<char>(command), 300);
    const Bytes local = bytes_of(*msg);
    VemroToLocal(msg.get());
    EXPECT_EQ(bytes_of(*msg), local);
    Bytes net = local;
    net[5] = 1;
    for (int times = 0; times < 2; ++times) {
      VemroToNet(msg.get());
      EXPECT_EQ(bytes_of(*msg), net);
      EXPECT_EQ(VemroGetMsgLen(msg.get()), 300);
    }
    VemroToLocal(msg.get());
    EXPECT_EQ(bytes_of(*msg), local);
  }
  unsigned char bytes[] = {1, 2, 3, 4};
  VemroReverse(bytes, 4);
  EXPECT_EQ(bytes[0], 1);
}

TEST(VemroCreatemsg, GivesAtLeastAHeadInHostOrder) {
  for (const int length : {0, 1, 10, 8202}) {
    _VEMROMSG* const msg = VemroCreatemsg(length);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg->head.lorn, VEMRO_LOCAL);
    msg->head.version = 1;
    std::free(msg);
  }
  EXPECT_EQ(VemroCreatemsg(-1), nullptr);
}

// ---- frames ----

struct Variant {
  const char* name;
  bool (*seal)(_VEMROMSG*);
  bool (*open)(_VEMROMSG*);
  char lorn_under_check;
};

class Frame : public testing::TestWithParam<Variant> {};

INSTANTIATE_TEST_SUITE_P(, Frame,
                         testing::Values(Variant{"wire", frame::seal_wire, frame::open_wire, 1},
                                         Variant{"host", frame::seal_host, frame::open_host, 0}),
                         [](const auto& variant) { return std::string(variant.param.name); });

TEST_P(Frame, IsSealedOverItsBytesAndOpenedAgain) {
  for (const int length : {0, 1, 8, 300, 8191, 8192}) {
    const auto msg = message(CMD_INSERT, length);
    const std::size_t frame_bytes = static_cast<std::size_t>(length) + VEMRO_HEAD_BYTES;
    msg->head.version = 77;
    msg->head.crc = 99;
    Bytes expected = bytes_of(*msg, frame_bytes);
    expected[5] = static_cast<unsigned char>(GetParam().lorn_under_check);
    expected[6] = expected[7] = 0;
    expected[8] = 1;
    const unsigned short crc = plain_check(expected);
    std::memcpy(&expected[6], &crc, sizeof crc);
    expected[5] = 1;
    ASSERT_TRUE(GetParam().seal(msg.get()));
    EXPECT_EQ(bytes_of(*msg, frame_bytes), expected) << length;

    ASSERT_TRUE(GetParam().open(msg.get()));
    expected[5] = expected[6] = expected[7] = 0;
    EXPECT_EQ(bytes_of(*msg, frame_bytes), expected) << length;
  }
}

TEST_P(Frame, IsSealedFromWireOrderLikewise) {
  const auto msg = message(CMD_ERASE, 8);
  const auto again = message(CMD_ERASE, 8);
  VemroToNet(again.get());
  EXPECT_TRUE(GetParam().seal(msg.get()) && GetParam().seal(again.get()));
  EXPECT_EQ(bytes_of(*msg), bytes_of(*again));
}

TEST_P(Frame, IsRefusedWithAnyBitDamaged) {
  const auto sealed = message(CMD_INSERT_OK, 8);
  ASSERT_TRUE(GetParam().seal(sealed.get()));
  for (int bit = 0; bit < 8 * (VEMRO_HEAD_BYTES + 8); ++bit) {
    // In host order the flag itself is set before the check is taken.
    if (GetParam().lorn_under_check == 0 && bit / 8 == 5) continue;
    auto damaged = *sealed;
    reinterpret_cast<unsigned char*>(&damaged)[bit / 8] ^= static_cast<unsigned char>(1 << bit % 8);
    EXPECT_FALSE(GetParam().open(&damaged)) << bit;
  }
}

TEST_P(Frame, OfAnotherVersionIsRefused) {
  const auto msg = message(CMD_OK, 0);
  ASSERT_TRUE(GetParam().seal(msg.get()));
  msg->head.version = 2;
  msg->head.lorn = GetParam().lorn_under_check;
  msg->head.crc = 0;
  msg->head.crc = VEMROCRC(msg.get(), VEMRO_HEAD_BYTES);
  EXPECT_FALSE(GetParam().open(msg.get()));
  EXPECT_EQ(msg->head.lorn, VEMRO_LOCAL);
}

TEST_P(Frame, OfALengthThatDoesNotFitIsLeftAlone) {
  for (const int length : {8193, -1, -11, INT_MIN, INT_MAX}) {
    const auto msg = message(CMD_OK, length);
    const Bytes before = bytes_of(*msg);
    EXPECT_FALSE(GetParam().seal(msg.get())) << length;
    EXPECT_FALSE(GetParam().open(msg.get())) << length;
    EXPECT_EQ(bytes_of(*msg), before) << length;
  }
}

TEST(Frames, OfTheTwoVariantsHasDifferentChecks) {
  const auto wire = message(CMD_OK, 0);
  const auto host = message(CMD_OK, 0);
  EXPECT_TRUE(frame::seal_wire(wire.get()) && frame::seal_host(host.get()));
  EXPECT_NE(wire->head.crc, host->head.crc);
  EXPECT_FALSE(frame::open_host(wire.get()));
  EXPECT_FALSE(frame::open_wire(host.get()));
}

}  // namespace
}  // namespace cachet::test
