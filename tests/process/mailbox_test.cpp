// The mailbox between processes: many exchanges, signals in the middle, and sides that die at the worst moments.
#include "support/mailbox.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <memory>

#include "support/child_process.h"
#include "support/shared.h"
#include "support/signals.h"
#include "support/temp_database.h"

namespace {

using namespace cachet::test;

class Mailbox : public DatabaseTest {
 protected:
  void SetUp() override { ASSERT_TRUE(manager.Create(name.c_str(), mailbox_key, frame_room, 1)); }
  void TearDown() override {
    manager.Close();
    manager.Delete();
    DatabaseTest::TearDown();
  }

  // Runs in a process of its own, as the client.
  template <class Body>
  auto as_client(Body body) const {
    return [name = name, body](Gate& gate) {
      Cztmemchanel client;
      if (!client.Open(name.c_str(), mailbox_key)) return 1;
      return body(client, gate);
    };
  }

  const std::string name = directory.base("m");
  Cztmemchanel manager;
  _VEMROMSG message = {};
};

// An answer begins where its request ends.
std::string answer_to(unsigned number) {
  return numbered_body(number + 1'000'000);
}

// As the exchanges do it: an interrupted wait is resumed.
int get_whatever_interrupts(Cztmemchanel& channel, int (Cztmemchanel::*get)(_VEMROMSG*, int),
                            _VEMROMSG* message) {
  int result = 0;
  do {
    result = (channel.*get)(message, -1);
  } while (result == -1 && errno == EINTR);
  return result;
}

// False at the first exchange that is not the next one.
bool ask(Cztmemchanel& channel, unsigned times) {
  _VEMROMSG message;
  for (unsigned i = 0; i < times; ++i) {
    fill(message, CMD_INSERT, numbered_body(i));
    if (!channel.PutRequest(&message)) return false;
    if (get_whatever_interrupts(channel, &Cztmemchanel::GetAnswer, &message) != 1) return false;
    if (body_of(message) != answer_to(i)) return false;
  }
  return true;
}

bool answer(Cztmemchanel& channel, unsigned times) {
  _VEMROMSG message;
  for (unsigned i = 0; i < times; ++i) {
    if (get_whatever_interrupts(channel, &Cztmemchanel::GetRequest, &message) != 1) return false;
    if (body_of(message) != numbered_body(i)) return false;
    fill(message, CMD_INSERT_OK, answer_to(i));
    if (!channel.PutAnswer(&message)) return false;
  }
  return true;
}

TEST_F(Mailbox, CarriesEveryFrameOnceAndWhole) {
  constexpr unsigned exchanges = 100'000;
  Child client(as_client([](Cztmemchanel& channel, Gate&) { return ask(channel, exchanges) ? 0 : 2; }));
  EXPECT_TRUE(answer(manager, exchanges));
  EXPECT_EQ(client.exit_status(), 0);
}

TEST_F(Mailbox, LosesNothingToSignalsOnBothSides) {
  constexpr unsigned exchanges = 20'000;
  Child client(as_client([](Cztmemchanel& channel, Gate&) {
    interrupt_every(130);
    return ask(channel, exchanges) ? 0 : 2;
  }));
  Child server([&](Gate&) {
    interrupt_every(170);
    return answer(manager, exchanges) ? 0 : 2;
  });
  EXPECT_EQ(server.exit_status(), 0);
  EXPECT_EQ(client.exit_status(), 0);
}

TEST_F(Mailbox, TellsThatAWaitWasInterrupted) {
  const RawBox box(name + ".asha");
  Child client(as_client([](Cztmemchanel& channel, Gate& gate) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    gate.tell('r');
    _VEMROMSG received;
    EXPECT_EQ(channel.GetAnswer(&received, -1), -1);
    EXPECT_EQ(errno, EINTR);
    gate.tell('i');
    EXPECT_EQ(channel.GetAnswer(&received, -1), 1);
    return 0;
  }));
  ASSERT_TRUE(client.wait_for('r'));
  ASSERT_TRUE(eventually([&] { return box.state() == box_awaited; }));
  client.wait_until_asleep();
  kill(client.pid(), SIGUSR1);
  ASSERT_TRUE(client.wait_for('i'));
  fill(message, CMD_OK, "");
  EXPECT_TRUE(manager.PutAnswer(&message));
  EXPECT_EQ(client.exit_status(), 0);
}

TEST_F(Mailbox, DeliversTheFrameOfAPutterKilledBeforeItPosted) {
  Child client(as_client([this](Cztmemchanel& channel, Gate&) {
    const RawBox box(name + ".rsha");
    EXPECT_TRUE(eventually([&] { return box.state() == box_awaited; }));
    box.state() = box_empty;  // so that the putter sees nobody to wake
    _VEMROMSG sent;
    fill(sent, CMD_LOCK, "last words");
    channel.PutRequest(&sent);
    raise(SIGKILL);
    return 0;
  }));
  EXPECT_EQ(manager.GetRequest(&message, -1), 1);
  EXPECT_EQ(body_of(message), "last words");
  EXPECT_EQ(client.exit_status(), -SIGKILL);
  EXPECT_TRUE(manager.OtherSideLeft());
}

TEST_F(Mailbox, IsNotHeldUpByALockOfTheDead) {
  Child client(as_client([](Cztmemchanel& channel, Gate&) {
    channel.m_lock_r.Lock();
    channel.m_lock_a.Lock();
    raise(SIGKILL);
    return 0;
  }));
  EXPECT_EQ(client.exit_status(), -SIGKILL);
  EXPECT_EQ(manager.GetRequest(&message, -1), -1);
  EXPECT_EQ(errno, EOWNERDEAD);
  fill(message, CMD_OK, "");
  EXPECT_FALSE(manager.PutAnswer(&message));
  EXPECT_TRUE(manager.OtherSideLeft());
}

TEST_F(Mailbox, WaitsNoLongerThanAskedForALockOfTheLiving) {
  Child client(as_client([](Cztmemchanel& channel, Gate& gate) {
    channel.m_lock_r.Lock();
    gate.tell('l');
    gate.wait_for('u');
    channel.m_lock_r.Unlock();
    gate.tell('u');
    gate.wait_for('e');
    return 0;
  }));
  ASSERT_TRUE(client.wait_for('l'));
  EXPECT_EQ(manager.GetRequest(&message, 20), 0);
  EXPECT_EQ(errno, EAGAIN);
  client.tell('u');
  ASSERT_TRUE(client.wait_for('u'));
  fill(message, CMD_LOCK, "");
  EXPECT_TRUE(manager.PutRequest(&message));
  EXPECT_FALSE(manager.OtherSideLeft());
  client.tell('e');
  EXPECT_EQ(client.exit_status(), 0);
  EXPECT_TRUE(manager.OtherSideLeft());
}

TEST_F(Mailbox, IsWaitedForUntilTheOtherSideComes) {
  EXPECT_FALSE(manager.OtherSideLeft());
  EXPECT_EQ(manager.GetRequest(&message, 5), 0);
  EXPECT_FALSE(manager.OtherSideLeft());
}

TEST_F(Mailbox, IsOnlyDetachedByAForkedChild) {
  auto client = std::make_unique<Cztmemchanel>();
  ASSERT_TRUE(client->Open(name.c_str(), mailbox_key));
  Child child([&](Gate&) {
    manager.Delete();
    client.reset();
    manager.Close();
    manager.Delete();
    _VEMROMSG lost;
    EXPECT_FALSE(manager.PutAnswer(&lost));
    return 0;
  });
  EXPECT_EQ(child.exit_status(), 0);
  for (int i = 0; i < 2; ++i) {
    fill(message, CMD_LOCK, "still here");
    ASSERT_TRUE(client->PutRequest(&message));
    ASSERT_EQ(manager.GetRequest(&message, -1), 1);
    fill(message, CMD_OK, "");
    ASSERT_TRUE(manager.PutAnswer(&message));
    ASSERT_EQ(client->GetAnswer(&message, -1), 1);
  }
  Cztmemchanel another;
  EXPECT_TRUE(another.Open(name.c_str(), mailbox_key));
}

TEST_F(Mailbox, LeavesNothingBehindTheDeathOfItsClient) {
  Child client(as_client([](Cztmemchanel&, Gate& gate) {
    gate.tell('r');
    gate.wait_for('n');
    return 0;
  }));
  ASSERT_TRUE(client.wait_for('r'));
  directory.note_objects();
  manager.Close();
  manager.Delete();
  client.kill();
  EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
}

}  // namespace
