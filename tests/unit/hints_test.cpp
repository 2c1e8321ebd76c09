// Hints: the table itself, whose hints stay through its growth and obey the process's limit, and the nonces that
// hints depend on.
#include <gtest/gtest.h>

#include <vector>

#include "accelerate_hints.h"
#include "base/features.h"
#include "cachetx.h"
#include "support/ledger.h"

namespace cachet::test {
namespace {

constexpr Era some_era{Nonce{1}, 4096}, other_era{Nonce{2}, 4096}, shrunk_era{Nonce{1}, 4064};

std::uint32_t hash_of(std::uint32_t key) {
  return key * 0x9E3779B1u;
}

struct HintTables : testing::Test {
  ~HintTables() override { ZtxSetHintLimit(default_hint_limit_bytes); }

  void remember(std::uint32_t from, std::uint32_t to) {
    for (std::uint32_t key = from; key < to; ++key) {
      table.remember(some_era, {hash_of(key), key + 1, std::int64_t{8} * key});
    }
  }
  // How many keys have a hint; a wrong one fails the test.
  std::uint32_t known(std::uint32_t count) {
    std::uint32_t hits = 0;
    for (std::uint32_t key = 0; key < count; ++key) {
      const Hint* const hint = table.find(some_era, hash_of(key));
      if (hint == nullptr) continue;
      EXPECT_EQ(hint->node_number, key + 1);
      EXPECT_EQ(hint->key_offset, std::int64_t{8} * key);
      ++hits;
    }
    return hits;
  }

  HintTable table;
};

TEST_F(HintTables, KeepNearlyAllHintsWhileTheyGrow) {
  for (std::uint32_t count : {100u, 1000u, 10'000u, 300'000u}) {
    remember(0, count);
    EXPECT_GT(known(count), count - count / 50) << count;
    EXPECT_LE(table.bytes(), std::size_t{16} * 4 * count + 16384) << count;
  }
  EXPECT_EQ(hint_bytes(), table.bytes());
  const std::size_t bytes = table.bytes();
  HintTable moved = std::move(table);
  EXPECT_EQ(moved.bytes(), bytes);
  EXPECT_EQ(table.bytes(), 0u);
  moved.forget();
  EXPECT_EQ(hint_bytes(), 0u);
}

TEST_F(HintTables, ReplaceHintsAtTheLimitOfTheProcess) {
  ZtxSetHintLimit(100'000);
  HintTable other;
  other.remember(some_era, {1, 1, 8});
  remember(0, 50'000);
  EXPECT_EQ(table.bytes(), 65536u) << "as long as a power of two fits beside the other table";
  EXPECT_EQ(hint_bytes(), table.bytes() + other.bytes());
  const std::uint32_t old_ones = known(40'000);
  EXPECT_GT(known(50'000), old_ones + 1500) << "the last ones are known, at the cost of older ones";

  ZtxSetHintLimit(20'000);
  remember(0, 10);
  EXPECT_LE(hint_bytes(), 20'000u + other.bytes()) << "a table that is too large begins anew";
  other.remember(some_era, {1, 1, 8});
  EXPECT_LE(hint_bytes(), 20'000u);

  ZtxSetHintLimit(0);
  EXPECT_EQ(known(10), 0u);
  remember(0, 10);
  EXPECT_EQ(table.bytes(), 0u);
  ZtxSetHintLimit(-1);
  EXPECT_EQ(hint_limit(), 0u);
}

TEST_F(HintTables, BelongToOneEra) {
  remember(0, 100);
  EXPECT_EQ(table.find(other_era, hash_of(7)), nullptr);
  EXPECT_EQ(table.find(shrunk_era, hash_of(7)), nullptr);
  EXPECT_EQ(known(100), 100u);
  table.remember(Era{}, {hash_of(7), 1, 8});
  EXPECT_EQ(known(100), 100u) << "a tree without a nonce leaves no trace";
  table.remember(other_era, {hash_of(200), 1, 8});
  EXPECT_EQ(known(100), 0u);
  EXPECT_EQ(table.find(Era{}, hash_of(7)), nullptr);
}

// ---- the nonces of a database ----

struct Nonces : testing::Test {
  Nonce at(int index) const { return nonce_of(head(index)); }
  Rb_node head(int index) const {
    return ledger.writer()->database[0].indexs[static_cast<std::size_t>(index)];
  }
  void commit(int id) {
    Transaction all(ledger.writer());
    ASSERT_NE(Ledger::put(ledger.writer(), id, 1), -1);
  }
  // As a program leaves the head that makes it without knowing of nonces.
  void make_plain(int index) {
    store_release<std::uint64_t>(reinterpret_cast<char*>(head(index)) + nonce_at, 0);
  }

  Ledger ledger;
};

TEST_F(Nonces, AreGivenByTheFirstTransactionAndByAnInsert) {
  if (!features::nonces) GTEST_SKIP();
  for (int index : {0, 1, 2}) EXPECT_EQ(at(index), Nonce::none);
  Ledger::put(ledger.writer(), 1, 1);
  EXPECT_EQ(at(0), Nonce::none) << "outside a transaction nobody keeps other writers out";
  { Transaction first(ledger.writer()); }
  const Nonce given = at(0);
  for (int index : {0, 1, 2}) EXPECT_NE(at(index), Nonce::none);
  EXPECT_NE(at(0), at(1));
  commit(2);
  EXPECT_EQ(at(0), given);
  make_plain(0);
  { Transaction second(ledger.writer()); }
  EXPECT_EQ(at(0), Nonce::none);
  commit(3);
  EXPECT_NE(at(0), Nonce::none);
  EXPECT_NE(at(0), given);
}

TEST_F(Nonces, AreNewBehindAResetAndBehindAnImage) {
  commit(1);
  const Nonce first = at(0);
  ZtResetDb(ledger.writer());
  const Nonce second = at(0);
  commit(1);
  TempDirectory files;
  const std::string image = files.path() + "/image";
  ASSERT_TRUE(ZtWriteDbFile(ledger.writer(), image.c_str()));
  ASSERT_TRUE(ZtReadDbFile(ledger.writer(), image.c_str()));
  const Nonce third = at(0);
  if (features::nonces) {
    EXPECT_NE(second, Nonce::none);
    EXPECT_NE(second, first);
    EXPECT_NE(third, Nonce::none);
    EXPECT_NE(third, second);
  } else {
    EXPECT_EQ(third, Nonce::none);
  }
  for (int index : {0, 1, 2}) {
    EXPECT_EQ(load_unaligned<std::int64_t>(reinterpret_cast<const char*>(head(index)) + 13), 0)
        << "the head's key";
  }
}

// Ids take the same nodes again behind a reset: hints of the time before would lead to other keys, and hints of
// one table's tree, had they been taken over, to another tree's nodes.
TEST_F(Nonces, KeepHintsOfAnotherTimeFromBeingUsed) {
  Database readers[] = {ledger.open(ZT_MODE_READ_ONLY), ledger.open(ZT_MODE_READ_WRITE)};
  for (int round = 0; round < 3; ++round) {
    for (int id = 0; id < 40; ++id) commit(round % 2 == 0 ? id : 39 - id);
    for (ZtDbHandle reader : {static_cast<ZtDbHandle>(readers[0]), static_cast<ZtDbHandle>(readers[1])}) {
      for (int repeat : {0, 1, 2}) {
        for (int id = 0; id < 45; ++id) {
          SCOPED_TRACE("round " + std::to_string(round) + " repeat " + std::to_string(repeat));
          Query query(reader, Ledger::on_id, {id});
          ASSERT_EQ(query.rest(query.find(ZT_OP_EQUAL)).size(), id < 40 ? 1u : 0u) << id;
        }
      }
      EXPECT_EQ(reader->database[0].hints[Ledger::on_id].bytes() != 0, features::hints);
      EXPECT_EQ(reader->database[0].hints[Ledger::by_group].bytes(), 0u) << "not unique";
    }
    ZtResetDb(ledger.writer());
  }
}

}  // namespace
}  // namespace cachet::test
