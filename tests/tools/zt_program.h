// The command-line tool as its users run it: the real binary, in a pipe, and databases for it to look at.
#ifndef CACHET_TESTS_TOOLS_ZT_PROGRAM_H
#define CACHET_TESTS_TOOLS_ZT_PROGRAM_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "cachetx.h"
#include "support/child_process.h"
#include "support/schema.h"

namespace cachet::test {

// The tool's exit statuses.
enum : int { ok = 0, failure = 1, usage = 2, not_found = 3, damaged = 4, refused = 5 };

inline constexpr char goods_gbk[] = "\xc9\xcc\xc6\xb7";
inline constexpr char goods_utf8[] = "\xe5\x95\x86\xe5\x93\x81";

// Puts a name in Chinese for every "@".
inline std::string in_chinese(std::string text) {
  for (std::size_t at; (at = text.find('@')) != std::string::npos;) text.replace(at, 1, goods_utf8);
  return text;
}

inline bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

using Words = std::vector<std::string>;

struct Surroundings {
  const char* locale = "C.UTF-8";
  std::string input;  // on standard input
  std::vector<std::pair<std::string, std::string>> variables;
};

struct Result {
  int status;
  std::string out, err;
};

// Makes this process the tool; 127 when it cannot.
inline int become_zt(const Words& arguments, const Surroundings& around) {
  setenv("LC_ALL", around.locale, 1);
  setenv("TZ", "UTC", 1);
  for (const auto& [name, value] : around.variables) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> words{const_cast<char*>(ZT_BINARY)};
  for (const std::string& each : arguments) words.push_back(const_cast<char*>(each.c_str()));
  words.push_back(nullptr);
  execv(ZT_BINARY, words.data());
  return 127;
}

inline Result zt(const Words& arguments, const Surroundings& around = {}) {
  Child child(
      [&](Gate&) {
        const int input = memfd_create("input", 0);
        const auto bytes = static_cast<ssize_t>(around.input.size());
        if (write(input, around.input.data(), around.input.size()) != bytes) return 127;
        lseek(input, 0, SEEK_SET);
        dup2(input, STDIN_FILENO);
        close(input);
        return become_zt(arguments, around);
      },
      Child::Output::captured);
  const int status = child.exit_status();
  return {status, child.output(), child.errors()};
}

class Zt : public DatabaseTest {
 protected:
  std::string path(const char* name = "d") const { return directory.path() + "/" + name; }

  struct Outcome {
    Words arguments;
    int status;
  };
  // Runs the tool with each of the arguments; what went wrong is said by the tool itself.
  static void expect_statuses(const std::vector<Outcome>& outcomes) {
    for (const auto& [arguments, status] : outcomes) {
      const Result run = zt(arguments);
      EXPECT_EQ(run.status, status) << ::testing::PrintToString(arguments) << run.err;
      EXPECT_TRUE(status <= usage || run.err.rfind("zt: ", 0) == 0) << run.err;
    }
  }

  Database create_goods() {
    Database db = begin_create(directory);
    define_table(db, goods_gbk, {{"id", FIELD_INT, 4, -1}, {"a,\"b|", FIELD_DOUBLE, 8, 2}},
                 {{"by id", ZT_INDEX_UNIQUE, {0}}});
    finish_create(db);
    return db;
  }

  // A database of `kept` committed items, whose only process died inside a transaction with `begun` more.
  void make_orphan(int kept, int begun) {
    Child child([&](Gate& gate) {
      Database db = create_items(directory);
      ZtxEnableRecovery(db);
      for (int id = 0; id < kept; ++id) commit_item(db, id);
      ZtBeginTransaction(db);
      for (int id = 0; id < begun; ++id) put_item(db, 1000 + id);
      gate.tell('r');
      pause();
      return 0;
    });
    ASSERT_TRUE(child.wait_for('r'));
    directory.note_objects();
    child.kill();
  }
};

}  // namespace cachet::test

#endif
