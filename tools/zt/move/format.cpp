#include "zt/move/format.h"

#include <array>
#include <filesystem>

#include "zt/status.h"

namespace zt {
namespace {

struct Named {
  const char* name;  // of an extension, or for --format
  FileFormat format;
};

constexpr auto names = std::to_array<Named>({{"csv", FileFormat::csv},
                                             {"jsonl", FileFormat::json_lines},
                                             {"text", FileFormat::text},
                                             {"binary", FileFormat::binary},
                                             {"image", FileFormat::image},
                                             {"dump", FileFormat::dump}});
constexpr auto extensions = std::to_array<Named>({{".csv", FileFormat::csv},
                                                  {".jsonl", FileFormat::json_lines},
                                                  {".ndjson", FileFormat::json_lines},
                                                  {".txt", FileFormat::text},
                                                  {".bin", FileFormat::binary},
                                                  {".table", FileFormat::image},
                                                  {".dump", FileFormat::dump}});

template <std::size_t count>
const Named* find(const std::array<Named, count>& all, const std::string& name) {
  for (const Named& each : all) {
    if (name == each.name) return &each;
  }
  return nullptr;
}

}  // namespace

void FileChoice::declare(CLI::App& app, const char* what) {
  std::vector<std::string> all;
  all.reserve(names.size());
  for (const Named& each : names) all.emplace_back(each.name);
  app.add_option("file", file, what)->required()->type_name("FILE");
  app.add_option("--format", format, "csv, jsonl, text, binary, image or dump, whatever the file's name")
      ->check(CLI::IsMember(all));
}

FileFormat FileChoice::chosen() const {
  const std::string extension = std::filesystem::path(file).extension();
  const Named* const named = !format.empty() ? find(names, format)
                             : is_standard() ? &names.front()
                                             : find(extensions, extension);
  if (named == nullptr)
    throw UsageError(tr("the name {} does not tell its format; to name it: --format", file));
  if (is_standard() && is_of_library(named->format)) {
    throw UsageError(
        tr("the library reads and writes {} by a file's name: it cannot go through a pipe", named->name));
  }
  return named->format;
}

}  // namespace zt
