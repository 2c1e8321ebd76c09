// What a check has to say: where something is wrong, and what.
#ifndef CACHET_TOOLS_INSPECT_FINDINGS_H
#define CACHET_TOOLS_INSPECT_FINDINGS_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace cachet::inspect {

enum class Severity {
  damage,    // the structure is broken
  leftover,  // a process died and left it so; clearing mends it
  note
};

inline const char* severity_name(Severity severity) {
  return severity == Severity::damage ? "damage" : severity == Severity::leftover ? "leftover" : "note";
}

// `where` is stored text: names of tables in the database's encoding, the rest ASCII. `what` is made by tr().
struct Finding {
  Severity severity = Severity::damage;
  std::string where;
  std::string what;
  bool operator==(const Finding&) const = default;
};

class Findings {
 public:
  void add(Severity severity, std::string where, std::string what) {
    ++count_;
    if (list_.size() < most_kept) list_.push_back({severity, std::move(where), std::move(what)});
  }
  void damage(std::string where, std::string what) {
    add(Severity::damage, std::move(where), std::move(what));
  }
  void leftover(std::string where, std::string what) {
    add(Severity::leftover, std::move(where), std::move(what));
  }
  void note(std::string where, std::string what) { add(Severity::note, std::move(where), std::move(what)); }

  // The first ones.
  const std::vector<Finding>& list() const { return list_; }
  // Of all, also of those that are not kept.
  std::int64_t count() const { return count_; }
  bool has(Severity severity) const {
    return std::any_of(list_.begin(), list_.end(),
                       [&](const Finding& each) { return each.severity == severity; });
  }
  // Keeps only what the other check has found too.
  void keep_common(const Findings& other) {
    std::erase_if(list_, [&](const Finding& each) {
      return std::find(other.list_.begin(), other.list_.end(), each) == other.list_.end();
    });
    count_ = static_cast<std::int64_t>(list_.size());
  }
  void append(const Findings& other) {
    for (const Finding& each : other.list_) add(each.severity, each.where, each.what);
    count_ += other.count_ - static_cast<std::int64_t>(other.list_.size());
  }

 private:
  static constexpr std::size_t most_kept = 1000;
  std::vector<Finding> list_;
  std::int64_t count_ = 0;
};

}  // namespace cachet::inspect

#endif
