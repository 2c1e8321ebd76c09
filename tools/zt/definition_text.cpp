// A definition in either notation, laid out for people: a line for each field and index.
#include <cachet.h>
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "zt/definition.h"
#include "zt/fields.h"

namespace zt {

namespace inspect = cachet::inspect;

namespace {

class Writer {
 public:
  Writer(Notation notation, const Encoding& encoding) : notation_(notation), encoding_(encoding) {}

  std::string text(const inspect::Schema& schema) const {
    std::vector<std::string> tables;
    for (const inspect::Table& table : schema.tables) tables.push_back(text(table));
    if (notation_ == Notation::toml) return fmt::format("{}", fmt::join(tables, "\n"));
    return fmt::format("{{\"tables\": [\n{}\n]}}\n", fmt::join(tables, ",\n"));
  }

 private:
  using Members = std::vector<std::string>;

  std::string text(const inspect::Table& table) const {
    Members fields, indexes;
    for (const inspect::Field& each : table.fields) fields.push_back(text(each));
    for (const inspect::Index& each : table.indexes) indexes.push_back(text(table, each));
    const Members members{member("name", quoted(table.name)), member("fields", lines(fields)),
                          member("indexes", lines(indexes))};
    if (notation_ == Notation::toml) return fmt::format("[[tables]]\n{}\n", fmt::join(members, "\n"));
    return fmt::format("{{{}}}", fmt::join(members, ",\n "));
  }

  std::string text(const inspect::Field& field) const {
    Members members{member("name", quoted(field.name)),
                    member("type", "\"" + inspect::type_name(field.type) + "\"")};
    if (field.length_bytes != natural_bytes(field.type))
      members.push_back(member("length", std::to_string(field.length_bytes)));
    if (field.type == FIELD_DOUBLE && field.decimals >= 0)
      members.push_back(member("decimals", std::to_string(field.decimals)));
    return fmt::format("{{{}}}", fmt::join(members, ", "));
  }

  std::string text(const inspect::Table& table, const inspect::Index& index) const {
    Members fields;
    for (const int each : index.fields)
      fields.push_back(quoted(table.fields[static_cast<std::size_t>(each)].name));
    Members members{member("name", quoted(index.name)),
                    member("fields", fmt::format("[{}]", fmt::join(fields, ", ")))};
    if (index.unique) members.push_back(member("unique", "true"));
    return fmt::format("{{{}}}", fmt::join(members, ", "));
  }

  std::string member(const char* name, const std::string& value) const {
    return notation_ == Notation::toml ? fmt::format("{} = {}", name, value)
                                       : fmt::format("\"{}\": {}", name, value);
  }

  static std::string lines(const Members& elements) {
    return elements.empty() ? "[]" : fmt::format("[\n  {}\n]", fmt::join(elements, ",\n  "));
  }

  // The escapes are the same in both notations.
  std::string quoted(const std::string& stored) const {
    return nlohmann::json(encoding_.from_stored(stored)).dump();
  }

  Notation notation_;
  const Encoding& encoding_;
};

}  // namespace

std::string write_definition(const inspect::Schema& schema, Notation notation, const Encoding& encoding) {
  return Writer(notation, encoding).text(schema);
}

}  // namespace zt
