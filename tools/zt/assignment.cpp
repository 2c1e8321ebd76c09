#include "zt/assignment.h"

#include <algorithm>

namespace zt {
namespace {

// Of "NAME=VALUE" the length of the name: up to the "=" behind a name that is a field's, since a name may have one in
// it; else up to the first.
std::size_t length_of_name(const Table& table, const std::string& utf8) {
  const std::size_t first = utf8.find('=');
  for (std::size_t at = first; at != std::string::npos; at = utf8.find('=', at + 1)) {
    if (table.fields().id_of(utf8.substr(0, at)) >= 0) return at;
  }
  return first;
}

Assignment assignment(const Context& context, const Table& table, const std::string& word) {
  const std::string utf8 = context.argument(word);
  const std::size_t length = length_of_name(table, utf8);
  if (length == std::string::npos) throw UsageError(tr("\"{}\" is not FIELD=VALUE", utf8));
  const int field = table.field_named(utf8.substr(0, length));
  return {field, table.fields().stored(field, utf8.substr(length + 1))};
}

}  // namespace

std::vector<Assignment> assignments(const Context& context, const Table& table,
                                    const std::vector<std::string>& words) {
  std::vector<Assignment> all;
  for (const std::string& word : words) {
    Assignment made = assignment(context, table, word);
    const bool named =
        std::any_of(all.begin(), all.end(), [&](const Assignment& each) { return each.field == made.field; });
    if (named) throw UsageError(tr("field {}: given twice", table.fields().name(made.field)));
    all.push_back(std::move(made));
  }
  return all;
}

void assign(const Database& database, const Table& table, ZtRecordHandle record,
            const std::vector<Assignment>& assignments) {
  for (const Assignment& each : assignments) {
    if (!ZtSetField(database, record, each.field, each.value.data()))
      database.fail(tr("cannot set {}", table.fields().name(each.field)));
  }
}

}  // namespace zt
