#include "zt/definition_file.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "zt/status.h"

namespace zt {
namespace {

std::string text_of_file(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) throw UsageError(fmt::format("{}: {}", file, std::strerror(errno)));
  if (std::filesystem::is_directory(file)) throw UsageError(tr("{} is a directory", file));
  return {std::istreambuf_iterator<char>(stream), {}};
}

// The numbers of a place in a text, for people: from 1.
std::string line_and_column(const std::string& text, std::size_t byte) {
  const std::string before = text.substr(0, byte > 0 ? byte - 1 : 0);
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  const std::size_t newline = before.rfind('\n');
  return fmt::format("{}:{}", line, before.size() - (newline == std::string::npos ? 0 : newline + 1) + 1);
}

nlohmann::json from_json(const std::string& file, const std::string& text) {
  try {
    return nlohmann::json::parse(text);
  } catch (const nlohmann::json::parse_error& error) {
    throw UsageError(tr("{}:{}: this is no JSON", file, line_and_column(text, error.byte)));
  }
}

nlohmann::json from_toml(const std::string& file, const std::string& text) {
  try {
    std::ostringstream json;
    json << toml::json_formatter(toml::parse(text));
    return nlohmann::json::parse(json.str());
  } catch (const toml::parse_error& error) {
    throw UsageError(fmt::format("{}:{}:{}: {}", file, error.source().begin.line, error.source().begin.column,
                                 error.description()));
  }
}

}  // namespace

nlohmann::json read_definition_file(const std::string& file) {
  const std::string text = text_of_file(file);
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  const bool is_json = first != std::string::npos && text[first] == '{';
  return is_json ? from_json(file, text) : from_toml(file, text);
}

}  // namespace zt
