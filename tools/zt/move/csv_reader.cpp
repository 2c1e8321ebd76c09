#include "zt/move/csv_reader.h"

#include "zt/move/longest_row.h"
#include "zt/translation.h"

namespace zt {

// A CR is taken as a line's end only with its LF, and nobody can look two bytes ahead: it is taken first.
bool CsvReader::at_line_end() {
  const int byte = input_.peek();
  return byte == '\n' || byte == '\r' || byte == Input::end;
}

int CsvReader::take() {
  const int byte = input_.next();
  if (byte == Input::end) return byte;
  if (raw_.size() == longest_row_bytes)
    throw BrokenText(place_, tr("a row of more than 16 MiB: is the quote missing that closes a value?"));
  raw_ += static_cast<char>(byte);
  return byte;
}

void CsvReader::take_line_end() {
  const TextPlace place = input_.place();
  const int byte = input_.next();
  if (byte != '\r') return;
  if (input_.peek() != '\n' && input_.peek() != Input::end) {
    raw_ += '\r';
    refuse(place, tr("a carriage return alone, outside of quotes"));
  }
  input_.next();
}

// The rest of the line goes with the record.
void CsvReader::refuse(TextPlace place, const std::string& why) {
  while (input_.peek() != Input::end && input_.peek() != '\n') take();
  input_.next();
  throw BadRow(place, why);
}

bool CsvReader::next() {
  count_ = 0;
  raw_.clear();
  while (input_.peek() == '\n' || input_.peek() == '\r') {
    place_ = input_.place();
    take_line_end();
  }
  if (input_.peek() == Input::end) return false;
  place_ = input_.place();
  while (read_value() == Behind::value) {
  }
  return true;
}

CsvReader::Behind CsvReader::read_value() {
  if (count_ == values_.size()) values_.emplace_back();
  CsvValue& value = values_[count_++];
  value.bytes.clear();
  value.place = input_.place();
  if (input_.peek() == '"') {
    read_quoted(value.bytes);
  } else {
    read_bare(value.bytes);
  }
  if (!at_line_end()) {
    take();
    return Behind::value;
  }
  take_line_end();
  return Behind::record;
}

// Up to the comma or the line's end.
void CsvReader::read_bare(std::string& bytes) {
  for (; input_.peek() != ',' && !at_line_end(); bytes += static_cast<char>(take())) {
    if (input_.peek() == '"') refuse(input_.place(), tr("a quote in a value that has none around it"));
    if (input_.peek() == 0) refuse(input_.place(), tr("a NUL"));
  }
}

void CsvReader::read_quoted(std::string& bytes) {
  const TextPlace begin = input_.place();
  take();
  for (;;) {
    const TextPlace place = input_.place();
    const int byte = take();
    if (byte == Input::end) throw BrokenText(begin, tr("the quote that begins here is never closed"));
    if (byte == 0) refuse(place, tr("a NUL"));
    if (byte == '"') {
      if (input_.peek() != '"') break;
      take();
    }
    bytes += static_cast<char>(byte);
  }
  if (input_.peek() != ',' && !at_line_end())
    refuse(input_.place(), tr("text behind the quote that closes a value"));
}

}  // namespace zt
