// The plain copy that every answer is checked against: the packages as they were parsed, and what follows
// from them.
//
// A package's place in the index is its record id, since packages are loaded in that order. Rows with higher
// ids were made up by a writer and are named with one of the prefixes below. Nothing here changes after the
// start, and nothing looks into the database.
#ifndef CACHET_TOOLS_DEMO_MODEL_H
#define CACHET_TOOLS_DEMO_MODEL_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "package_index.h"
#include "schema.h"

namespace demo {

constexpr std::string_view kKeptPrefix = "cachet-demo-kept-";
constexpr std::string_view kUndonePrefix =
    "cachet-demo-undone-";  // always rolled back: nobody may ever see one

struct Section {
  std::string name;
  std::vector<int> record_ids;  // ascending
};

class Model {
 public:
  explicit Model(std::vector<Package> packages);

  int count() const { return static_cast<int>(packages_.size()); }
  const std::vector<Package>& packages() const { return packages_; }
  const Package& package(int record_id) const { return packages_[static_cast<size_t>(record_id)]; }
  const std::vector<Section>& sections() const { return sections_; }
  const Section& section_of(int record_id) const {
    return sections_[section_numbers_[static_cast<size_t>(record_id)]];
  }

  // A package chosen by lot: half of the time one of a few that everybody wants, so that readers and writers
  // meet.
  int choose(std::mt19937& random) const;

  // Record ids of the ten largest packages, in the order of a walk from the end of the size index: of equal
  // sizes the one that was inserted last comes first.
  const std::vector<int>& largest() const { return largest_; }

  // Rows that a writer makes up stay below this size, so that they never get among the ten largest.
  int64_t size_limit_kib() const { return package(largest_.back()).size_kib; }

  // What is wrong with a row that a reader got, or null: a torn or uncommitted change, or a wrong package.
  const char* complaint_about(const Row& row) const;

 private:
  std::vector<Package> packages_;
  std::vector<Section> sections_;
  std::vector<size_t> section_numbers_;  // by record id
  std::vector<int> largest_;
};

// A row that a writer made up: the `serial`-th of writer `writer`.
Package made_up_package(const Model& model, std::string_view prefix, int writer, int serial);

}  // namespace demo

#endif
