// The manager program with real clients beside local processes, with clients and managers that are killed, and with peers
// that mean no good.
#include "support/manager.h"

#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "support/bank.h"
#include "support/files.h"
#include "support/settings.h"
#include "support/shared.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

namespace text = cachet::message;

constexpr int base_accounts = 16;
constexpr long long opening_balance = 1000;

class ManagerTest : public DatabaseTest {
 protected:
  void SetUp() override {
    bank::Balances balances;
    for (int id = 0; id < base_accounts; ++id) balances[id] = opening_balance;
    owner_ = bank::create(directory, balances, 16 << 20);
    silence(owner_);
  }
  void TearDown() override {
    if (owner_ != nullptr) {
      EXPECT_TRUE(ZtClearDBWildTrans(owner_));
      bank::check_everything(owner_);
      check_idle(owner_);
    }
    owner_.close();
    directory.note_objects();
    DatabaseTest::TearDown();
  }

  // Waits for the writers' lock, so for the rollback of whoever has it.
  std::optional<long long> settled_amount(int id) {
    ZtBeginTransaction(owner_);
    const auto amount = bank::amount_of(owner_, id);
    ZtCommitTransaction(owner_);
    return amount;
  }
  bool comes_to_wait_for_the_lock() {
    return eventually([&] {
      std::vector<TransInfo> waiting;
      static_cast<ZtDbHandle>(owner_)->lock.GetSessions(waiting, WTWRITE);
      return !waiting.empty();
    });
  }

  Database owner_;
};

void transfer(ZtDbHandle db, std::mt19937& random) {
  const int from = static_cast<int>(random() % base_accounts);
  const int to = (from + 1) % base_accounts;
  const auto sum = static_cast<long long>(random() % 10);
  bank::set_amount(db, from, *bank::amount_of(db, from) - sum);
  bank::set_amount(db, to, *bank::amount_of(db, to) + sum);
}

void transact(ZtDbHandle db, unsigned seed) {
  std::mt19937 random(seed);
  for (int round = 0; round < 60; ++round) {
    const int item = 100 + static_cast<int>(random() % 20);
    ZtBeginTransaction(db);
    transfer(db, random);
    if (bank::amount_of(db, item)) {
      bank::erase(db, item);
    } else {
      EXPECT_TRUE(bank::put(db, item, 0));
    }
    random() % 4 == 0 ? ZtRollbackTransaction(db) : ZtCommitTransaction(db);
  }
}

TEST_F(ManagerTest, ServesIsolatedClientsBesideALocalWriterAndAReader) {
  Manager manager(directory);
  const auto isolated = [&](unsigned seed) {
    return [&, seed](Gate&) {
      Database db = manager.open();
      EXPECT_TRUE(db.opened);
      transact(db, seed);
      return 0;
    };
  };
  Child first(isolated(1));
  Child second(isolated(2));
  Child local([&](Gate&) {
    Database db = bank::open(directory);
    transact(db, 3);
    return 0;
  });
  Child reader([&](Gate& gate) {
    Database db = manager.open(ZT_MODE_READ_ONLY);
    EXPECT_TRUE(db.opened);
    while (!gate.has_sign()) {
      for (int id = 0; id < base_accounts; ++id) {
        Row row(db);
        EXPECT_TRUE(bank::find(db, id, row) && bank::is_whole(row));
      }
    }
    return 0;
  });
  for (Child* child : {&first, &second, &local}) EXPECT_EQ(child->exit_status(), 0);
  reader.tell('e');
  EXPECT_EQ(reader.exit_status(), 0);
  EXPECT_EQ(bank::total(bank::check_everything(owner_)), base_accounts * opening_balance);
  EXPECT_EQ(manager.terminate(), 0);
}

TEST_F(ManagerTest, RollsBackAClientThatIsKilledAndRemovesItsMailbox) {
  Manager manager(directory);
  int until[2];
  ASSERT_EQ(pipe(until), 0);
  Child client([&](Gate& gate) {
    Database db = manager.open();
    if (fork() == 0) {  // inherits the connection
      char end;
      close(until[1]);
      _exit(read(until[0], &end, 1) == 0 ? 0 : 1);
    }
    ZtBeginTransaction(db);
    bank::set_amount(db, 3, 1);
    gate.tell('c');
    gate.wait_for('-');
    return 0;
  });
  ASSERT_TRUE(client.wait_for('c'));
  EXPECT_EQ(bank::amount_of(owner_, 3), 1);
  EXPECT_FALSE(manager.mailboxes().empty());
  client.kill();
  EXPECT_EQ(settled_amount(3), opening_balance);
  EXPECT_TRUE(eventually([&] { return manager.mailboxes().empty(); }));
  close(until[1]);
  close(until[0]);
  EXPECT_EQ(manager.terminate(), 0);
  EXPECT_TRUE(eventually([&] { return manager.segments() == 0; })) << "its last user has ended too";
}

TEST_F(ManagerTest, ForgetsAClientThatDiesWhileItWaitsForTheLock) {
  Manager manager(directory);
  ZtBeginTransaction(owner_);
  Child client([&](Gate&) {
    Database db = manager.open();
    ZtBeginTransaction(db);
    return 0;
  });
  ASSERT_TRUE(comes_to_wait_for_the_lock());
  client.kill();
  EXPECT_TRUE(eventually([&] { return manager.mailboxes().empty(); })) << "also while the lock is not there";
  ZtCommitTransaction(owner_);
  Peer next(manager, ZT_MODE_READ_WRITE);
  EXPECT_EQ(next.ask(CMD_BEGINTRANS), CMD_OK) << "it gave the lock back when it got it";
  EXPECT_EQ(next.ask(CMD_COMMITTRANS), CMD_OK);
}

TEST_F(ManagerTest, ThatIsKilledEndsTheRequestsUnderWayAndIsReplaced) {
  std::optional<Manager> manager(std::in_place, directory);
  Peer other(*manager, ZT_MODE_READ_WRITE);
  ZtBeginTransaction(owner_);
  Child client(
      [&](Gate&) {
        Database db = manager->open();
        if (fork() == 0) {  // inherits the mailbox, and is not the manager
          prctl(PR_SET_PDEATHSIG, SIGKILL);
          pause();
        }
        ZtBeginTransaction(db);
        return 1;
      },
      Child::Output::captured);
  ASSERT_TRUE(comes_to_wait_for_the_lock());
  manager->process().kill();
  EXPECT_EQ(client.exit_status(), 0);
  EXPECT_NE(client.output().find(gbk(text::communication_failed)), std::string::npos);
  ZtCommitTransaction(owner_);

  manager.emplace(directory);
  EXPECT_EQ(other.ask(CMD_BEGINTRANS), -1);
  EXPECT_TRUE(manager->mailboxes().empty()) << "the new one has cleared up";
  Peer next(*manager, ZT_MODE_READ_WRITE);
  EXPECT_EQ(next.ask(CMD_BEGINTRANS), CMD_OK);
  EXPECT_EQ(next.ask(CMD_ERASE, ints({bank::accounts, 3})), CMD_OK);
  EXPECT_EQ(bank::amount_of(owner_, 3), std::nullopt);
  manager->process().kill();

  manager.emplace(directory);
  EXPECT_EQ(settled_amount(3), opening_balance) << "its transaction is rolled back by the next one";
  EXPECT_EQ(manager->terminate(), 0);
}

TEST_F(ManagerTest, MayBeKilledAtAnyMoment) {
  std::minstd_rand random(announced_seed());
  for (long kills = setting("CACHET_KILLS", 6); kills > 0; --kills) {
    Manager manager(directory);
    const auto client = [&](unsigned seed) {
      return [&, seed](Gate& gate) {
        Database db = manager.open();
        gate.tell('o');
        for (unsigned next = seed;; ++next) transact(db, next);
        return 1;
      };
    };
    Child first(client(static_cast<unsigned>(random())), Child::Output::captured);
    Child second(client(static_cast<unsigned>(random())), Child::Output::captured);
    ASSERT_TRUE(first.wait_for('o') && second.wait_for('o'));
    for (auto looks = random() % 1000; looks > 0; --looks) sched_yield();
    manager.process().kill();
    EXPECT_EQ(first.exit_status(), 0);
    EXPECT_EQ(second.exit_status(), 0);
    ASSERT_TRUE(ZtClearDBWildTrans(owner_));
    ASSERT_EQ(bank::total(bank::check_everything(owner_)), base_accounts * opening_balance);
  }
  Manager(directory).terminate();
}

TEST_F(ManagerTest, LeavesNothingWhenItIsTerminated) {
  Manager manager(directory);
  Peer in_transaction(manager, ZT_MODE_READ_WRITE);
  Peer idle(manager, ZT_MODE_READ_ONLY);
  Peer not_logged_in(manager);
  EXPECT_EQ(in_transaction.ask(CMD_BEGINTRANS), CMD_OK);
  EXPECT_EQ(in_transaction.ask(CMD_ERASE, ints({bank::accounts, 3})), CMD_OK);
  EXPECT_GT(manager.segments(), 4);
  EXPECT_EQ(manager.terminate(), 0);
  EXPECT_EQ(manager.mailboxes(), std::vector<std::string>{});
  EXPECT_EQ(idle.ask(CMD_LOCK), -1);
  in_transaction.mailbox.Close();
  idle.mailbox.Close();
  EXPECT_EQ(manager.segments(), 0);
  EXPECT_EQ(settled_amount(3), opening_balance);
}

TEST_F(ManagerTest, EndsInTimeThoughAClientWaitsForTheLock) {
  Manager manager(directory, {"--shutdown-time", "50"});
  ZtBeginTransaction(owner_);
  Peer waiting(manager, ZT_MODE_READ_WRITE);
  waiting.set(CMD_BEGINTRANS, "");
  EXPECT_TRUE(waiting.mailbox.PutRequest(&waiting.message));
  ASSERT_TRUE(comes_to_wait_for_the_lock());
  EXPECT_EQ(manager.terminate(), 1);
  EXPECT_EQ(manager.mailboxes(), std::vector<std::string>{});
  ZtCommitTransaction(owner_);
  EXPECT_TRUE(ZtClearDBWildTrans(owner_));
}

// ---- who gets in ----

TEST_F(ManagerTest, LimitsClientsAndTheTimeOfALogin) {
  Manager manager(directory, {"--max-clients", "2", "--login-time", "100"});
  Peer silent(manager);
  Peer slow(manager);
  EXPECT_EQ(slow.chanel.Send(const_cast<char*>("\10\0\0\0\71"), 5), 5);
  Peer first(manager, ZT_MODE_READ_WRITE);
  std::optional<Peer> second(std::in_place, manager, ZT_MODE_READ_WRITE);
  Peer third(manager);
  EXPECT_FALSE(third.log_in(ZT_MODE_READ_WRITE));
  EXPECT_EQ(int{third.message.head.cmd}, CMD_ERROR);
  second.reset();
  EXPECT_TRUE(eventually([&] { return Peer(manager).log_in(ZT_MODE_READ_WRITE); })) << "there is room again";
  EXPECT_FALSE(silent.chanel.Recv()) << "closed in the meantime";
  EXPECT_FALSE(slow.chanel.Recv());
}

TEST_F(ManagerTest, TurnsAwayWhatIsNoLogin) {
  Manager manager(directory);
  const std::string head_of[] = {
      std::string("\0\0\0\0\71\1\0\0\1\0", 10),   // no body
      std::string("\1\40\0\0\71\1\0\0\1\0", 10),  // 8193 bytes
      std::string("\377\377\377\377\71\1\0\0\1\0", 10),
      std::string("\10\0\0\0\62\1\0\0\1\0", 10),                        // another command
      std::string("\10\0\0\0\71\1\0\0\1\0", 10) + std::string(8, 'x'),  // a wrong check
  };
  for (const std::string& bytes : head_of) {
    Peer peer(manager);
    peer.chanel.SendBuf(const_cast<char*>(bytes.data()), static_cast<int>(bytes.size()));
    EXPECT_FALSE(peer.chanel.Recv());
  }
  for (const int mode : {-1, 0, 3}) {
    Peer peer(manager);
    EXPECT_FALSE(peer.log_in(mode));
    EXPECT_EQ(int{peer.message.head.cmd}, CMD_ERROR);
  }
  Peer peer(manager, ZT_MODE_READ_WRITE);
  EXPECT_TRUE(peer.chanel.Send(const_cast<char*>("x"), 1));
  EXPECT_TRUE(eventually([&] { return manager.mailboxes().empty(); })) << "requests go another way";
}

TEST_F(ManagerTest, TurnsOtherHostsAway) {
  ifaddrs* interfaces = nullptr;
  ASSERT_EQ(getifaddrs(&interfaces), 0);
  in_addr_t own = 0;
  for (const ifaddrs* each = interfaces; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET) continue;
    const in_addr_t address = reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr.s_addr;
    if ((ntohl(address) >> 24) != 127) own = address;
  }
  freeifaddrs(interfaces);
  if (own == 0) GTEST_SKIP() << "this host has no other address";
  Manager manager(directory);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(manager.port()));
  address.sin_addr.s_addr = own;
  VemroTcpChanel chanel;
  ASSERT_TRUE(chanel.Create(true));
  ASSERT_EQ(connect(chanel.m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_FALSE(chanel.Recv());
}

// ---- what they may do ----

std::string account(ZTINT8 id, long long amount) {
  std::string data(8 + bank::name_width + 4 + 8 + 8, 'n');
  const int team = 0;
  const long long check = bank::check_number(static_cast<int>(id), amount);
  std::memcpy(data.data(), &id, 8);
  std::memcpy(data.data() + 8 + bank::name_width, &team, 4);
  std::memcpy(data.data() + 12 + bank::name_width, &amount, 8);
  std::memcpy(data.data() + 20 + bank::name_width, &check, 8);
  return data;
}

TEST_F(ManagerTest, RefusesAReadOnlyClientsChangesButNotItsLock) {
  Manager manager(directory);
  Peer peer(manager, ZT_MODE_READ_ONLY);
  const Error read_only{ZT_ERR_READ_ONLY, gbk(text::table_read_only, "accounts")};
  const std::string row = account(50, 0);
  EXPECT_EQ(peer.refusal(CMD_INSERT, ints({0, static_cast<int>(row.size())}) + row), read_only);
  EXPECT_EQ(peer.refusal(CMD_UPDATE, ints({0, 3, bank::f_team, 4, 1})), read_only);
  EXPECT_EQ(peer.refusal(CMD_ERASE, ints({0, 3})), read_only);
  EXPECT_EQ(peer.refusal(CMD_REMOTEUPDATE, ints({0, 3}) + row), read_only);
  EXPECT_EQ(peer.refusal(CMD_CONNECT_OK), failure(text::database_read_only));
  EXPECT_EQ(peer.ask(CMD_LOCK), CMD_OK);
  EXPECT_EQ(peer.ask(CMD_QUERYTABLEDATA, ints({0, 0, 1})), CMD_QUERYTABLEDATARESULT);
  std::vector<TransInfo> readers;
  static_cast<ZtDbHandle>(owner_)->lock.GetSessions(readers, INREAD);
  EXPECT_EQ(readers.size(), 1u);
  EXPECT_EQ(peer.ask(CMD_UNLOCK), CMD_OK);
}

TEST_F(ManagerTest, CarriesOutTheRemoteRequests) {
  Manager manager(directory);
  Peer peer(manager, ZT_MODE_READ_WRITE);
  const std::string row = account(50, 7);
  ASSERT_EQ(peer.ask(CMD_REMOTEADD, ints({0}) + row), CMD_REMOTEADDRESULT);
  const int id = peer.message.body.remoteaddresult.recordid;
  EXPECT_EQ(bank::amount_of(owner_, 50), 7);
  EXPECT_EQ(peer.refusal(CMD_REMOTEADD, ints({0}) + row).code, ZT_ERR_DUPLICATE_KEY);
  EXPECT_EQ(peer.refusal(CMD_REMOTEADD, ints({0}) + row + "x").code, ZT_ERR_GENERAL);
  EXPECT_EQ(peer.refusal(CMD_REMOTEUPDATE, ints({0, id}) + account(51, 8)).code, ZT_ERR_READ_ONLY);
  EXPECT_EQ(bank::amount_of(owner_, 50), 7) << "not even in part";
  EXPECT_EQ(peer.ask(CMD_REMOTEUPDATE, ints({0, id}) + account(50, 8)), CMD_OK);
  EXPECT_EQ(bank::amount_of(owner_, 50), 8);

  EXPECT_EQ(peer.ask(CMD_QUERYTABLEDATA, ints({0, id - 1, 1000})), CMD_QUERYTABLEDATARESULT);
  std::string stored = account(50, 8);
  stored[8 + bank::name_width - 1] = 0;
  EXPECT_EQ(body_of(peer.message).substr(4 + row.size()), ints({id}) + stored);
  EXPECT_EQ(peer.ask(CMD_REMOTEDELETE, ints({0, id})), CMD_OK);
  EXPECT_EQ(peer.refusal(CMD_REMOTEDELETE, ints({0, id})), failure(text::no_record));
  EXPECT_EQ(peer.ask(CMD_QUERYTABLEDATA, ints({0, id, 1000})), CMD_QUERYTABLEDATARESULT);
  EXPECT_EQ(body_of(peer.message), "");

  EXPECT_EQ(peer.ask(CMD_QUERYDBRESULT), CMD_QUERYDBRESULT);
  EXPECT_STREQ(peer.message.body.querydbresult.dbversion, version_text);
  EXPECT_EQ(peer.ask(CMD_QUERYTABLERESULT, ints({0})), CMD_QUERYTABLERESULT);
  EXPECT_STREQ(peer.message.body.querytableresult.name, "accounts");
  EXPECT_EQ(peer.refusal(CMD_QUERYTABLERESULT, ints({1})), failure(text::bad_table, 1));
  EXPECT_EQ(peer.ask(CMD_QUERYCOLRESULT, ints({0, bank::f_name})), CMD_QUERYCOLRESULT);
  EXPECT_EQ(+peer.message.body.querycolresult.length, bank::name_width);
  EXPECT_EQ(peer.refusal(CMD_QUERYCOLRESULT, ints({0, 5})).code, ZT_ERR_GENERAL);
  EXPECT_EQ(peer.ask(CMD_QUERYINDEXRESULT, ints({0, bank::i_id})), CMD_QUERYINDEXRESULT);
  EXPECT_EQ(+peer.message.body.queryindexresult.type, ZT_INDEX_UNIQUE);
  EXPECT_EQ(peer.ask(CMD_QUERYINDEXCOLRESULT, ints({0, bank::i_team, 0})), CMD_QUERYINDEXCOLRESULT);
  EXPECT_EQ(+peer.message.body.queryindexcolresult.colid, bank::f_team);
  EXPECT_EQ(peer.ask(CMD_QUERYTABLESUMMARY, ints({0})), CMD_QUERYTABLESUMMARY);
  EXPECT_EQ(+peer.message.body.querytablesummary.recordcount, id + 1);
  EXPECT_EQ(peer.refusal(CMD_ADD_TABLE, padded("t", 81)).code, ZT_ERR_GENERAL);
}

TEST_F(ManagerTest, KeepsAClientsLockAcrossItsOwnChanges) {
  Manager manager(directory);
  Peer peer(manager, ZT_MODE_READ_WRITE);
  EXPECT_EQ(peer.ask(CMD_LOCK), CMD_OK);
  EXPECT_EQ(peer.ask(CMD_UPDATE, ints({0, 3, bank::f_amount, 8, 1, 0})), CMD_OK);
  EXPECT_EQ(peer.ask(CMD_QUERYTABLEDATA, ints({0, 0, 1})), CMD_QUERYTABLEDATARESULT);
  EXPECT_EQ(peer.ask(CMD_QUERYDBTRANSINFO, ints({INWRITE, 0})), CMD_QUERYDBTRANSINFO);
  EXPECT_EQ(std::stoi(std::string(peer.message.body.querydbtransinfo.sid, 24)), manager.process().pid());
  EXPECT_EQ(peer.ask(CMD_UNLOCK), CMD_OK);
  EXPECT_EQ(peer.refusal(CMD_QUERYDBTRANSINFO, ints({INWRITE, 0})).code, ZT_ERR_GENERAL);
  EXPECT_EQ(peer.ask(CMD_UPDATE, ints({0, 3, bank::f_amount, 8, 1000, 0})), CMD_OK);
}

TEST_F(ManagerTest, LoadsAndSavesInItsFolderOnly) {
  const Folder outside;
  const Folder folder;
  Manager manager(directory, {"--folder", folder.path()});
  Peer peer(manager, ZT_MODE_READ_WRITE);
  const auto backup = [&](const std::string& name) {
    return peer.ask(CMD_REMOTEBACKUPTABLE, ints({0}) + padded(name)) == CMD_OK;
  };
  std::filesystem::create_directory(folder.file("sub"));
  std::filesystem::create_symlink(outside.path(), folder.file("away"));
  std::filesystem::create_symlink(outside.file("new"), folder.file("dangling"));
  std::filesystem::create_symlink(folder.file("t"), folder.file("alias"));
  ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
  for (const std::string& name :
       {std::string("t"), std::string("sub/../sub/t"), folder.file("t"), std::string("alias")}) {
    EXPECT_TRUE(backup(name)) << name;
  }
  for (const std::string& name :
       {std::string(), std::string("."), std::string("sub"), std::string("../t"), std::string("sub/../../t"),
        outside.file("t"), std::string("away/t"), std::string("dangling"), std::string("pipe"),
        folder.path() + "2/t", std::string(256, 't')}) {
    EXPECT_FALSE(backup(name)) << name;
  }
  EXPECT_EQ(outside.names(), std::vector<std::string>{});

  EXPECT_EQ(peer.ask(CMD_REMOTEBACKUPDATABASE, padded("whole")), CMD_OK);
  EXPECT_EQ(peer.ask(CMD_ERASE, ints({0, 3})), CMD_OK);
  EXPECT_EQ(peer.refusal(CMD_RESTORE, padded("none")),
            failure(text::open_failed, folder.file("none").c_str()));
  EXPECT_EQ(peer.ask(CMD_RESTORE, padded("whole")), CMD_OK);
  EXPECT_EQ(bank::amount_of(owner_, 3), opening_balance);
  EXPECT_EQ(peer.ask(CMD_CONNECT_OK), CMD_OK) << "the reset";
  EXPECT_EQ(peer.ask(CMD_BCPIN, ints({0}) + padded("t")), CMD_OK);
  EXPECT_EQ(bank::total(bank::check_everything(owner_)), base_accounts * opening_balance);
  std::filesystem::rename(folder.file("t"), folder.file("sub/accounts.table"));
  EXPECT_EQ(peer.ask(CMD_LOADDIR, padded("sub")), CMD_OK);
  std::filesystem::rename(folder.file("sub/accounts.table"), outside.file("t"));
  std::filesystem::create_symlink(outside.file("t"), folder.file("sub/accounts.table"));
  EXPECT_EQ(peer.ask(CMD_LOADDIR, padded("sub")), CMD_ERROR) << "a table's file may not lead out either";
}

// ---- who means no good ----

TEST_F(ManagerTest, AnswersEveryRequestOnceWhateverItHolds) {
  const Folder folder;
  Manager manager(directory, {"--folder", folder.path()});
  Peer peer(manager, ZT_MODE_READ_WRITE);
  std::mt19937 random(1);
  for (int command = 0; command < 256; ++command) {
    for (const int length : {0, 1, 4, 8, 12, 16, 24, 44, 81, 88, 96, 256, 260, 8192}) {
      std::string body(static_cast<std::size_t>(length), '\xff');
      if (random() % 2 == 0) {
        for (char& byte : body) byte = static_cast<char>(random() % 3 == 0 ? random() % 8 : 0);
      }
      ASSERT_NE(peer.ask(command, body), -1) << command << ", " << length;
      EXPECT_TRUE(peer.message.head.cmd != CMD_OK || peer.message.head.length == 0) << command;
      EXPECT_EQ(peer.mailbox.GetAnswer(&peer.message, 0), 0) << "a second answer";
    }
  }
  peer.ask(CMD_ROLLBACKTRANS);
  EXPECT_EQ(Peer(manager, ZT_MODE_READ_WRITE).ask(CMD_CONNECT_OK), CMD_OK);
  EXPECT_EQ(manager.terminate(), 0);
}

TEST_F(ManagerTest, AnswersDamagedFramesAndOutlivesADamagedMailbox) {
  Manager manager(directory);
  Peer peer(manager, ZT_MODE_READ_WRITE);
  const auto put_raw = [&](_HEAD head) {
    char* const box = peer.mailbox.m_shmem_r.m_p;
    peer.mailbox.m_lock_r.Lock();
    std::memcpy(box + 8, &head, sizeof head);
    store_relaxed<std::int32_t>(box + 4, 1);
    peer.mailbox.m_lock_r.Unlock();
    peer.mailbox.m_sema_r.Release();
    return peer.answer();
  };
  for (const int length : {-1, 8193, INT32_MIN, INT32_MAX, 0, 8192}) {
    EXPECT_EQ(put_raw({length, CMD_BEGINTRANS, VEMRO_NET, 0x1234, 1}), CMD_ERROR) << length;
  }
  EXPECT_EQ(peer.ask(CMD_BEGINTRANS), CMD_OK);
  std::memset(peer.mailbox.m_shmem_a.m_p, 0x7f, VEMRO_FRAME_BYTES + 8);  // its lock is never given back
  Peer other(manager, ZT_MODE_READ_WRITE);
  EXPECT_EQ(other.ask(CMD_QUERYDBRESULT), CMD_QUERYDBRESULT);
  peer.set(CMD_COMMITTRANS, "");
  EXPECT_TRUE(peer.mailbox.PutRequest(&peer.message));
  peer.chanel.Close();
  EXPECT_EQ(settled_amount(3), opening_balance);
  EXPECT_EQ(other.ask(CMD_BEGINTRANS), CMD_OK);
}

TEST_F(ManagerTest, RollsBackAClientThatKeepsTheLockOfItsBox) {
  Manager manager(directory, {"--shutdown-time", "5000"});
  Peer leaving(manager, ZT_MODE_READ_WRITE);
  Peer staying(manager, ZT_MODE_READ_WRITE);
  EXPECT_EQ(leaving.ask(CMD_BEGINTRANS), CMD_OK);
  EXPECT_EQ(leaving.ask(CMD_ERASE, ints({bank::accounts, 3})), CMD_OK);
  for (Peer* const peer : {&leaving, &staying}) peer->mailbox.m_lock_r.Lock();
  leaving.chanel.Close();
  EXPECT_EQ(manager.terminate(), 0) << "somebody is still waited for";
  EXPECT_EQ(bank::amount_of(owner_, 3), opening_balance);
}

}  // namespace
}  // namespace cachet::test
