// Folder: the one folder whose files clients may name, and nothing outside of it.
//
// A name is relative to the folder, or absolute and inside it. It is resolved before it is judged: neither ".." nor a
// symbolic link leads out. Whoever may write in the folder is trusted not to exchange a link between the judgement and
// the opening.
#ifndef CACHET_TOOLS_ZTMANAGER_FOLDER_H
#define CACHET_TOOLS_ZTMANAGER_FOLDER_H

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace manager {

class Folder {
 public:
  // Without a path no name is allowed. std::filesystem::filesystem_error when there is no such folder.
  explicit Folder(const std::string& path);

  // The absolute path, without links, of what the name stands for: a regular file, or nothing yet. None when that lies
  // outside the folder or is something else.
  std::optional<std::string> file(std::string_view name) const;
  // The same for a folder that exists.
  std::optional<std::string> folder(std::string_view name) const;

 private:
  std::optional<std::filesystem::path> inside(std::string_view name) const;

  std::filesystem::path root_;
};

}  // namespace manager

#endif
