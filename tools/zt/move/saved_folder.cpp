#include "zt/move/saved_folder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "inspect/attachment.h"
#include "zt/output/progress.h"
#include "zt/status.h"

namespace zt {

using cachet::inspect::Damaged;
using cachet::inspect::NotFound;

namespace {

using Json = nlohmann::ordered_json;

constexpr char format_name[] = "cachet saved database";
constexpr int format_version = 1;

Json to_json(const Manifest& manifest) {
  Json tables = Json::array(), files = Json::object();
  for (const SavedTable& table : manifest.tables) {
    tables.push_back({{"name", table.name}, {"records", table.records}});
  }
  for (const auto& [name, checksum] : manifest.files) {
    files[name] = {{"bytes", checksum.bytes}, {"sha256", checksum.sha256}};
  }
  return {{"format", format_name},
          {"format_version", format_version},
          {"database", manifest.database},
          {"version", manifest.version},
          {"size", manifest.size_bytes},
          {"saved", manifest.saved},
          {"tables", tables},
          {"files", files}};
}

// Throws Json's exceptions for what is not there, or of another type.
Manifest from_json(const Json& json) {
  if (json.at("format") != format_name || json.at("format_version") != format_version) {
    throw Damaged(tr("it is of another program, or of a later version"));
  }
  Manifest manifest{json.at("database"), json.at("version"), json.at("saved"), json.at("size"), {}, {}};
  for (const Json& table : json.at("tables")) {
    manifest.tables.push_back({table.at("name"), table.at("records")});
  }
  for (const auto& [name, file] : json.at("files").items()) {
    manifest.files[name] = {file.at("bytes"), file.at("sha256")};
  }
  return manifest;
}

Checksum checksum_with_progress(const Context& context, const std::string& file) {
  Progress progress(context.encoding(), tr("checking"), "MiB");
  std::ifstream end(file, std::ios::ate | std::ios::binary);
  const auto whole = static_cast<double>(std::max<std::streamoff>(end.tellg(), 1));
  return checksum_of(
      file, [&](std::int64_t bytes) { progress.at(bytes >> 20, static_cast<double>(bytes) / whole); });
}

}  // namespace

bool SavedFolder::is_saved_database() const {
  return access(manifest().c_str(), F_OK) == 0;
}

void SavedFolder::seal(const Context& context, Manifest& manifest) const {
  for (const char* const name : {image_name, schema_name}) {
    manifest.files[name] = checksum_with_progress(context, path_ + "/" + name);
  }
  std::ofstream out(this->manifest(), std::ios::binary | std::ios::trunc);
  out << to_json(manifest).dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
  if (!out.flush()) throw Failure(tr("cannot write {}: {}", this->manifest(), std::strerror(errno)));
}

Manifest SavedFolder::read() const {
  std::ifstream in(manifest(), std::ios::binary);
  if (!in) {
    throw NotFound(
        tr("there is no saved database in {} ({}: {})", path_, manifest_name, std::strerror(errno)));
  }
  try {
    return from_json(Json::parse(in));
  } catch (const std::exception& error) {
    throw Damaged(tr("{} is no manifest of a saved database: {}", manifest(), error.what()));
  }
}

Manifest SavedFolder::verified(const Context& context) const {
  Manifest manifest = read();
  for (const char* const name : {schema_name, image_name}) {
    const auto expected = manifest.files.find(name);
    if (expected == manifest.files.end())
      throw Damaged(tr("{} lacks the checksum of {}", this->manifest(), name));
    verify(context, name, expected->second);
  }
  return manifest;
}

void SavedFolder::verify(const Context& context, const std::string& name, const Checksum& expected) const {
  const std::string file = path_ + "/" + name;
  if (access(file.c_str(), F_OK) != 0) throw Damaged(tr("{} is missing: nothing is loaded", file));
  const Checksum found = checksum_with_progress(context, file);
  if (found.bytes != expected.bytes) {
    throw Damaged(tr("{} is damaged, nothing is loaded: it has {} bytes, {} were saved", file, found.bytes,
                     expected.bytes));
  }
  if (found != expected) {
    throw Damaged(
        tr("{} is damaged, nothing is loaded: its checksum is not the one of what was saved", file));
  }
}

void SavedFolder::remove() const noexcept {
  for (const std::string& file : {manifest(), schema(), image()}) unlink(file.c_str());
  rmdir(path_.c_str());
}

}  // namespace zt
