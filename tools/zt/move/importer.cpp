#include "zt/move/importer.h"

#include <fmt/format.h>

#include <optional>

#include "zt/output/progress.h"
#include "zt/output/width.h"
#include "zt/stop.h"
#include "zt/transaction.h"

namespace zt {
namespace {

constexpr std::size_t longest_reason = 400;

// A reason quotes what it is about, which may be anything.
std::string presentable(const std::string& reason) {
  return cut_to(visible(reason), longest_reason, "~");
}

std::string placed(const std::string& file, TextPlace place, const std::string& reason) {
  return fmt::format("{}:{}:{}: {}", file, place.line, place.column, reason);
}

}  // namespace

Importer::Importer(const Context& context, const Database& database, const Table& table,
                   const ImportOptions& options, Input& input, RejectFile& rejects)
    : context_(context),
      database_(database),
      table_(table),
      options_(options),
      input_(input),
      rejects_(rejects) {}

// Calls `each(reader)` with every row that can be read.
template <class Each>
void Importer::for_each_row(const std::string& doing, bool stop_at_refusal, const Each& each) {
  std::unique_ptr<RowReader> reader;
  try {
    reader = make_row_reader(options_.reader, context_.encoding(), table_.fields(), input_);
  } catch (const BrokenText& broken) {
    refuse(broken.place, broken.what(), "");
    broken_off_ = first_refusal_;
    return;
  }
  Progress progress(context_.encoding(), doing, tr("rows"));
  for (Step step = read(*reader); step != Step::end; step = read(*reader)) {
    progress.at(++counts_.rows, input_.share());
    if (stop_asked()) end_interrupted();
    if (step == Step::row) step = each(*reader);
    if (step == Step::broken || (step == Step::refused && stop_at_refusal)) return;
  }
}

Importer::Step Importer::read(RowReader& reader) {
  try {
    if (!reader.next()) return Step::end;
    convert(reader);
    return Step::row;
  } catch (const BrokenText& broken) {
    return break_off(broken.place, broken.what(), reader.raw());
  } catch (const BadRow& bad) {
    refuse(bad.place, bad.what(), reader.raw());
    return Step::refused;
  }
}

void Importer::convert(const RowReader& reader) {
  stored_.clear();
  for (const InputValue& value : reader.values()) {
    try {
      stored_.emplace_back(value.field, table_.fields().stored(value.field, value.utf8));
    } catch (const BadValue& bad) {
      throw BadRow(value.place, bad.what());
    }
  }
}

void Importer::refuse(TextPlace place, const std::string& reason, const std::string& raw) {
  ++counts_.refused;
  if (first_refusal_.empty()) first_refusal_ = placed(options_.file, place, presentable(reason));
  rejects_.put(place, presentable(reason), raw);
}

Importer::Step Importer::break_off(TextPlace place, const std::string& reason, const std::string& raw) {
  refuse(place, reason, raw);
  broken_off_ = placed(options_.file, place, presentable(reason));
  return Step::broken;
}

void Importer::check() {
  for_each_row(tr("checking"), !rejects_.is_wanted(), [](const RowReader&) { return Step::row; });
}

void Importer::store() {
  const NewRow row(database_);
  const std::int64_t limit = options_.rows_of_a_transaction;
  std::optional<Transaction> transaction(std::in_place, context_, database_);
  for_each_row(tr("importing"), limit == 0, [&](const RowReader& reader) {
    const Step step = put(row, reader);
    if (step == Step::row && ++pending_ == limit) {
      transaction->commit();
      counts_.stored += std::exchange(pending_, 0);
      transaction.emplace(context_, database_);
    }
    return step;
  });
  if (counts_.refused > 0 && limit == 0) return;
  transaction->commit();
  counts_.stored += std::exchange(pending_, 0);
}

Importer::Step Importer::put(const NewRow& row, const RowReader& reader) {
  bool whole = ZtNewRecord(database_, table_.id(), row);
  for (const auto& [field, bytes] : stored_) whole = whole && ZtSetField(database_, row, field, bytes.data());
  if (whole && ZtPutRecord(database_, row)) return Step::row;
  int code = 0;
  char text[ZT_ERRMSG_SIZE] = {};
  ZtGetError(database_, &code, text);
  const std::string reason = fmt::format("{} ({})", context_.from_stored(text), code);
  if (code != ZT_ERR_DUPLICATE_KEY) return break_off(reader.place(), reason, reader.raw());
  refuse(reader.place(), reason, reader.raw());
  return Step::refused;
}

void Importer::end_interrupted() const {
  if (counts_.stored == 0) throw Failure(tr("interrupted: nothing was imported"));
  throw Failure(trn("interrupted: {} row was imported before", "interrupted: {} rows were imported before",
                    counts_.stored));
}

}  // namespace zt
