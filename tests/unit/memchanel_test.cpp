// The mailbox in one process: its objects' names and bytes, the states of a box, and what it refuses. The other side
// is played by hand, through the segments alone.
#include "memchanel.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <memory>
#include <random>
#include <thread>

#include "support/keys.h"
#include "support/mailbox.h"
#include "support/shared.h"
#include "support/temp_database.h"
#include "vemroprotocol/frame.h"

namespace {

using namespace cachet::test;

// One of the two boxes.
struct Way {
  const char* name;
  const char* segment;
  const char* semaphore;
  bool (Cztmemchanel::*put)(_VEMROMSG*);
  int (Cztmemchanel::*get)(_VEMROMSG*, int);
  bool (*seal)(_VEMROMSG*);
};

constexpr Way request = {"request",
                         ".rsha",
                         ".r0.sem",
                         &Cztmemchanel::PutRequest,
                         &Cztmemchanel::GetRequest,
                         cachet::frame::seal_wire};
constexpr Way answer = {"answer",
                        ".asha",
                        ".a0.sem",
                        &Cztmemchanel::PutAnswer,
                        &Cztmemchanel::GetAnswer,
                        cachet::frame::seal_host};

class Mailbox : public DatabaseTest {
 protected:
  const std::string name = directory.base("m");
  Cztmemchanel channel;

  void TearDown() override {
    channel.Close();
    channel.Delete();
    DatabaseTest::TearDown();
  }
};

class EachBox : public Mailbox, public testing::WithParamInterface<Way> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(channel.Create(name.c_str(), mailbox_key, room, 1));
    box = std::make_unique<RawBox>(name + GetParam().segment);
  }
  void TearDown() override {
    box.reset();
    Mailbox::TearDown();
  }

  bool put(char cmd, std::string_view body) {
    fill(*message(), cmd, body);
    return (channel.*GetParam().put)(message());
  }
  int get(int ms) { return (channel.*GetParam().get)(message(), ms); }
  _VEMROMSG* message() { return reinterpret_cast<_VEMROMSG*>(guarded.data()); }

  static constexpr int room = 5000;
  const _VEMROMSG nothing = {};
  GuardedBytes guarded{&nothing, sizeof nothing};
  std::unique_ptr<RawBox> box;
};

INSTANTIATE_TEST_SUITE_P(Mailbox, EachBox, testing::Values(request, answer),
                         [](const auto& box) { return box.param.name; });

TEST_F(Mailbox, HasFourObjectsWithTheNamesOfTheProtocol) {
  ASSERT_TRUE(channel.Create(name.c_str(), mailbox_key, frame_room, 1));
  for (const char* const suffix : {".asha", ".rsha", ".a0.sem", ".r0.sem"}) {
    struct stat file;
    ASSERT_EQ(stat((name + suffix).c_str(), &file), 0) << suffix;
    EXPECT_EQ(file.st_mode & 0777u, 0600u) << suffix;
  }
  for (const Way& way : {request, answer}) {
    EXPECT_EQ(RawBox(name + way.segment).size(), 8210u);
    EXPECT_NE(semaphore_set(name + way.semaphore), -1);
  }
}

TEST_F(Mailbox, PutsTheFrameBehindLockAndState) {
  ASSERT_TRUE(channel.Create(name.c_str(), mailbox_key, frame_room, 1));
  const std::string_view requested("\x03\0\0\0\x35\x01\x3c\x3f\x01\0abc", 13);
  const std::string_view answered("\x03\0\0\0\x35\x01\x7b\xec\x01\0abc", 13);
  _VEMROMSG message;
  fill(message, CMD_INSERT, "abc");
  ASSERT_TRUE(channel.PutRequest(&message));
  fill(message, CMD_INSERT, "abc");
  ASSERT_TRUE(channel.PutAnswer(&message));
  for (const auto& [way, frame] : {std::pair(request, requested), std::pair(answer, answered)}) {
    const RawBox box(name + way.segment);
    EXPECT_EQ(box.lock_word(), 0) << way.name;
    EXPECT_EQ(box.state(), box_full) << way.name;
    EXPECT_EQ(std::string_view(box.frame(), frame.size() + 1), std::string(frame) + '\0') << way.name;
  }
}

TEST_P(EachBox, GivesBackWhatWasPut) {
  for (const int length : {0, 1, 200, room - VEMRO_HEAD_BYTES}) {
    const std::string body(static_cast<std::size_t>(length), 'b');
    ASSERT_TRUE(put(CMD_ERROR, body));
    *message() = {};
    ASSERT_EQ(get(-1), 1);
    EXPECT_EQ(message()->head.cmd, CMD_ERROR);
    EXPECT_EQ(message()->head.lorn, VEMRO_LOCAL);
    EXPECT_EQ(body_of(*message()), body);
    EXPECT_EQ(box->state(), box_empty);
    EXPECT_EQ(box->lock_word(), 0);
  }
}

TEST_P(EachBox, KeepsTheSecondOfTwoFrames) {
  ASSERT_TRUE(put(CMD_OK, "first"));
  ASSERT_TRUE(put(CMD_OK, "2nd"));
  EXPECT_EQ(get(0), 1);
  EXPECT_EQ(body_of(*message()), "2nd");
  EXPECT_EQ(get(0), 0);
}

TEST_P(EachBox, IsEmptyAfterATimeOut) {
  for (const int state : {int{box_empty}, int{box_awaited}, 3, -1, INT_MIN}) {
    for (const int ms : {0, 3, -2}) {
      box->state() = state;
      errno = 0;
      EXPECT_EQ(get(ms), 0);
      EXPECT_EQ(errno, EAGAIN);
      EXPECT_EQ(box->state(), box_empty);
    }
  }
}

TEST_P(EachBox, TakesALeftOverPostForNoFrame) {
  ASSERT_TRUE(put(CMD_OK, "taken"));
  ASSERT_EQ(get(0), 1);
  for (int i = 0; i < 3; ++i) post(semaphore_set(name + GetParam().semaphore), 1);
  EXPECT_EQ(get(20), 0);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_P(EachBox, FindsAFrameWhosePutterNeverPosted) {
  for (const int ms : {60, -1}) {
    std::thread putter([&] {
      ASSERT_TRUE(eventually([&] { return box->state() == box_awaited; }));
      _VEMROMSG sent;
      fill(sent, CMD_OK, "late");
      GetParam().seal(&sent);
      std::memcpy(box->frame(), &sent, VEMRO_HEAD_BYTES + 4);
      box->state() = box_full;
    });
    EXPECT_EQ(get(ms), 1);
    EXPECT_EQ(body_of(*message()), "late");
    EXPECT_EQ(box->state(), box_empty);
    putter.join();
  }
}

TEST_P(EachBox, RefusesADamagedFrameAndIsEmpty) {
  struct Damage {
    const char* what;
    int byte;
    char bits;
  };
  for (const Damage& damage : {Damage{"length", 0, 1},
                               {"command", 4, 2},
                               {"check", 7, 1},
                               {"version", 8, 3},
                               {"body", 10, 64},
                               {"last byte", 13, 1}}) {
    ASSERT_TRUE(put(CMD_OK, "body"));
    box->frame()[damage.byte] = static_cast<char>(box->frame()[damage.byte] ^ damage.bits);
    EXPECT_EQ(get(-1), -1) << damage.what;
    EXPECT_EQ(errno, EBADMSG);
    EXPECT_EQ(get(0), 0) << damage.what;
  }
}

TEST_P(EachBox, CopiesNothingOfAFrameThatDoesNotFit) {
  for (const int length : {-1, INT_MIN, room - VEMRO_HEAD_BYTES + 1, VEMRO_BODY_BYTES + 1, INT_MAX}) {
    ASSERT_TRUE(put(CMD_OK, "body"));
    std::memcpy(box->frame(), &length, sizeof length);
    std::memset(message()->body.buffer, '-', VEMRO_BODY_BYTES);
    EXPECT_EQ(get(-1), -1) << length;
    EXPECT_EQ(errno, EBADMSG);
    EXPECT_EQ(int{message()->head.length}, length);
    EXPECT_EQ(message()->head.cmd, CMD_OK);
    EXPECT_EQ(std::string_view(message()->body.buffer, VEMRO_BODY_BYTES).find_first_not_of('-'),
              std::string_view::npos);
    EXPECT_EQ(box->state(), box_empty);
  }
}

TEST_P(EachBox, PutsNothingThatDoesNotFit) {
  for (const int length : {-1, INT_MIN, room - VEMRO_HEAD_BYTES + 1, VEMRO_BODY_BYTES + 1, INT_MAX}) {
    fill(*message(), CMD_OK, "");
    message()->head.length = length;
    EXPECT_FALSE((channel.*GetParam().put)(message())) << length;
    EXPECT_EQ(box->state(), box_empty);
  }
}

TEST_P(EachBox, EndsTheWaitWhenTheSemaphoreGoes) {
  std::thread closer([&] {
    ASSERT_TRUE(eventually([&] { return box->state() == box_awaited; }));
    semctl(semaphore_set(name + GetParam().semaphore), 0, IPC_RMID);
  });
  const int result = get(-1);
  const int error = errno;
  closer.join();
  EXPECT_TRUE((result == -1 && error == EIDRM) || (result == 0 && error == EINVAL)) << result << ' ' << error;
  EXPECT_EQ(get(-1), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(box->state(), box_empty);
}

// The other side takes every step of a put by itself, lingers between any two, and at times never posts.
TEST_P(EachBox, DeliversEachFrameOnceWhateverTheTiming) {
  constexpr unsigned frames = 400;
  std::thread putter([&] {
    std::mt19937 random(7);
    const auto linger = [&] {
      if (random() % 4 == 0) poll(nullptr, 0, static_cast<int>(random() % 3));
    };
    for (unsigned i = 0; i < frames; ++i) {
      _VEMROMSG sent;
      fill(sent, CMD_OK, numbered_body(i).substr(0, 100));
      GetParam().seal(&sent);
      int unlocked = 0;
      while (!box->lock_word().compare_exchange_strong(unlocked, 1)) unlocked = 0;
      linger();
      std::memcpy(box->frame(), &sent, static_cast<std::size_t>(cachet::frame::bytes_of(&sent)));
      const int before = box->state().exchange(box_full);
      linger();
      box->lock_word().fetch_sub(1);
      linger();
      if (before == box_awaited && random() % 64 != 0) {
        post(semaphore_set(name + GetParam().semaphore), 1);
      }
      ASSERT_TRUE(eventually([&] { return box->state() != box_full; }));
      linger();
    }
  });
  std::mt19937 random(8);
  for (unsigned taken = 0; taken < frames;) {
    const int limits[] = {0, 1, 2, -1};
    const int result = get(limits[random() % std::size(limits)]);
    if (result == 0) continue;
    ASSERT_EQ(result, 1) << errno;
    ASSERT_EQ(body_of(*message()), numbered_body(taken++).substr(0, 100));
  }
  putter.join();
}

TEST_F(Mailbox, IsNotMadeOfWhatDoesNotFit) {
  struct Refusal {
    std::string name;
    int memsize;
  };
  for (const auto& [refused, memsize] : {Refusal{std::string(195, 'n'), frame_room},
                                         {name, 9},
                                         {name, -1},
                                         {name, INT_MAX},
                                         {"/no/such/m", 4096}}) {
    testing::internal::CaptureStdout();
    EXPECT_FALSE(channel.Create(refused.c_str(), mailbox_key, memsize, 1));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "create " + (refused + ".asha").substr(0, 199) + " fail\n");
    _VEMROMSG message;
    fill(message, CMD_OK, "");
    EXPECT_FALSE(channel.PutRequest(&message));
    EXPECT_EQ(channel.GetAnswer(&message, -1), 0);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_FALSE(channel.Create(nullptr, mailbox_key, frame_room, 1));
  EXPECT_FALSE(channel.Open(nullptr, mailbox_key));
  EXPECT_FALSE(channel.Open(std::string(195, 'n').c_str(), mailbox_key));
}

TEST_F(Mailbox, RemovesItsObjectsWhicheverSideIsDestroyed) {
  for (const bool creator_goes_first : {true, false}) {
    auto creator = std::make_unique<Cztmemchanel>();
    auto opener = std::make_unique<Cztmemchanel>();
    ASSERT_TRUE(creator->Create(name.c_str(), mailbox_key, frame_room, 1));
    ASSERT_TRUE(opener->Open(name.c_str(), mailbox_key));
    directory.note_objects();
    auto& second = creator_goes_first ? opener : creator;
    (creator_goes_first ? creator : opener).reset();
    EXPECT_EQ(second->OtherSideLeft(), creator_goes_first);  // the creator has not seen the opener
    EXPECT_FALSE(Cztmemchanel().Open(name.c_str(), mailbox_key));
    second->Close();  // its memory was its own until now
    EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
    second.reset();
  }
}

TEST_F(Mailbox, OutlivesObjectsThatNeverOpenedIt) {
  ASSERT_TRUE(channel.Create(name.c_str(), mailbox_key, frame_room, 1));
  {
    Cztmemchanel never_opened;
    Cztmemchanel wrong_key;
    EXPECT_FALSE(wrong_key.Open(name.c_str(), mailbox_key + 1));
    Cztmemchanel second_creator;
    EXPECT_FALSE(second_creator.Create(name.c_str(), mailbox_key, frame_room, 1));
  }
  EXPECT_FALSE(channel.OtherSideLeft());
  Cztmemchanel client;
  ASSERT_TRUE(client.Open(name.c_str(), mailbox_key));
  _VEMROMSG message;
  fill(message, CMD_LOCK, "");
  EXPECT_TRUE(client.PutRequest(&message));
  EXPECT_EQ(channel.GetRequest(&message, 0), 1);
}

}  // namespace
