// Imports whatever there is: after the first byte, which chooses between text and binary lines, the input is
// the file.
#include "databases.h"

using namespace cachet::fuzz;

namespace {

// By the exported readers, which the import must agree with.
long count_lines(const NamedBytes& file, decltype(ReadTableTxtFileLine)* read_line) {
  static char line[10241];
  long count = 0;
  while (read_line(file.descriptor(), line, 10240)) ++count;
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool binary = data[0] % 2 == 1;
  const NamedBytes file({reinterpret_cast<const char*>(data) + 1, size - 1});
  ZtDbHandle db = databases().writer;
  cachet::test::Row row(db);
  const bool imported =
      (binary ? ZtReadTableBinary : ZtReadTableTxt)(db, cachet::test::all, row, file.name().c_str());
  require(imported, "an import that ends with true");
  const long lines = count_lines(file, binary ? ReadTableBinaryFileLine : ReadTableTxtFileLine);
  int error = 0;
  char text[ZT_ERRMSG_SIZE];
  ZtGetError(db, &error, text);
  require(count_records(db) == lines || error == ZT_ERR_NO_MEMORY, "a record for every line");
  read_everything();
  ZtBeginTransaction(db);
  ZtCommitTransaction(db);
  ZtResetDb(db);
  return 0;
}
