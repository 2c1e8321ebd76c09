// What makes the library fast must not show: two processes, one with all of it and one without any, work on the same
// database and are asked the same things. Now one of them writes, now the other: the fast one meets nodes without
// separators and heads without nonces, and keeps what it knows through resets, images and rollbacks of the other.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <initializer_list>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "base/features.h"
#include "support/files.h"
#include "support/temp_database.h"

namespace cachet::test {
namespace {

class Peer {
 public:
  Peer(const char* program, const std::string& directory) {
    int in[2], out[2];
    if (pipe(in) != 0 || pipe(out) != 0) ADD_FAILURE();
    child_ = fork();
    if (child_ == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      for (int end : {in[0], in[1], out[0], out[1]}) close(end);
      execl(program, program, directory.c_str(), nullptr);
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    to_ = fdopen(in[1], "w");
    from_ = fdopen(out[0], "r");
    // The next peer must not keep this one's input open.
    fcntl(in[1], F_SETFD, FD_CLOEXEC);
    fcntl(out[0], F_SETFD, FD_CLOEXEC);
  }
  ~Peer() {
    fclose(to_);
    fclose(from_);
    int status = -1;
    waitpid(child_, &status, 0);
    EXPECT_EQ(status, 0);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  std::string ask(const std::string& line) {
    fprintf(to_, "%s\n", line.c_str());
    fflush(to_);
    std::string answer;
    for (int c = fgetc(from_); c != '\n'; c = fgetc(from_)) {
      if (c == EOF) return "gone";
      answer += static_cast<char>(c);
    }
    return answer;
  }

 private:
  pid_t child_;
  FILE* to_;
  FILE* from_;
};

std::string line_of(std::initializer_list<std::string> words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

class Peers : public DatabaseTest, public testing::WithParamInterface<unsigned> {
 protected:
  void TearDown() override {
    plain_.reset();
    fast_.reset();
    DatabaseTest::TearDown();
  }

  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
  template <class T>
  T one_of(std::initializer_list<T> values) {
    return values.begin()[below(static_cast<int>(values.size()))];
  }

  // Ids and names from a small range, so that most are there and many come back; names with a long common beginning,
  // and a few that share nothing with the others.
  std::string some_id() {
    return std::to_string(below(8) == 0 ? one_of({-1LL << 62, 1LL << 62, -5LL}) : below(ids_));
  }
  std::string name_of(const std::string& id) {
    return std::stoll(id) < 0 ? "A" + id
           : below(300) == 0  ? "zz"
                              : "name-" + std::string(7 - std::min<std::size_t>(7, id.size()), '0') + id;
  }
  std::string some_number() {
    return one_of<std::string>(
        {"0", "-0.0", "nan", "1e-310", "-1e-310", "inf", "-2.5", std::to_string(below(50))});
  }

  std::string some_question() {
    const std::string id = some_id(), table = std::to_string(below(8) == 0);
    if (below(20) == 0) return line_of({"goto", handle(), table, std::to_string(below(2 * ids_))});
    const int index = one_of({0, 0, 1, 1, 2, 3, 3, 4});
    const std::string begin = line_of({"find", handle(), table, std::to_string(index),
                                       std::to_string(1 + below(5)), std::to_string(below(3) == 0 ? 4 : 0)});
    switch (index) {
      case 0:
        return begin + " " + id;
      case 1:
        return begin + " " + name_of(id);
      case 2:
        return begin + " " + std::to_string(below(12));
      case 3:
        return begin + " " + std::to_string(below(12)) + (below(4) == 0 ? "" : " " + name_of(id));
      default:
        return begin + " " + some_number();
    }
  }

  // A read-only handle waits while a transaction is open.
  std::string handle() { return writing_ != nullptr || below(2) == 0 ? "w" : "r"; }

  void compare() {
    const std::string question = some_question();
    const std::string plain = plain_->ask(question);
    ASSERT_NE(plain, "gone") << question;
    ASSERT_EQ(fast_->ask(question), plain) << question;
  }

  void write() {
    Peer& peer = below(2) == 0 ? *fast_ : *plain_;
    if (writing_ == nullptr && below(40) == 0) {
      abandon(peer);
      return;
    }
    if (writing_ == nullptr) {
      writing_ = &peer;
      writing_->ask("begin");
    }
    for (int count = below(60); count > 0; --count) {
      const std::string id = some_id(), table = std::to_string(below(8) == 0);
      writing_->ask(below(4) == 0
                        ? line_of({"erase", table, id})
                        : line_of({"put", table, id, name_of(id), std::to_string(below(12)), some_number()}));
    }
  }

  // Everything goes, or comes back from an image.
  void abandon(Peer& peer) {
    const std::string image = files_.file("image");
    const int how = below(3);
    if (how == 0 || (how == 1 && !has_image_)) {
      has_image_ = true;
      ASSERT_EQ(peer.ask("save " + image), "1");
    } else if (how == 1) {
      ASSERT_EQ(peer.ask("load " + image), "1");
    } else {
      peer.ask("reset");
    }
  }

  void end_writing() {
    if (writing_ == nullptr) return;
    writing_->ask(below(4) == 0 ? "rollback" : "commit");
    writing_ = nullptr;
  }

  std::mt19937 random_{GetParam()};
  int ids_ = 100 << GetParam() % 4 * 2;
  Folder files_;
  Peer* writing_ = nullptr;
  bool has_image_ = false;
  std::optional<Peer> fast_{std::in_place, CACHET_PEER_FAST, directory.path()};
  std::optional<Peer> plain_{std::in_place, CACHET_PEER_PLAIN, directory.path()};
};

TEST_P(Peers, GiveTheSameAnswers) {
  fast_->ask("create");
  directory.note_objects();
  plain_->ask("open");
  for (int round = 0; round < 3000 && !HasFatalFailure(); ++round) {
    if (below(6) == 0) write();
    if (below(6) == 0) end_writing();
    for (int question = 0; question < 6 && !HasFatalFailure(); ++question) compare();
  }
  end_writing();
  EXPECT_EQ(fast_->ask("hints") != "0", features::hints);
  EXPECT_EQ(plain_->ask("hints"), "0");
}

INSTANTIATE_TEST_SUITE_P(Seeds, Peers, testing::Values(1u, 2u, 3u, 4u),
                         [](const auto& seed) { return "Seed" + std::to_string(seed.param); });

}  // namespace
}  // namespace cachet::test
