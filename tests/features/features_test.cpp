// What makes the library fast changes no answer and no documented byte: two processes, one with all of it and one
// without, write into the same database by turns and are asked the same; and each writes a database of its own.
#include "base/features.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "support/child_process.h"
#include "support/files.h"
#include "support/schema.h"

namespace cachet::test {
namespace {

// One actor (actor/actor.cpp) and the pipes to it.
class Actor {
 public:
  Actor(const char* program, const std::string& directory) {
    int to[2];
    int from[2];
    if (pipe(to) != 0 || pipe(from) != 0) return;
    child_.emplace([&](Gate&) {
      dup2(to[0], 0);
      dup2(from[1], 1);
      close(to[1]);
      close(from[0]);
      execl(program, program, directory.c_str(), nullptr);
      return 127;
    });
    close(to[0]);
    close(from[1]);
    in_ = fdopen(to[1], "w");
    out_ = fdopen(from[0], "r");
  }
  ~Actor() {
    std::fclose(in_);
    EXPECT_EQ(child_->exit_status(), 0);
    std::fclose(out_);
  }
  Actor(const Actor&) = delete;
  Actor& operator=(const Actor&) = delete;

  std::string ask(const std::string& command) {
    std::fprintf(in_, "%s\n", command.c_str());
    std::fflush(in_);
    std::string answer;
    for (int c; (c = std::fgetc(out_)) != EOF && c != '\n';) answer += static_cast<char>(c);
    return answer;
  }

 private:
  std::optional<Child> child_;
  FILE* in_ = nullptr;
  FILE* out_ = nullptr;
};

class Features : public DatabaseTest, public testing::WithParamInterface<unsigned> {
 protected:
  // The actors end before it is looked at what they left.
  void TearDown() override {
    plain_.reset();
    fast_.reset();
    DatabaseTest::TearDown();
  }

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  std::string seed() { return std::to_string(random_()); }

  // Everything goes, or comes back from an image.
  void abandon(Actor& actor) {
    const std::string image = files_.file("image");
    if (below(3) == 0) {
      actor.ask("a d reset");
    } else if (below(2) == 0 || !std::exchange(has_image_, true)) {
      ASSERT_EQ(actor.ask("a d save " + image), "1");
    } else {
      ASSERT_EQ(actor.ask("a d load " + image), "1");
    }
  }

  // Begins a transaction or goes on with the open one, of whichever actor.
  void write() {
    Actor& actor = writing_ != nullptr ? *writing_ : below(2) == 0 ? fast : plain;
    if (writing_ == nullptr && below(20) == 0) return abandon(actor);
    writing_ = &actor;
    actor.ask("w d " + seed());
  }
  void end_writing() {
    if (writing_ == nullptr) return;
    std::exchange(writing_, nullptr)->ask(below(4) == 0 ? "e d r" : "e d c");
  }

  // A read-only handle waits while a transaction is open.
  std::string some_question() {
    return std::string("q d ") + (writing_ != nullptr || below(2) == 0 ? "w " : "r ") + seed();
  }

 private:
  std::mt19937 random_{GetParam()};
  Folder files_;
  bool has_image_ = false;
  Actor* writing_ = nullptr;
  std::optional<Actor> fast_{std::in_place, CACHET_ACTOR_FAST, directory.path()};
  std::optional<Actor> plain_{std::in_place, CACHET_ACTOR_PLAIN, directory.path()};

 protected:
  Actor& fast = *fast_;
  Actor& plain = *plain_;
};

// Now one of them writes, now the other: the fast one meets nodes without separators and heads without nonces, and keeps
// what it knows through resets, images and rollbacks of the other.
TEST_P(Features, GiveTheSameAnswersOverTheSameDatabase) {
  const std::string database = "d " + std::to_string(100 << GetParam() % 4 * 2);
  (GetParam() % 2 == 0 ? fast : plain).ask("c " + database);
  (GetParam() % 2 == 0 ? plain : fast).ask("o " + database);
  directory.note_objects();
  std::size_t answered_bytes = 0;
  for (int round = 0; round < 5000 && !HasFatalFailure(); ++round) {
    if (below(5) == 0) write();
    if (below(6) == 0) end_writing();
    const std::string question = some_question();
    const std::string answer = fast.ask(question);
    ASSERT_EQ(answer, plain.ask(question)) << "round " << round;
    answered_bytes += answer.size();
  }
  end_writing();
  EXPECT_GT(answered_bytes, 1000000u);
  EXPECT_EQ(fast.ask("h") != "0", features::hints);
  EXPECT_EQ(plain.ask("h"), "0");
}

INSTANTIATE_TEST_SUITE_P(Seeds, Features, testing::Values(1u, 2u, 3u, 4u),
                         [](const auto& seed) { return "Seed" + std::to_string(seed.param); });

// Puts zeros where the internal nodes below `number` keep what the layout leaves unused.
void clear_unused(std::string& memory, std::uint32_t number) {
  char* const node = memory.data() + std::size_t{number} * 32;
  if ((node[12] & RB_INTERNAL) == 0) return;
  std::memset(node + 17, 0, 4);
  std::memset(node + 25, 0, 7);
  for (const int child : {0, 4}) {
    std::uint32_t link;
    std::memcpy(&link, node + child, sizeof link);
    clear_unused(memory, link);
  }
}

// The flat space without the header's name and what the layout leaves unused.
std::string documented_bytes(const Database& db) {
  const Rb_base& base = *base_of(db);
  std::string memory(base.share_memory_begin[0], static_cast<std::size_t>(base.memory->size));
  std::memset(memory.data(), 0, sizeof base.memory->name);
  for (const ZtTable& table : static_cast<ZtDbHandle>(db)->database) {
    clear_unused(memory, table.listindex->p.root);
    for (const Rb_node head : table.indexs) {
      clear_unused(memory, head->p.root);
      std::memset(memory.data() + (reinterpret_cast<char*>(head) - base.share_memory_begin[0]) + 24, 0, 8);
    }
  }
  return memory;
}

TEST_P(Features, WriteTheSameDocumentedBytes) {
  fast.ask("c fast 3000");
  plain.ask("c plain 3000");
  for (int round = 0; round < 24; ++round) {
    const std::string number = seed();
    ASSERT_EQ(fast.ask("w fast " + number), plain.ask("w plain " + number));
    for (Actor* const actor : {&fast, &plain}) {
      actor->ask(std::string("e ") + (actor == &fast ? "fast " : "plain ") + (round % 4 == 1 ? "r" : "c"));
    }
    if (round % 4 == 0) {
      ASSERT_EQ(fast.ask("q fast w " + number), plain.ask("q plain w " + number));
    }
  }
  Database by_fast = begin_open(directory, ZT_MODE_READ_ONLY, "fast", "1");
  finish_open(by_fast);
  Database by_plain = begin_open(directory, ZT_MODE_READ_ONLY, "plain", "1");
  finish_open(by_plain);
  directory.note_objects();
  const std::string ours = documented_bytes(by_fast);
  const std::string theirs = documented_bytes(by_plain);
  ASSERT_EQ(ours.size(), theirs.size());
  const auto differ = std::mismatch(ours.begin(), ours.end(), theirs.begin());
  EXPECT_EQ(differ.first, ours.end()) << "at byte " << differ.first - ours.begin();
}

}  // namespace
}  // namespace cachet::test
