// Databases that the tool itself makes, for the tests of what it does with them.
#ifndef CACHET_TESTS_TOOLS_ZT_DATA_H
#define CACHET_TESTS_TOOLS_ZT_DATA_H

#include <fstream>

#include "tools/zt_program.h"

namespace cachet::test {

// To be put in Chinese.
inline constexpr char goods[] = R"({"tables": [
{"name": "@",
 "fields": [
  {"name": "id", "type": "INT"},
  {"name": "a\"b", "type": "STRING", "length": 11},
  {"name": "price", "type": "DOUBLE", "decimals": 2}
],
 "indexes": [
  {"name": "by id", "fields": ["id"], "unique": true},
  {"name": "by both", "fields": ["a\"b", "id"]}
]}
]}
)";

class ZtData : public Zt {
 protected:
  std::string schema_file(const std::string& text) const {
    std::ofstream(path("schema")) << in_chinese(text);
    return path("schema");
  }

  Result create(const std::string& schema, const std::string& size = "1M", Words more = {}) {
    Words words{"create", path(), "--schema", schema_file(schema), "--size", size, "--version", "1"};
    words.insert(words.end(), more.begin(), more.end());
    Result result = zt(words);
    directory.note_objects();
    return result;
  }

  void make(const std::string& schema) {
    const Result result = create(schema);
    ASSERT_EQ(result.status, ok) << result.out << result.err;
  }

  // `zt COMMAND DIR/NAME MORE...`
  Result on(const std::string& command, Words more) const {
    more.insert(more.begin(), {command, path()});
    return zt(more);
  }

  void remove() const { EXPECT_EQ(on("rm", {}).status, ok); }
};

}  // namespace cachet::test

#endif
