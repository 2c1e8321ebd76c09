// Separators that cannot be trusted: those of an image, whatever they hold, do not mislead a search.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "support/schema.h"

namespace cachet::test {
namespace {

struct Separators : DatabaseTest {};

// Turns the order of every window below the node round.
void spoil(std::string& image, std::uint32_t number) {
  char* const node = image.data() + std::size_t{number} * 32;
  if ((node[12] & RB_INTERNAL) == 0) return;
  for (const int at : {17, 18, 19, 20, 25, 29, 30, 31}) node[at] = static_cast<char>(~node[at]);
  std::uint32_t children[2];
  std::memcpy(children, node, sizeof children);
  for (const std::uint32_t child : children) spoil(image, child);
}

TEST_F(Separators, OfADamagedImageAreTakenAway) {
  constexpr int rows = 400;
  Database db = create_items(directory);
  for (int i = 0; i < rows; ++i) commit_item(db, i * 7919 % rows, "item-of-a-row-" + std::to_string(i));
  const std::string file = directory.path() + "/image";
  ASSERT_TRUE(ZtWriteDbFile(db, file.c_str()));
  std::ifstream in(file, std::ios::binary);
  std::string image{std::istreambuf_iterator<char>(in), {}};
  const ZtTable& table = static_cast<ZtDbHandle>(db)->database[items];
  for (const Rb_node head : table.indexs) spoil(image, head->p.root);
  spoil(image, table.listindex->p.root);
  std::ofstream(file, std::ios::binary) << image;
  ASSERT_TRUE(ZtReadDbFile(db, file.c_str()));

  Row row(db);
  for (int i = 0; i < rows; ++i) {
    EXPECT_TRUE(find_item(db, i, row)) << i;
    const Condition name(by_name, ("item-of-a-row-" + std::to_string(i)).c_str());
    EXPECT_TRUE(ZtFindRecord(db, items, name, ZT_OP_EQUAL)) << i;
    const Condition list(-1);
    EXPECT_TRUE(ZtGotoRecord(db, items, i, list)) << i;
  }
  std::remove(file.c_str());
}

}  // namespace
}  // namespace cachet::test
