// Comma-separated values as RFC 4180 has them, byte by byte and whatever the encoding, as long as it keeps ASCII: records
// end at CR LF or LF; a value in quotes may hold commas, line ends and doubled quotes. Blank lines are skipped. Everything
// else that the RFC does not allow is refused, with its place: a quote in a bare value, text behind a closing one, a CR
// alone, a NUL.
#ifndef CACHET_TOOLS_ZT_MOVE_CSV_READER_H
#define CACHET_TOOLS_ZT_MOVE_CSV_READER_H

#include <span>

#include "zt/move/input.h"

namespace zt {

struct CsvValue {
  std::string bytes;
  TextPlace place;  // of its first byte, or its quote
};

class CsvReader {
 public:
  // `input` outlives it.
  explicit CsvReader(Input& input) : input_(input) {}

  // Goes on to the next record; false at the end. Throws BadRow, and stands behind the record's line then; BrokenText
  // for a quote that is never closed and for a record of more than 16 MiB.
  bool next();
  // The present record: its values, where it begins, and its bytes as they are in the file.
  std::span<const CsvValue> values() const { return {values_.data(), count_}; }
  TextPlace place() const { return place_; }
  const std::string& raw() const { return raw_; }

 private:
  enum class Behind { value, record };

  int take();
  bool at_line_end();
  void take_line_end();
  Behind read_value();
  void read_bare(std::string& bytes);
  void read_quoted(std::string& bytes);
  [[noreturn]] void refuse(TextPlace place, const std::string& why);

  Input& input_;
  std::vector<CsvValue> values_;  // the first `count_`; the others keep their room
  std::size_t count_ = 0;
  std::string raw_;
  TextPlace place_;
};

}  // namespace zt

#endif
