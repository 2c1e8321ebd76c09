// Isolated handles against a manager that does what the test says: what they ask for, and what they make of refusals,
// damage, silence and death.
#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <string>
#include <vector>

#include "support/scripted_manager.h"
#include "support/signals.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

namespace text = cachet::message;
using Script = ScriptedManager::Script;

class Remote : public DatabaseTest {
 protected:
  // A database with one item, which the test's own process keeps.
  void SetUp() override {
    owner_ = create_items(directory);
    Row row(owner_);
    ASSERT_TRUE(put_item(owner_, row, 1, "one", 1, 1.5));
    offset_ = static_cast<std::uint64_t>(
        value_of(offset_of(base_of(owner_), static_cast<ZtRecordHandle>(row)->record)));
  }
  void TearDown() override {
    owner_.close();
    DatabaseTest::TearDown();
  }

  // Grants everything; inserts are told the place of the one item there is.
  Script granting() const {
    return [offset = offset_](Cztmemchanel& mailbox, const _VEMROMSG& request) {
      if (request.head.cmd == CMD_INSERT) return ScriptedManager::stored_at(mailbox, offset);
      ScriptedManager::answer(mailbox, CMD_OK);
    };
  }

  Database owner_;
  std::uint64_t offset_ = 0;
};

struct Operation {
  const char* name;
  char command;
  std::string body;
  bool tells_the_managers_text;
  std::function<bool(ZtDbHandle)> run;
};

std::vector<Operation> all_operations() {
  static char data[] = "abcde";
  static char path[] = "/some/where";
  return {
      {"begin", CMD_BEGINTRANS, "", false, ZtRemoteBeginTransaction},
      {"commit", CMD_COMMITTRANS, "", false, ZtRemoteCommitTransaction},
      {"roll back", CMD_ROLLBACKTRANS, "", false, ZtRemoteRollbackTransaction},
      {"insert", CMD_INSERT, ints({3, 5}) + "abcde", true,
       [](ZtDbHandle db) {
         unsigned long offset = 0;
         return ZtRemoteInsert(db, 3, 5, data, &offset) && offset != 0;
       }},
      {"update", CMD_UPDATE, ints({3, 8, 2, 4}) + "abcd", true,
       [](ZtDbHandle db) { return ZtRemoteUpdate(db, 3, 8, 2, 4, data); }},
      {"delete", CMD_ERASE, ints({3, 8}), false, [](ZtDbHandle db) { return ZtRemoteDelete(db, 3, 8); }},
      {"reset", CMD_CONNECT_OK, "", false, ZtRemoteResetDb},
      {"read folder", CMD_LOADDIR, padded(path), true,
       [](ZtDbHandle db) { return ZtRemoteReadDbDir(db, path); }},
      {"read table", CMD_BCPIN, ints({3}) + padded(path), true,
       [](ZtDbHandle db) { return ZtRemoteReadDbTable(db, 3, path); }},
      {"read file", CMD_RESTORE, padded(path), true,
       [](ZtDbHandle db) { return ZtRemoteReadDbFile(db, path); }},
      {"lock", CMD_LOCK, "", false, ZtRemoteLock},
      {"unlock", CMD_UNLOCK, "", false, ZtRemoteUnLock},
  };
}

TEST_F(Remote, EachOperationSendsItsRequestAndTakesItsAnswer) {
  ScriptedManager manager(directory, granting());
  Database db = manager.open(directory);
  ASSERT_TRUE(db.opened);
  EXPECT_EQ(manager.request(0).head.cmd, CMD_CONNECT);
  EXPECT_EQ(int{manager.request(0).head.length}, 8);
  EXPECT_EQ(int{manager.request(0).body.connect.pid}, getpid());
  EXPECT_EQ(int{manager.request(0).body.connect.mode}, ZT_MODE_READ_WRITE);
  int number = 0;
  for (const Operation& operation : all_operations()) {
    EXPECT_TRUE(operation.run(db)) << operation.name;
    const _VEMROMSG& request = manager.request(++number);
    EXPECT_EQ(request.head.cmd, operation.command) << operation.name;
    const std::string body(request.body.buffer, static_cast<std::size_t>(request.head.length));
    EXPECT_EQ(body, operation.body) << operation.name;
  }
}

TEST_F(Remote, ARefusalIsToldInTheManagersWordsOrAsTheWrongCommand) {
  const std::string words = "50%% of %d, %s\xD6\xF7%n";
  ScriptedManager manager(directory, [=](Cztmemchanel& mailbox, const _VEMROMSG&) {
    ScriptedManager::refuse(mailbox, -1009, words);
  });
  Database db = manager.open(directory);
  ASSERT_TRUE(db.opened);
  silence(db);
  for (const Operation& operation : all_operations()) {
    EXPECT_FALSE(operation.run(db)) << operation.name;
    const Error expected = operation.tells_the_managers_text ? Error{-1009, "50% of %d, %s\xD6\xF7%n"}
                                                             : failure(text::mismatched_command);
    EXPECT_EQ(last_error(db), expected) << operation.name;
  }
}

TEST_F(Remote, ATextWithoutAnEndIsCutAndAnErrorWithoutABodyIsEmpty) {
  ScriptedManager manager(directory, [=](Cztmemchanel& mailbox, const _VEMROMSG& request) {
    if (request.head.cmd == CMD_RESTORE) return ScriptedManager::refuse(mailbox, 5, std::string(400, 'x'));
    ScriptedManager::answer(mailbox, CMD_ERROR);
  });
  Database db = manager.open(directory);
  silence(db);
  EXPECT_FALSE(ZtReadDbFile(db, "file"));
  EXPECT_EQ(last_error(db), (Error{5, std::string(ZT_ERRMSG_SIZE - 1, 'x')}));
  EXPECT_FALSE(ZtReadDbDir(db, "folder"));
  EXPECT_EQ(last_error(db), (Error{0, ""}));
}

// Puts a frame with a broken check, as no channel does.
void answer_damaged(Cztmemchanel& mailbox, char command) {
  _HEAD head{};
  head.cmd = command;
  head.crc = 0x1234;
  mailbox.m_lock_a.Lock();
  char* const box = mailbox.m_shmem_a.m_p;
  std::memcpy(box + 8, &head, sizeof head);
  const bool reader_waits = std::exchange(reinterpret_cast<int*>(box)[1], 1) == 2;
  mailbox.m_lock_a.Unlock();
  if (reader_waits) mailbox.m_sema_a.Release();
}

TEST_F(Remote, SuccessIsJudgedByTheCommandAlone) {
  ScriptedManager manager(directory, [](Cztmemchanel& mailbox, const _VEMROMSG& request) {
    answer_damaged(mailbox, request.head.cmd == CMD_LOCK ? CMD_OK : CMD_COMMITTRANS);
  });
  Database db = manager.open(directory);
  silence(db);
  EXPECT_TRUE(ZtRemoteLock(db));
  EXPECT_FALSE(ZtRemoteUnLock(db));
  EXPECT_EQ(last_error(db), failure(text::mismatched_command));
}

TEST_F(Remote, ASlowManagerIsWaitedForThroughSignalsAndTheAnswersStayInStep) {
  ScriptedManager manager(directory, [](Cztmemchanel& mailbox, const _VEMROMSG& request) {
    if (request.body.insert.tableid % 10 == 0) poll(nullptr, 0, 450);  // longer than a slice of the wait
    ScriptedManager::stored_at(mailbox, static_cast<std::uint64_t>(request.body.insert.tableid));
  });
  Database db = manager.open(directory);
  ASSERT_TRUE(db.opened);
  interrupt_every(300);
  char data[] = "x";
  for (int i = 1; i <= 40; ++i) {
    unsigned long offset = 0;
    EXPECT_TRUE(ZtRemoteInsert(db, i, 1, data, &offset));
    EXPECT_EQ(offset, static_cast<unsigned long>(i));
  }
  interrupt_every(0);
}

TEST_F(Remote, AManagerThatDiesEndsTheWaitAndEveryLaterOne) {
  ScriptedManager manager(directory, [](Cztmemchanel&, const _VEMROMSG&) { raise(SIGKILL); });
  Database db = manager.open(directory);
  ASSERT_TRUE(db.opened);
  silence(db);
  EXPECT_FALSE(ZtRemoteLock(db));
  EXPECT_EQ(last_error(db), failure(text::communication_failed));
  EXPECT_EQ(manager.process().exit_status(), -SIGKILL);
  EXPECT_FALSE(ZtRemoteUnLock(db));
  EXPECT_EQ(last_error(db), failure(text::communication_failed));
}

TEST_F(Remote, WhatDoesNotFitIsRefusedBeforeAnythingIsSent) {
  ScriptedManager manager(directory, granting());
  Database db = manager.open(directory);
  silence(db);
  std::string name(255, 'n');
  std::vector<char> row(VEMRO_BODY_BYTES);
  unsigned long offset = 0;
  EXPECT_TRUE(ZtReadDbFile(db, name.c_str()) && ZtReadDbDir(db, name.c_str()) &&
              ZtReadDbTable(db, items, name.c_str()));
  EXPECT_TRUE(ZtRemoteInsert(db, 0, VEMRO_BODY_BYTES - 8, row.data(), &offset));
  EXPECT_TRUE(ZtRemoteUpdate(db, 0, 0, 0, VEMRO_BODY_BYTES - 16, row.data()));
  const int asked = manager.asked();
  name.push_back('n');
  EXPECT_FALSE(ZtReadDbFile(db, name.c_str()));
  EXPECT_EQ(last_error(db), failure(text::name_too_long, 256));
  EXPECT_FALSE(ZtReadDbDir(db, name.c_str()) || ZtReadDbTable(db, items, name.c_str()));
  for (const int length : {-1, VEMRO_BODY_BYTES - 7, 65535}) {
    EXPECT_FALSE(ZtRemoteInsert(db, 0, length, row.data(), &offset));
    EXPECT_EQ(last_error(db), failure(text::row_too_long, length));
  }
  EXPECT_FALSE(ZtRemoteUpdate(db, 0, 0, 0, VEMRO_BODY_BYTES - 15, row.data()));
  EXPECT_EQ(manager.asked(), asked);
}

// ---- the public calls ----

TEST_F(Remote, EveryChangeGoesToTheManagerAndNoneToTheMemory) {
  ScriptedManager manager(directory, granting());
  Database db = manager.open(directory);
  ASSERT_TRUE(db.opened);
  Row row(db);
  Row changed(db);
  ASSERT_TRUE(find_item(db, 1, changed));
  ZtBeginTransaction(db);
  EXPECT_TRUE(put_item(db, row, 2, "two", 2, 2.345));
  EXPECT_EQ(row.get<int>(item_id), 1);  // the place that the manager gave
  EXPECT_TRUE(changed.set(item_price, 9.0));
  EXPECT_EQ(changed.get<double>(item_price), 1.5);
  EXPECT_TRUE(changed.set_name("uno") == false);
  ZtDeleteRecord(db, changed);
  ZtCommitTransaction(db);
  ZtBeginTransaction(db);
  ZtRollbackTransaction(db);
  ZtResetDb(db);
  EXPECT_FALSE(ZtLockPosition(db, 0));
  const char expected[] = {CMD_CONNECT,     CMD_BEGINTRANS, CMD_INSERT,        CMD_UPDATE,    CMD_ERASE,
                           CMD_COMMITTRANS, CMD_BEGINTRANS, CMD_ROLLBACKTRANS, CMD_CONNECT_OK};
  ASSERT_EQ(manager.asked(), static_cast<int>(sizeof expected));
  for (int i = 0; const char command : expected) EXPECT_EQ(manager.request(i++).head.cmd, command) << i;
  const _INSERT& insert = manager.request(2).body.insert;
  EXPECT_EQ(int{insert.recordlen}, 4 + name_bytes + 4 + 8);
  EXPECT_STREQ(insert.data + 4, "two");
  EXPECT_EQ(int{manager.request(3).body.update.rowid}, 0);
  EXPECT_EQ(int{manager.request(3).body.update.colid}, item_price);
}

TEST_F(Remote, AKeyThatIsThereIsRefusedWithoutAsking) {
  ScriptedManager manager(directory, granting());
  Database db = manager.open(directory);
  silence(db);
  Row row(db);
  EXPECT_FALSE(put_item(db, row, 1, "again", 2, 2));
  EXPECT_EQ(last_error(db).code, ZT_ERR_DUPLICATE_KEY);
  EXPECT_EQ(manager.asked(), 1);
}

TEST_F(Remote, AReaderLocksThroughTheManagerOncePerPosition) {
  ScriptedManager manager(directory, [](Cztmemchanel& mailbox, const _VEMROMSG&) {
    ScriptedManager::answer(mailbox, CMD_ERROR);  // which changes nothing
  });
  Database db = manager.open(directory, ZT_MODE_READ_ONLY);
  ASSERT_TRUE(db.opened);
  silence(db);
  EXPECT_TRUE(ZtLockPosition(db, 0) && ZtLockPosition(db, 0));
  ZtUnLockPosition(db, 0);
  EXPECT_TRUE(ZtLockPosition(db, 1));
  ZtUnLock(db);
  ZtUnLock(db);
  const char expected[] = {CMD_CONNECT, CMD_LOCK, CMD_UNLOCK, CMD_LOCK, CMD_UNLOCK};
  ASSERT_EQ(manager.asked(), static_cast<int>(sizeof expected));
  for (int i = 0; const char command : expected) EXPECT_EQ(manager.request(i++).head.cmd, command) << i;
  Row row(db);
  EXPECT_FALSE(put_item(db, row, 2, "two", 2, 2));
  EXPECT_EQ(last_error(db).code, ZT_ERR_READ_ONLY);
}

// What ends the process when the manager refuses; the loads do not.
TEST_F(Remote, AFailedChangeEndsTheProcessWithStatus0) {
  const std::function<void(ZtDbHandle)> changes[] = {
      [](ZtDbHandle db) { ZtBeginTransaction(db); },
      [](ZtDbHandle db) { (db->base.intransaction = true, ZtCommitTransaction(db)); },
      [](ZtDbHandle db) { (db->base.intransaction = true, ZtRollbackTransaction(db)); },
      [](ZtDbHandle db) { ZtResetDb(db); },
      [](ZtDbHandle db) {
        Row row(db);
        put_item(db, row, 2, "two", 2, 2);
      },
      [](ZtDbHandle db) {
        Row row(db);
        find_item(db, 1, row);
        row.set(item_price, 2.0);
      },
      [](ZtDbHandle db) {
        Row row(db);
        find_item(db, 1, row);
        ZtDeleteRecord(db, row);
      },
  };
  for (int number = 0; const auto& change : changes) {
    ScriptedManager manager(directory, [](Cztmemchanel& mailbox, const _VEMROMSG&) {
      ScriptedManager::refuse(mailbox, -1009, "no");
    });
    Child client(
        [&](Gate&) {
          Database db = manager.open(directory);
          if (!db.opened || ZtReadDbFile(db, "file")) return 6;
          change(db);
          return 7;
        },
        Child::Output::captured);
    EXPECT_EQ(client.exit_status(), 0) << number;
    EXPECT_NE(client.output().find("errcode=-1009,errmsg=no\n"), std::string::npos) << number;
    EXPECT_EQ(manager.process().exit_status(), 0);
    ++number;
  }
}

TEST_F(Remote, APlaceOutsideTheDataAreaIsNotBelieved) {
  for (const std::uint64_t place :
       {std::uint64_t{0}, std::uint64_t{64}, std::uint64_t{small_bytes - 8}, ~std::uint64_t{7}}) {
    ScriptedManager manager(directory, [=](Cztmemchanel& mailbox, const _VEMROMSG&) {
      ScriptedManager::stored_at(mailbox, place);
    });
    Child client(
        [&](Gate&) {
          Database db = manager.open(directory);
          Row row(db);
          put_item(db, row, 2, "two", 2, 2);
          return 7;
        },
        Child::Output::captured);
    EXPECT_EQ(client.exit_status(), 0) << place;
    EXPECT_NE(client.output().find(gbk(text::bad_record)), std::string::npos) << place;
    EXPECT_EQ(manager.process().exit_status(), 0);
  }
}

// The last regular process leaves before the isolated one, or after it.
TEST_F(DatabaseTest, AnIsolatedReaderSeesTheEpochAndNothingIsLeftOfTheLock) {
  for (const bool owner_first : {false, true}) {
    ScriptedManager manager(directory, {});
    Database owner = create_items(directory);
    Database reader = manager.open(directory, ZT_MODE_READ_ONLY);
    ASSERT_TRUE(reader.opened);
    {
      Row row(owner);
      ZtBeginTransaction(owner);
      EXPECT_TRUE(put_item(owner, row, 1, "one", 1, 1));
      ZtRollbackTransaction(owner);
    }
    const ZtDb* const handle = reader;
    EXPECT_GT(handle->lock.Epoch(), 0U);
    EXPECT_EQ(handle->lock.Epoch(), static_cast<ZtDbHandle>(owner)->lock.Epoch());
    (owner_first ? owner : reader).close();
    (owner_first ? reader : owner).close();
    EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
    EXPECT_EQ(manager.process().exit_status(), 0);
  }
}

// ---- login ----

TEST_F(Remote, AFailedLoginIsReportedTwice) {
  const struct {
    ScriptedManager::Login login;
    const char* reason;
  } cases[] = {
      {[](VemroTcpChanel& chanel, const std::string&) {
         _VEMROMSG answer{};
         answer.head.cmd = CMD_OK;
         return !chanel.Send(&answer);
       },
       text::mismatched_command.c_str()},
      {[](VemroTcpChanel& chanel, const std::string& name) {
         return !ScriptedManager::welcome(chanel, name + "-missing");
       },
       text::mailbox_failed.c_str()},
      {[](VemroTcpChanel& chanel, const std::string&) {
         _VEMROMSG answer{};
         answer.head.cmd = CMD_CONNECT_OK;
         return !chanel.Send(&answer);
       },
       text::mailbox_failed.c_str()},
      {[](VemroTcpChanel& chanel, const std::string&) {
         chanel.Close();
         return false;
       },
       text::communication_failed.c_str()},
  };
  for (const auto& c : cases) {
    ScriptedManager manager(directory, {}, c.login);
    ::testing::internal::CaptureStdout();
    { EXPECT_FALSE(manager.open(directory).opened); }
    std::fflush(stdout);
    const std::string login_failed = gbk(text::login_manager_failed);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "errcode=-1008,errmsg=" + std::string(c.reason) +
                                                            "\nerrcode=-1008,errmsg=" + login_failed + "\n");
    EXPECT_EQ(manager.process().exit_status(), 0);
  }
}

}  // namespace
}  // namespace cachet::test
