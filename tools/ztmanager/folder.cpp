#include "ztmanager/folder.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace manager {

namespace {

bool lies_below(const fs::path& root, const fs::path& path) {
  const auto [in_root, in_path] = std::mismatch(root.begin(), root.end(), path.begin(), path.end());
  return in_root == root.end();
}

// What resolving left as it was is a link to nothing, which may be something when the file is opened.
bool has_link(const fs::path& root, const fs::path& path) {
  fs::path step = root;
  for (const fs::path& part : path.lexically_relative(root)) {
    step /= part;
    std::error_code error;
    if (fs::is_symlink(fs::symlink_status(step, error))) return true;
  }
  return false;
}

}  // namespace

Folder::Folder(const std::string& path) {
  if (path.empty()) return;
  root_ = fs::canonical(path);
  if (!fs::is_directory(root_)) {
    throw fs::filesystem_error("not a folder", root_, std::make_error_code(std::errc::not_a_directory));
  }
}

std::optional<fs::path> Folder::inside(std::string_view name) const {
  if (root_.empty() || name.empty()) return std::nullopt;
  std::error_code error;
  const fs::path path = fs::weakly_canonical(root_ / name, error);
  if (error || !lies_below(root_, path) || has_link(root_, path)) return std::nullopt;
  return path;
}

std::optional<std::string> Folder::file(std::string_view name) const {
  const std::optional<fs::path> path = inside(name);
  if (!path.has_value()) return std::nullopt;
  std::error_code error;
  const fs::file_status status = fs::symlink_status(*path, error);
  const bool is_allowed = fs::is_regular_file(status) || status.type() == fs::file_type::not_found;
  return is_allowed ? std::optional(path->string()) : std::nullopt;
}

std::optional<std::string> Folder::folder(std::string_view name) const {
  const std::optional<fs::path> path = inside(name);
  std::error_code error;
  if (!path.has_value() || !fs::is_directory(fs::symlink_status(*path, error))) return std::nullopt;
  return path->string();
}

}  // namespace manager
