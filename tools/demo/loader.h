// Fills the new database with the packages, in transactions of some thousand rows.
#ifndef CACHET_TOOLS_DEMO_LOADER_H
#define CACHET_TOOLS_DEMO_LOADER_H

#include "board.h"
#include "model.h"

namespace demo {

// False, with a complaint, when a row could not be stored or the parent said stop.
bool load(const Database& database, const Model& model, Board& board, Report& report);

}  // namespace demo

#endif
