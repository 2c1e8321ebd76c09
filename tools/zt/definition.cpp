#include "zt/definition.h"

#include <cachet.h>
#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <nlohmann/json.hpp>

#include "zt/definition_file.h"
#include "zt/fields.h"
#include "zt/status.h"

namespace zt {

using cachet::inspect::Schema;
using nlohmann::json;
namespace inspect = cachet::inspect;

namespace {

constexpr std::size_t longest_table_name = 78;
constexpr std::size_t longest_name = 79;
constexpr std::int64_t last_field_offset = 32767;
constexpr std::int64_t longest_text = 65535;
constexpr std::int64_t most_decimals = 127;
constexpr std::size_t most_fields_of_index = 127;

// Reads one file; `where` is the way to what is being read, as its messages name it.
class Reader {
 public:
  Reader(std::string file, const Encoding& encoding) : file_(std::move(file)), encoding_(encoding) {}

  Schema read(const json& root) const {
    Schema schema;
    allow(root, tr("the file"), {"tables"});
    for (const json& each : array(root, tr("the file"), "tables")) {
      inspect::Table table = read_table(each, tr("table {}", schema.tables.size() + 1));
      require_new(schema.tables, table.name, tr("the file"));
      schema.tables.push_back(std::move(table));
    }
    if (schema.tables.empty()) fail(tr("the file"), tr("it has no table"));
    return schema;
  }

 private:
  [[noreturn]] void fail(const std::string& where, const std::string& what) const {
    throw UsageError(fmt::format("{}: {}: {}", file_, where, what));
  }

  void allow(const json& object, const std::string& where, std::initializer_list<const char*> names) const {
    if (!object.is_object()) fail(where, tr("it is not a table of names and values"));
    for (const auto& [name, value] : object.items()) {
      if (std::find(names.begin(), names.end(), name) == names.end())
        fail(where, tr("nobody knows \"{}\"; known are {}", name, fmt::format("{}", fmt::join(names, ", "))));
    }
  }

  const json& array(const json& object, const std::string& where, const char* name) const {
    static const json none = json::array();
    const auto found = object.find(name);
    if (found == object.end()) return none;
    if (!found->is_array()) fail(where, tr("\"{}\" is no list", name));
    return *found;
  }

  std::string name_in(const json& object, const std::string& where, std::size_t longest) const {
    const auto found = object.find("name");
    if (found == object.end() || !found->is_string()) fail(where, tr("it has no \"name\""));
    return stored_name(*found, where, longest);
  }

  std::string stored_name(const json& utf8, const std::string& where, std::size_t longest) const {
    if (!utf8.is_string()) fail(where, tr("a name is a text"));
    const auto stored = encoding_.to_stored(utf8.get<std::string>());
    if (!stored || stored->empty() || stored->size() > longest || stored->find('\0') != std::string::npos) {
      fail(where, tr("the name \"{}\" does not go: it takes 1 to {} bytes in the database's encoding",
                     utf8.get<std::string>(), longest));
    }
    return *stored;
  }

  std::int64_t number(const json& object, const std::string& where, const char* name, std::int64_t least,
                      std::int64_t most, std::int64_t otherwise) const {
    const auto found = object.find(name);
    if (found == object.end()) return otherwise;
    const bool fits = found->is_number_integer() && *found >= least && *found <= most;
    if (!fits) fail(where, tr("\"{}\" is a whole number from {} to {}", name, least, most));
    return found->get<std::int64_t>();
  }

  template <class Named>
  void require_new(const std::vector<Named>& all, const std::string& name, const std::string& where) const {
    const auto same = [&](const Named& each) { return each.name == name; };
    if (std::any_of(all.begin(), all.end(), same))
      fail(where, tr("two are named \"{}\"", encoding_.from_stored(name)));
  }

  inspect::Table read_table(const json& object, const std::string& where) const {
    allow(object, where, {"name", "fields", "indexes"});
    inspect::Table table;
    table.name = name_in(object, where, longest_table_name);
    const std::string named = tr("table \"{}\"", encoding_.from_stored(table.name));
    for (const json& each : array(object, named, "fields")) add_field(each, named, table);
    for (const json& each : array(object, named, "indexes")) add_index(each, named, table);
    if (table.fields.empty()) fail(named, tr("it has no field"));
    return table;
  }

  void add_field(const json& object, const std::string& of, inspect::Table& table) const {
    const std::string where = tr("{}, field {}", of, table.fields.size() + 1);
    allow(object, where, {"name", "type", "length", "decimals"});
    inspect::Field field;
    field.name = name_in(object, where, longest_name);
    require_new(table.fields, field.name, of);
    field.type = type_in(object, where);
    field.length_bytes = length_in(object, where, field.type);
    field.decimals = static_cast<int>(number(object, where, "decimals", 0, most_decimals, -1));
    if (field.decimals >= 0 && field.type != FIELD_DOUBLE) fail(where, tr("only a DOUBLE has decimals"));
    field.offset = table.record_bytes;
    if (field.offset > last_field_offset)
      fail(where, tr("it begins behind byte {} of the record", last_field_offset));
    table.record_bytes += field.length_bytes;
    table.fields.push_back(std::move(field));
  }

  int type_in(const json& object, const std::string& where) const {
    std::string names;
    for (int type = FIELD_SHORT; type <= FIELD_INT8; ++type) {
      if (object.value("type", json()) == inspect::type_name(type)) return type;
      names += (names.empty() ? "" : ", ") + inspect::type_name(type);
    }
    fail(where, tr("\"type\" is one of {}", names));
  }

  int length_in(const json& object, const std::string& where, int type) const {
    if (type != FIELD_STRING) {
      const int natural = natural_bytes(type);
      return static_cast<int>(number(object, where, "length", natural, natural, natural));
    }
    const std::int64_t length = number(object, where, "length", 1, longest_text, 0);
    if (length == 0)
      fail(where, tr("a STRING has a \"length\": its bytes in the database's encoding, and one more"));
    return static_cast<int>(length);
  }

  void add_index(const json& object, const std::string& of, inspect::Table& table) const {
    const std::string where = tr("{}, index {}", of, table.indexes.size() + 1);
    allow(object, where, {"name", "unique", "fields"});
    inspect::Index index;
    index.name = name_in(object, where, longest_name);
    require_new(table.indexes, index.name, of);
    const json unique = object.value("unique", json(false));
    if (!unique.is_boolean()) fail(where, tr("\"unique\" is true or false"));
    index.unique = unique.get<bool>();
    for (const json& each : array(object, where, "fields")) {
      const int field = field_named(each, where, table);
      if (std::find(index.fields.begin(), index.fields.end(), field) != index.fields.end())
        fail(where, tr("the field {} stands in it twice", each.dump()));
      index.fields.push_back(field);
    }
    if (index.fields.empty() || index.fields.size() > most_fields_of_index)
      fail(where, tr("an index has 1 to {} fields", most_fields_of_index));
    table.indexes.push_back(std::move(index));
  }

  int field_named(const json& utf8, const std::string& where, const inspect::Table& table) const {
    const std::string name = stored_name(utf8, where, longest_name);
    const auto found = std::find_if(table.fields.begin(), table.fields.end(),
                                    [&](const inspect::Field& each) { return each.name == name; });
    if (found == table.fields.end()) fail(where, tr("the table has no field {}", utf8.dump()));
    return static_cast<int>(found - table.fields.begin());
  }

  std::string file_;
  const Encoding& encoding_;
};

}  // namespace

Schema read_definition(const std::string& file, const Encoding& encoding) {
  return Reader(file, encoding).read(read_definition_file(file));
}

}  // namespace zt
