// One transaction per batch: until its commit the rows of a batch can still be taken back, and read-only
// readers wait for it.
#include "loader.h"

#include <algorithm>

namespace demo {

bool load(const Database& database, const Model& model, Board& board, Report& report) {
  constexpr int batch_rows = 2000;
  for (int first = 0; first < model.count(); first += batch_rows) {
    if (board.stop) return false;
    const int end = std::min(first + batch_rows, model.count());
    Transaction transaction(database);
    for (int id = first; id < end; ++id) {
      if (!insert_row(database, model.package(id), {kFirstStock, 0})) {
        report.complain("loading " + model.package(id).name + ": " + last_error(database));
        return false;
      }
    }
    transaction.commit();
    board.rows_loaded = end;
  }
  return true;
}

}  // namespace demo
