// Handles that reuse the first attachment of their process. The process keeps a list of all its attachments,
// so each case runs in a process of its own, started afresh.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/raw_memory.h"
#include "support/schema.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

struct ReuseCase {
  const char* name;
  void (*run)(TempDirectory&);
};

Database open_reusing(const std::string& path) {
  Database db;
  db.opened = ZtOpenDb(db.out(), path.c_str(), "d", version_text, ZT_MODE_READ_WRITE, 0, false, 1, 0, 0);
  if (db.opened) finish_open(db);
  return db;
}

void expect_refused(const TempDirectory& directory) {
  const Error error = error_of([&] { return open_reusing(directory.path()); });
  const std::string start = gbk(message::open_file_failed, (directory.base() + "00.data").c_str(), 0);
  EXPECT_EQ(error.code, ZT_ERR_GENERAL);
  EXPECT_EQ(error.text.substr(0, start.size() - 2), start.substr(0, start.size() - 2));
}

const ReuseCase cases[] = {
    {"SharesTheMappingAndDetachesNothing",
     [](TempDirectory& directory) {
       Database first = create_items(directory);
       const std::string file = directory.base() + "00.data";
       std::filesystem::rename(file, file + ".away");
       Database second = open_reusing(directory.path());
       ASSERT_TRUE(second.opened) << "looks at no key file";
       std::filesystem::rename(file + ".away", file);
       EXPECT_TRUE(open_reusing(directory.path() + "/.").opened) << "the same by another spelling";
       EXPECT_EQ(base_of(second)->memory, base_of(first)->memory);
       EXPECT_TRUE(commit_item(second, 1));
       second.close();
       EXPECT_EQ(attachments(directory.base()), 1);
       Row row(first);
       EXPECT_TRUE(find_item(first, 1, row));
     }},
    {"IsRefusedWithoutAnAttachment", [](TempDirectory& directory) { expect_refused(directory); }},
    {"IsRefusedWhenTheFirstAttachmentIsGone",
     [](TempDirectory& directory) {
       Database first = create_items(directory);
       Database keeps_it_alive = open_items(directory);
       first.close();
       expect_refused(directory);
     }},
    {"IsRefusedWhenTheFirstAttachmentIsOfAnotherDatabase",
     [](TempDirectory& directory) {
       Database other = begin_create(directory, small_bytes, "e");
       finish_create(other);
       Database creator = create_items(directory);
       expect_refused(directory);
     }},
};

class Reuse : public ::testing::TestWithParam<ReuseCase> {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  [[noreturn]] static void run_and_exit() {
    {
      TempDirectory directory;
      GetParam().run(directory);
      EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
    }
    std::exit(HasFailure() ? 1 : 0);
  }
};

TEST_P(Reuse, OfTheProcessAttachment) {
  EXPECT_EXIT(run_and_exit(), ::testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(, Reuse, ::testing::ValuesIn(cases),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace cachet::test
