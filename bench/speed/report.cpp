// See report.h. All tables are made as rows of words first, and then laid out.
#include "report.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <string>
#include <thread>

#include "goals.h"

namespace bench {
namespace {

using Line = std::vector<std::string>;

struct Table {
  std::string title;
  std::vector<Line> lines;  // the first one has the headings
};

constexpr const char* operations[] = {
    "insert",
    "get_id",
    "get_id_tenth",
    "get_id_dependent",
    "get_id_cold_2k",
    "get_id_cold_50k",
    "get_name",
    "get_group",
    "range100",
    "full_scan",
    "update",
    "rollback",
    "delete",
    "two_readers",
    "reader_alone",
    "reader_beside_writer",
    "reader_alone_p999",
    "reader_beside_writer_p999",
    "writer_two",
    "batch16_id",
    "batch16_name",
    "lock_unlock",
    "attach",
    "warm_up",
    "bytes_per_row",
};
constexpr const char* round_trips[] = {"roundtrip_64", "roundtrip_1k", "roundtrip_64_busy",
                                       "roundtrip_1k_busy"};
constexpr const char* channels[] = {"cachet", "unix-socket", "pipe", "futex"};
constexpr const char* machine_operations[] = {"dependent_load", "dependent_load_huge"};

constexpr char unwarmed[] = "cachet-unwarmed";

std::string digits(std::optional<double> ns) {
  if (!ns) return "-";
  char text[32];
  std::snprintf(text, sizeof text, *ns < 100 ? "%.1f" : "%.0f", *ns);
  return text;
}

template <typename Operations, typename Systems>
Table table(const std::string& title, const Results& results, const Operations& lines,
            const Systems& columns) {
  Table table = {title, {{"operation"}}};
  for (const auto& system : columns) table.lines[0].emplace_back(system);
  for (const std::string operation : lines) {
    Line line = {operation};
    for (const auto& system : columns) line.push_back(digits(results.median(system, operation)));
    const bool measured =
        std::any_of(line.begin() + 1, line.end(), [](const std::string& ns) { return ns != "-"; });
    if (measured) table.lines.push_back(line);
  }
  return table;
}

// The systems that have a table, with cachet after its warm-up call or without.
Line columns(const Results& results, bool with_warm_up) {
  Line columns;
  for (const std::string& system : results.systems()) {
    if (system == (with_warm_up ? unwarmed : "cachet") || !results.median(system, "insert")) continue;
    columns.push_back(system);
  }
  return columns;
}

std::string processor() {
  std::ifstream in("/proc/cpuinfo");
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("model name")) return line.substr(line.find(": ") + 2);
  }
  return "unknown processor";
}

std::string heading(const Options& options) {
  std::ostringstream text;
  text << options.rows << " rows inserted in " << name_of(options.order)
       << " order, ns per operation, median of " << options.rounds << ", on " << processor() << " with "
       << std::thread::hardware_concurrency() << " cores and a load of " << std::setprecision(2)
       << options.load << " before";
  return text.str();
}

Table goal_table(const Options& options, const Results& results) {
  Table table = {"Goals", {{"operation", "measured", "goal", ""}}};
  for (const Verdict& verdict : judge(results, options.order))
    table.lines.push_back(
        {verdict.operation, verdict.measured, verdict.goal, verdict.met ? "met" : "missed"});
  return table;
}

std::vector<Table> tables(const Options& options, const Results& results) {
  std::vector<Table> tables = {table(heading(options), results, operations, columns(results, true))};
  if (results.median(unwarmed, "insert"))
    tables.push_back(
        table("The same without the warm-up call", results, operations, columns(results, false)));
  tables.push_back(table("Round trips between two processes", results, round_trips, channels));
  tables.push_back(table("The machine", results, machine_operations, Line{"machine"}));
  tables.push_back(goal_table(options, results));
  std::erase_if(tables, [](const Table& table) { return table.lines.size() == 1; });
  return tables;
}

std::vector<std::size_t> widths(const Table& table) {
  std::vector<std::size_t> widths(table.lines[0].size());
  for (const Line& line : table.lines) {
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  return widths;
}

std::string padding(const std::string& word, std::size_t width) {
  return std::string(width - word.size(), ' ');
}

}  // namespace

void print_text(std::ostream& out, const Options& options, const Results& results) {
  for (const Table& table : tables(options, results)) {
    out << '\n' << table.title << "\n\n";
    const std::vector<std::size_t> width = widths(table);
    for (const Line& line : table.lines) {
      out << line[0] << padding(line[0], width[0]);
      for (std::size_t i = 1; i < line.size(); ++i) out << "  " << padding(line[i], width[i]) << line[i];
      out << '\n';
    }
  }
}

void print_markdown(std::ostream& out, const Options& options, const Results& results) {
  for (const Table& table : tables(options, results)) {
    out << table.title << ":\n\n";
    for (std::size_t number = 0; number < table.lines.size(); ++number) {
      for (const std::string& word : table.lines[number]) out << "| " << word << ' ';
      out << "|\n";
      if (number > 0) continue;
      out << "|---";
      for (std::size_t i = 1; i < table.lines[0].size(); ++i) out << "|---:";
      out << "|\n";
    }
    out << '\n';
  }
}

void print_json(std::ostream& out, const Options& options, const Results& results) {
  out << "{\"rows\":" << options.rows << ",\"order\":\"" << name_of(options.order) << "\",\"results\":[";
  const char* separator = "\n";
  for (const std::string& system : results.systems()) {
    for (const std::string& operation : results.operations()) {
      const std::optional<double> ns = results.median(system, operation);
      if (!ns) continue;
      out << separator << "{\"system\":\"" << system << "\",\"operation\":\"" << operation
          << "\",\"ns\":" << *ns << '}';
      separator = ",\n";
    }
  }
  out << "\n]}\n";
}

}  // namespace bench
