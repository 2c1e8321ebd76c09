// The fields of a table as a user writes and reads them: texts into the stored form of a field, with exact checks of
// range and room, and stored values into cells. What one direction prints, the other takes: nothing is rounded, cut or
// replaced on the way, except that a byte of a text that is no character is shown as "\xNN".
//
//   SHORT INT USHORT UINT INT8   a whole number, in decimal
//   DOUBLE                       a number; the library rounds it to the field's decimals when it is stored
//   STRING                       a text that fits the slot in the stored encoding, with its NUL
//   CHAR UCHAR                   one character of one byte, or "\xNN"; nothing for the byte 0
//   anything else                its bytes in hexadecimal; so are numbers in a slot of another width than their type's
#ifndef CACHET_TOOLS_ZT_FIELDS_H
#define CACHET_TOOLS_ZT_FIELDS_H

#include <cachet.h>

#include <string>
#include <string_view>
#include <vector>

#include "inspect/schema.h"
#include "zt/output/rows.h"
#include "zt/status.h"

namespace zt {

// A text that is no value of its field; says which field, and what is wrong.
struct BadValue : UsageError {
  using UsageError::UsageError;
};

// The width of a type's values; -1 for texts, which are as wide as their slot, and for a type without values.
int natural_bytes(int type);

// Ids are the library's, from 0 to count() - 1; others are undefined. Any thread may read.
class Fields {
 public:
  // `encoding` outlives it.
  Fields(const Encoding& encoding, const cachet::inspect::Table& table);

  int count() const { return static_cast<int>(fields_.size()); }
  // UTF-8.
  const std::string& name(int id) const { return fields_[static_cast<std::size_t>(id)].shown_name; }
  int type(int id) const { return fields_[static_cast<std::size_t>(id)].type; }
  int width_bytes(int id) const { return fields_[static_cast<std::size_t>(id)].length_bytes; }
  // The first one of this name; -1 without one.
  int id_of(std::string_view utf8_name) const;

  // One for each field.
  std::vector<Column> columns() const;
  // The value in its stored form: as many bytes as the field is wide, 8 at least. Throws BadValue.
  std::string stored(int id, std::string_view utf8) const;
  // Gives the field of a row this value. False when the library refuses; throws BadValue before that.
  bool set(ZtDbHandle database, ZtRecordHandle record, int id, std::string_view utf8) const;
  // From a field's bytes, which need not be aligned.
  Cell cell(int id, const char* bytes) const;
  // All fields of a row of this table.
  Row cells(ZtDbHandle database, ZtRecordHandle record) const;
  void append_cells(ZtDbHandle database, ZtRecordHandle record, Row& row) const;

 private:
  struct Field : cachet::inspect::Field {
    std::string shown_name;  // UTF-8
    bool raw = false;        // shown as bytes
    bool indexed = false;
  };

  std::string stored_text(const Field& field, std::string_view utf8) const;
  std::string stored_character(const Field& field, std::string_view utf8) const;

  const Encoding& encoding_;
  std::vector<Field> fields_;
};

}  // namespace zt

#endif
