#include "cache/error.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/fatal.h"
#include "base/gbk_text.h"

void ZtSetError(ZtDbHandle database, int errcode, const char* format, ...) {
  char text[1000];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);

  database->lasterrno = errcode;
  cachet::copy_bounded(database->lasterrmsg, sizeof database->lasterrmsg, text);
  if (database->errhandle == nullptr) {
    std::printf("errcode=%d,errmsg=%s\n", errcode, database->lasterrmsg);
  } else if (!database->errhandle(errcode, database->lasterrmsg)) {
    cachet::fatal::refused_by_callback();
  }
}

void ZtGetError(ZtDbHandle database, int* errcode, char* errmsg) {
  *errcode = database->lasterrno;
  std::strcpy(errmsg, database->lasterrmsg);  // NOLINT: both are ZT_ERRMSG_SIZE bytes
}

void ZtSetErrorHandle(ZtDbHandle database, ZtErrorHandle callback) {
  database->errhandle = callback;
}

namespace cachet {

std::nullptr_t report_bad_table(ZtDbHandle database, int tableid) {
  report(database, ZT_ERR_GENERAL, message::bad_table, tableid);
  return nullptr;
}

std::nullptr_t report_bad_field(ZtDbHandle database, int fieldid) {
  report(database, ZT_ERR_GENERAL, message::bad_field, fieldid);
  return nullptr;
}

ZtTable* loaded_table(ZtDbHandle database, int tableid) {
  ZtTable* const table = table_at(database, tableid);
  if (table == nullptr || table->listindex != nullptr) return table;
  report(database, ZT_ERR_GENERAL, message::database_not_open);
  return nullptr;
}

bool report_no_record(ZtDbHandle database) {
  return report(database, ZT_ERR_GENERAL, message::no_record);
}

std::nullptr_t report_read_only(ZtDbHandle database, const ZtTable& table) {
  report(database, ZT_ERR_READ_ONLY, message::table_read_only, table.name);
  return nullptr;
}

bool require_writable(ZtDbHandle database) {
  if (!database->opened) return report(database, ZT_ERR_GENERAL, message::database_not_open);
  if (writes_locally(database)) return true;
  return report(database, ZT_ERR_GENERAL, message::database_read_only);
}

}  // namespace cachet
