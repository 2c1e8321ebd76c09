// What the tool says in Chinese, in both encodings, and in English where there is no catalogue.
#include <cstdlib>
#include <filesystem>

#include "inspect/translate.h"
#include "tools/zt_program.h"

namespace cachet::test {
namespace {

// Locales made for the test, since a host may have none; empty when they cannot be made.
class MadeLocales {
 public:
  explicit MadeLocales(const std::string& folder) : folder_(folder) {
    std::filesystem::create_directory(folder);
    made_ = make("UTF-8") && make("GBK");
  }
  ~MadeLocales() { std::filesystem::remove_all(folder_); }
  MadeLocales(const MadeLocales&) = delete;
  MadeLocales& operator=(const MadeLocales&) = delete;
  bool made() const { return made_; }

 private:
  bool make(const std::string& encoding) const {
    const std::string name = folder_ + "/zh_CN." + encoding;
    const std::string command =
        "localedef --no-archive -c -i zh_CN -f " + encoding + " " + name + " >/dev/null 2>&1";
    [[maybe_unused]] const int status = std::system(command.c_str());  // 1 for mere warnings too
    return std::filesystem::exists(name + "/LC_MESSAGES");
  }

  std::string folder_;
  bool made_;
};

class ZtLanguage : public Zt {};

TEST_F(ZtLanguage, IsThatOfTheLocaleInItsEncoding) {
  const MadeLocales locales(directory.path() + "/locales");
  if (!locales.made()) GTEST_SKIP() << "localedef cannot make zh_CN (Debian: locales)";
  if (!std::filesystem::exists(ZT_CATALOGUE)) GTEST_SKIP() << "no catalogue was built (Debian: gettext)";
  const Database db = create_goods();
  const std::string none_gbk = "zt: \xc3\xbb\xd3\xd0\xca\xfd\xbe\xdd\xbf\xe2 " + path("x");  // "no database"
  const std::string none_utf8 =
      "zt: \xe6\xb2\xa1\xe6\x9c\x89\xe6\x95\xb0\xe6\x8d\xae\xe5\xba\x93 " + path("x");
  // "the line that has the names of the fields is missing", "no row was imported"
  const std::string not_imported =
      "zt: -:1:1: \xc8\xb1\xc9\xd9\xd0\xb4\xd3\xd0\xd7\xd6\xb6\xce\xc3\xfb\xb5\xc4\xd2\xbb\xd0\xd0\n"
      "zt: \xc3\xbb\xd3\xd0\xb5\xbc\xc8\xeb\xc8\xce\xba\xce\xd0\xd0\n";
  const struct {
    Words arguments;
    const char* locale;
    int status;
    std::string err;
  } cases[] = {
      {{"rm", path("x")}, "zh_CN.UTF-8", not_found, none_utf8 + "\n"},
      {{"info", path("x")}, "zh_CN.GBK", not_found, none_gbk},
      {{"info", path("x"), "--encoding=UTF-8"}, "zh_CN.GBK", not_found, none_utf8},
      {{"info"}, "zh_CN.UTF-8", usage, "zt: \xe7\xbc\xba\xe5\xb0\x91 database"},
      {{"schema", path(), "other"}, "zh_CN.GBK", not_found, "\xc3\xbb\xd3\xd0\xb1\xed other"},
      {{"import", path(), goods_gbk, "-"}, "zh_CN.GBK", failure, not_imported},
      {{"rm", path("x")}, "C.UTF-8", not_found, "zt: there is no database " + path("x") + "\n"},
      {{"info"}, "C", usage, "zt: database is missing"},
  };
  for (const auto& each : cases) {
    const Result run = zt(each.arguments, {each.locale, {}, {{"LOCPATH", directory.path() + "/locales"}}});
    EXPECT_EQ(run.status, each.status) << run.err;
    EXPECT_NE(run.err.find(each.err), std::string::npos)
        << ::testing::PrintToString(each.arguments) << each.locale << ": " << run.err;
  }
  const Result doctor =
      zt({"doctor", path()}, {"zh_CN.UTF-8", {}, {{"LOCPATH", directory.path() + "/locales"}}});
  EXPECT_NE(doctor.out.find("\xe7\xa9\xba\xe9\x97\xb2 "), std::string::npos) << doctor.out;  // "free"
}

TEST_F(ZtLanguage, FillsThePlacesOfATextInTheirOrder) {
  EXPECT_EQ(inspect::tr("{} of {} {", 1, "two"), "1 of two {");
  EXPECT_EQ(inspect::trn("{} row in {}", "{} rows in {}", 1, "t"), "1 row in t");
  EXPECT_EQ(inspect::trn("{} row in {}", "{} rows in {}", 2, "t"), "2 rows in t");
}

}  // namespace
}  // namespace cachet::test
