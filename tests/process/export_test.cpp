// Exports by a read-only handle while another process writes: no lock is taken, and yet every record that is
// shown is whole.
#include <gtest/gtest.h>

#include <sstream>

#include "support/child_process.h"
#include "support/files.h"
#include "support/schema.h"

namespace cachet::test {
namespace {

using LiveExport = DatabaseTest;

int insert_until_told(const TempDirectory& directory, Gate& gate) {
  Database db = open_items(directory);
  for (int id = 0; id < 8000 && !gate.has_sign(); ++id) {
    commit_item(db, id, "name " + std::to_string(id), id % 7, id / 4.0);
    if (id == 0) gate.tell('r');
  }
  gate.wait_for('e');
  return 0;
}

std::string expected_line(int id) {
  char line[100];
  std::snprintf(line, sizeof line, "id=%d;name=name %d;team=%d;price=%.2f", id, id, id % 7, id / 4.0);
  return line;
}

TEST_F(LiveExport, ShowsWholeRecordsInOrder) {
  const Folder folder;
  Database db = create_items(directory);
  Child writer([&](Gate& gate) { return insert_until_told(directory, gate); });
  ASSERT_TRUE(writer.wait_for('r'));
  Database reader = open_items(directory, ZT_MODE_READ_ONLY);
  int seen_before = 0;
  for (int round = 0; round < 50; ++round) {
    ASSERT_TRUE(ZtWriteTableTxt(reader, items, folder.file("text").c_str()));
    ASSERT_TRUE(ZtDumpTable(reader, items, folder.file("dump").c_str()));
    ASSERT_TRUE(ZtWriteDbTable(reader, items, folder.file("image").c_str()));
    std::istringstream lines(contents_of(folder.file("text")));
    int seen = 0;
    for (std::string line; std::getline(lines, line); ++seen) ASSERT_EQ(line, expected_line(seen));
    ASSERT_GE(seen, seen_before);
    seen_before = seen;
  }
  writer.tell('e');
  EXPECT_EQ(writer.exit_status(), 0);
  EXPECT_GT(seen_before, 0);
}

}  // namespace
}  // namespace cachet::test
