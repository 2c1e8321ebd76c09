// A table with a field of every type, and values for it.
//
//   table 0 "all":  s SHORT | i INT | c CHAR | us USHORT | u UINT | uc UCHAR | t STRING[12] | d0, d2, d
//   DOUBLE
//                   (0 and 2 places, not set) | big INT8 | raw code 12, 3 bytes
//   indexes:        0 "pair" by i and t
#ifndef CACHET_TESTS_SUPPORT_ALL_TYPES_H
#define CACHET_TESTS_SUPPORT_ALL_TYPES_H

#include <array>
#include <string>

#include "support/schema.h"

namespace cachet::test {

enum : int { all = 0 };
enum : int { all_s, all_i, all_c, all_us, all_u, all_uc, all_t, all_d0, all_d2, all_d, all_big, all_raw };
inline constexpr int text_bytes = 12;
inline constexpr int raw_code = 12;
inline constexpr int all_record_bytes = 2 + 4 + 1 + 2 + 4 + 1 + text_bytes + 3 * 8 + 8 + 3;

struct Values {
  short s = 0;
  int i = 0;
  char c = 0;
  unsigned short us = 0;
  unsigned u = 0;
  unsigned char uc = 0;
  std::string t = {};
  double d0 = 0;
  double d2 = 0;
  double d = 0;
  ZTINT8 big = 0;
  std::array<char, 3> raw{};
};

inline void define_all(ZtDbHandle db, int index_type = ZT_INDEX_DUPLICATES) {
  ZtAddTable(db, "all");
  ZtAddField(db, all, "s", FIELD_SHORT, 2, -1);
  ZtAddField(db, all, "i", FIELD_INT, 4, -1);
  ZtAddField(db, all, "c", FIELD_CHAR, 1, -1);
  ZtAddField(db, all, "us", FIELD_USHORT, 2, -1);
  ZtAddField(db, all, "u", FIELD_UINT, 4, -1);
  ZtAddField(db, all, "uc", FIELD_UCHAR, 1, -1);
  ZtAddField(db, all, "t", FIELD_STRING, text_bytes, -1);
  ZtAddField(db, all, "d0", FIELD_DOUBLE, 8, 0);
  ZtAddField(db, all, "d2", FIELD_DOUBLE, 8, 2);
  ZtAddField(db, all, "d", FIELD_DOUBLE, 8, -1);
  ZtAddField(db, all, "big", FIELD_INT8, 8, -1);
  ZtAddField(db, all, "raw", raw_code, 3, -1);
  ZtAddIndex(db, all, "pair", index_type);
  ZtAddIndexField(db, all, 0, all_i);
  ZtAddIndexField(db, all, 0, all_t);
}

inline Database create_all(TempDirectory& directory, int index_type = ZT_INDEX_DUPLICATES,
                           ZTINT8 size_bytes = small_bytes, const char* name = "d") {
  Database db = begin_create(directory, size_bytes, name);
  EXPECT_TRUE(db.opened);
  define_all(db, index_type);
  finish_create(db);
  return db;
}

inline void set_text(ZtDbHandle db, ZtRecordHandle row, int field, const std::string& text,
                     std::size_t width) {
  std::string slot = text;
  slot.resize(width);
  EXPECT_TRUE(ZtSetField(db, row, field, slot.data()));
}

inline bool put(ZtDbHandle db, Row& row, const Values& values) {
  EXPECT_TRUE(ZtNewRecord(db, all, row));
  row.set(all_s, values.s);
  row.set(all_i, values.i);
  row.set(all_c, values.c);
  row.set(all_us, values.us);
  row.set(all_u, values.u);
  row.set(all_uc, values.uc);
  set_text(db, row, all_t, values.t, text_bytes);
  row.set(all_d0, values.d0);
  row.set(all_d2, values.d2);
  row.set(all_d, values.d);
  row.set(all_big, values.big);
  row.set(all_raw, values.raw);
  return ZtPutRecord(db, row);
}

inline bool put(ZtDbHandle db, const Values& values) {
  Row row(db);
  return put(db, row, values);
}

}  // namespace cachet::test

#endif
