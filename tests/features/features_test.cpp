// What makes the library fast changes no answer and no documented byte: two processes, one with all of it and one
// without, write into the same database by turns and are asked the same; and each writes a database of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/child_process.h"
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

class Features : public DatabaseTest {
 protected:
  // The actors end before it is looked at what they left.
  void TearDown() override {
    plain_.reset();
    fast_.reset();
    DatabaseTest::TearDown();
  }

 private:
  std::optional<Actor> fast_{std::in_place, CACHET_ACTOR_FAST, directory.path()};
  std::optional<Actor> plain_{std::in_place, CACHET_ACTOR_PLAIN, directory.path()};

 protected:
  Actor& fast = *fast_;
  Actor& plain = *plain_;
};

TEST_F(Features, GiveTheSameAnswersOverTheSameDatabase) {
  for (const char* const name : {"a", "b"}) {
    Actor& creator = *name == 'a' ? fast : plain;
    Actor& opener = *name == 'a' ? plain : fast;
    const std::string of = std::string(" ") + name + " ";
    creator.ask(std::string("c ") + name);
    opener.ask(std::string("o ") + name);
    for (int round = 0; round < 24; ++round) {
      Actor& writer = round % 3 == 0 ? opener : creator;
      writer.ask("w" + of + std::to_string(round));
      const std::string question = "q" + of + std::to_string(round + 1000);
      const std::string answer = fast.ask(question);
      ASSERT_GT(answer.size(), 1000U);
      ASSERT_EQ(answer, plain.ask(question)) << name << ", round " << round;
    }
  }
}

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
  const ZtTable& table = static_cast<ZtDbHandle>(db)->database[0];
  const Rb_base& base = *base_of(db);
  std::string memory(base.share_memory_begin[0], static_cast<std::size_t>(base.memory->size));
  std::memset(memory.data(), 0, sizeof base.memory->name);
  clear_unused(memory, table.listindex->p.root);
  for (const Rb_node head : table.indexs) {
    clear_unused(memory, head->p.root);
    std::memset(memory.data() + (reinterpret_cast<char*>(head) - base.share_memory_begin[0]) + 24, 0, 8);
  }
  return memory;
}

TEST_F(Features, WriteTheSameDocumentedBytes) {
  fast.ask("c fast");
  plain.ask("c plain");
  for (int round = 0; round < 24; ++round) {
    const std::string seed = std::to_string(round);
    ASSERT_EQ(fast.ask("w fast " + seed), plain.ask("w plain " + seed));
    if (round % 4 == 0) {
      ASSERT_EQ(fast.ask("q fast " + seed), plain.ask("q plain " + seed));
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
