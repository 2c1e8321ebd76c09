#include "zt/cursor.h"

#include <array>
#include <limits>
#include <utility>

#include "inspect/cursor_end.h"
#include "zt/endless_wait.h"

namespace zt {

namespace inspect = cachet::inspect;

namespace {

struct Operator {
  std::string_view sign;
  int code;
};

// A longer sign before the one that it begins with.
constexpr auto signs = std::to_array<Operator>({{"<=", ZT_OP_LESS_EQUAL},
                                                {">=", ZT_OP_GREATER_EQUAL},
                                                {"==", ZT_OP_EQUAL},
                                                {"<", ZT_OP_LESS},
                                                {">", ZT_OP_GREATER},
                                                {"=", ZT_OP_EQUAL}});
// For those who would rather not quote; stand alone.
constexpr auto names = std::to_array<Operator>({{"le", ZT_OP_LESS_EQUAL},
                                                {"ge", ZT_OP_GREATER_EQUAL},
                                                {"eq", ZT_OP_EQUAL},
                                                {"lt", ZT_OP_LESS},
                                                {"gt", ZT_OP_GREATER}});

// The operator that the first word is, or begins with; what stands behind it is the first value.
int take_operator(std::vector<std::string>& words) {
  const std::string first = words.front();
  words.erase(words.begin());
  for (const Operator& each : names) {
    if (first == each.sign) return each.code;
  }
  for (const Operator& each : signs) {
    if (first.rfind(each.sign, 0) != 0) continue;
    if (first.size() > each.sign.size()) words.insert(words.begin(), first.substr(each.sign.size()));
    return each.code;
  }
  throw UsageError(tr("\"{}\" is no operator: < <= = >= > or lt le eq ge gt", first));
}

std::string names_of_key(const Table& table, int index) {
  std::string text;
  for (const int field : table.key_of(index)) text += (text.empty() ? "" : ", ") + table.fields().name(field);
  return text;
}

}  // namespace

void RowChoice::declare(CLI::App& app) {
  CLI::Option* const by_index =
      app.add_option(
             "--index", index,
             "Rows of this index, by key: all, or those that compare so (< <= = >= > with a value for "
             "each field of the key)")
          ->type_name("INDEX [OP VALUE]")
          ->expected(1, CLI::detail::expected_max_vector_size);
  app.add_option("--id", record_id, "The row with this record id")
      ->type_name("RECORDID")
      ->check(CLI::Range(0, std::numeric_limits<int>::max()))
      ->excludes(by_index);
}

std::vector<std::string> RowChoice::take_surplus(const Table& table) {
  if (index.size() < 2) return {};
  std::vector<std::string> values(index.begin() + 1, index.end());
  take_operator(values);
  const std::size_t wanted = table.key_of(table.index_named(index.front())).size();
  if (values.size() <= wanted) return {};
  values.erase(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(wanted));
  index.resize(index.size() - values.size());
  return values;
}

Cursor::Cursor(const Context& context, const Database& database, const Table& table, const RowChoice& choice)
    : database_(database), table_(table), record_id_(choice.record_id), reverse_(choice.reverse) {
  std::vector<std::string> words = choice.index;
  if (!words.empty()) {
    index_ = table.index_named(words.front());
    words.erase(words.begin());
  }
  if (!words.empty()) operator_ = take_operator(words);
  ZtCreateCondition(static_cast<int>(words.size()), &condition_);
  ZtCreateRecord(&record_);
  ZtSetConditionIndex(condition_, index_);
  if (operator_ != 0) add_key(context, words);
  if (database.access() == Access::read) refuse_endless_read(context, database, table.id());
}

Cursor::~Cursor() {
  ZtCloseRecord(database_, record_);
  ZtCloseCondition(condition_);
}

void Cursor::add_key(const Context& context, const std::vector<std::string>& values) {
  const std::vector<int>& key = table_.key_of(index_);
  if (values.size() != key.size()) {
    throw UsageError(tr("the key of the index is ({}): values wanted: {}, values given: {}",
                        names_of_key(table_, index_), key.size(), values.size()));
  }
  const Fields& fields = table_.fields();
  for (std::size_t i = 0; i < key.size(); ++i) {
    const std::string stored = fields.stored(key[i], context.argument(values[i]));
    ZtAddConditionIndexItem(condition_, fields.type(key[i]), fields.width_bytes(key[i]), stored.data());
  }
}

bool Cursor::next() {
  const bool found = !std::exchange(began_, true) ? find_first()
                     : record_id_ >= 0            ? false
                     : reverse_                   ? ZtPrevRecord(database_, condition_)
                                                  : ZtNextRecord(database_, condition_);
  if (!found) {
    database_.throw_if_failed(tr("cannot read {}", table_.name()));
    const bool ended = steps_ == 0 || record_id_ >= 0 || inspect::has_come_to_end(*condition_, reverse_);
    if (!ended) refuse_broken_links(tr("break off"));
  } else if (++steps_ > most_steps_) {
    count_rows();
    if (steps_ > most_steps_) refuse_broken_links(tr("lead round in circles"));
  }
  return found;
}

// No walk meets more rows than the table has ever had.
void Cursor::count_rows() {
  long bytes = 0;
  ZtTableSize(database_, table_.id(), most_steps_, bytes);
}

void Cursor::refuse_broken_links(const std::string& how) const {
  throw inspect::Damaged(
      tr("the links of table {} {}; to see where: zt verify {}", table_.name(), how, database_.shown_path()));
}

bool Cursor::find_first() {
  if (record_id_ >= 0) return find_record();
  const bool found = operator_ == 0 ? ZtListRecord(database_, table_.id(), condition_)
                                    : ZtFindRecord(database_, table_.id(), condition_, operator_);
  return found && (!reverse_ || ZtLastRecord(database_, condition_));
}

// In the place of a deleted record the library finds the next one.
bool Cursor::find_record() {
  return ZtGotoRecord(database_, table_.id(), record_id_, condition_) &&
         ZtGetRecordId(database_, row()) == record_id_;
}

ZtRecordHandle Cursor::row() {
  if (!ZtGetRecord(database_, condition_, record_))
    database_.fail(tr("cannot read a row of {}", table_.name()));
  return record_;
}

}  // namespace zt
