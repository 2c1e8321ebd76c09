// The two ways in which a cell becomes text.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <array>
#include <cmath>

#include "zt/output/rows.h"

namespace zt {
namespace {

std::string with_unit(double bytes) {
  static constexpr std::array<const char*, 5> units{"B", "KiB", "MiB", "GiB", "TiB"};
  std::size_t unit = 0;
  while (std::fabs(bytes) >= 1024 && unit + 1 < units.size()) {
    bytes /= 1024;
    ++unit;
  }
  return unit == 0 ? fmt::format("{:.0f} B", bytes) : fmt::format("{:.1f} {}", bytes, units[unit]);
}

std::string duration(std::int64_t seconds) {
  if (seconds < 60) return fmt::format("{} s", seconds);
  if (seconds < 3600) return fmt::format("{} min {} s", seconds / 60, seconds % 60);
  if (seconds < 86400) return fmt::format("{} h {} min", seconds / 3600, seconds / 60 % 60);
  return fmt::format("{} d {} h", seconds / 86400, seconds / 3600 % 24);
}

std::string local_time(std::int64_t time, const char* format) {
  std::tm local{};
  const std::time_t seconds = time;
  localtime_r(&seconds, &local);
  char text[64];
  return {text, std::strftime(text, sizeof text, format, &local)};
}

double number_in(const Cell& cell) {
  if (const auto* whole = std::get_if<std::int64_t>(&cell)) return static_cast<double>(*whole);
  if (const auto* real = std::get_if<double>(&cell)) return *real;
  return 0;
}

std::int64_t whole_in(const Cell& cell) {
  const auto* whole = std::get_if<std::int64_t>(&cell);
  return whole != nullptr ? *whole : std::llround(number_in(cell));
}

std::string plain(const Cell& cell) {
  if (const auto* text = std::get_if<std::string>(&cell)) return *text;
  if (const auto* yes = std::get_if<bool>(&cell)) return *yes ? "true" : "false";
  if (const auto* whole = std::get_if<std::int64_t>(&cell)) return std::to_string(*whole);
  if (const auto* real = std::get_if<double>(&cell)) return fmt::format("{}", *real);
  return {};
}

}  // namespace

std::string for_people(const Cell& cell, Kind kind) {
  if (std::holds_alternative<std::monostate>(cell)) return "";
  switch (kind) {
    case Kind::bytes:
      return with_unit(number_in(cell));
    case Kind::percent:
      return fmt::format("{:.1f} %", number_in(cell));
    case Kind::real:
      return fmt::format("{:.1f}", number_in(cell));
    case Kind::seconds:
      return duration(whole_in(cell));
    case Kind::time:
      return local_time(whole_in(cell), "%Y-%m-%d %H:%M:%S");
    case Kind::yes_no:
      return plain(cell) == "true" ? "yes" : "no";
    default:
      return plain(cell);
  }
}

std::string for_programs(const Cell& cell, Kind kind) {
  if (std::holds_alternative<std::monostate>(cell)) return "";
  if (kind == Kind::time) return local_time(whole_in(cell), "%Y-%m-%dT%H:%M:%S%z");
  if (kind == Kind::percent) return fmt::format("{:.2f}", number_in(cell));
  return plain(cell);
}

bool is_number(Kind kind) {
  return kind != Kind::text && kind != Kind::state && kind != Kind::time && kind != Kind::yes_no;
}

}  // namespace zt
