// A saved database: a folder that zt save makes and zt load reads.
//
//   FOLDER/database.image   the library's image of the whole database
//   FOLDER/schema.json      its tables, for people and for zt create
//   FOLDER/manifest.json    what was saved when, and the checksums of the two
//
// What must stay true: the manifest is written last, and nothing is loaded before every checksum has been compared.
#ifndef CACHET_TOOLS_ZT_MOVE_SAVED_FOLDER_H
#define CACHET_TOOLS_ZT_MOVE_SAVED_FOLDER_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "zt/context.h"
#include "zt/move/checksum.h"

namespace zt {

struct SavedTable {
  std::string name;  // UTF-8
  std::int64_t records = 0;
};

struct Manifest {
  std::string database;  // as the user wrote it
  std::string version;   // UTF-8
  std::string saved;     // when, in ISO 8601
  std::int64_t size_bytes = 0;
  std::vector<SavedTable> tables;
  std::map<std::string, Checksum> files;  // by name in the folder
};

class SavedFolder {
 public:
  explicit SavedFolder(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }
  std::string image() const { return path_ + "/" + image_name; }
  std::string schema() const { return path_ + "/" + schema_name; }
  std::string manifest() const { return path_ + "/" + manifest_name; }
  // Whether there is a manifest, whatever is in it.
  bool is_saved_database() const;

  // Takes the checksums of the other files, and writes the manifest with them. Throws Failure.
  void seal(const Context& context, Manifest& manifest) const;
  // Throws NotFound without a manifest, Damaged when it is no manifest or a file is not what it says.
  Manifest verified(const Context& context) const;
  // Removes the three files and the folder; what else is in it stays, and so does it then.
  void remove() const noexcept;

 private:
  static constexpr char image_name[] = "database.image";
  static constexpr char schema_name[] = "schema.json";
  static constexpr char manifest_name[] = "manifest.json";

  Manifest read() const;
  void verify(const Context& context, const std::string& name, const Checksum& expected) const;

  std::string path_;
};

}  // namespace zt

#endif
