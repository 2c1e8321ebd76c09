// What an isolated client may and may not do: the kernel refuses its write to the mapped database, and the same change
// is made when it goes through a manager.
#ifndef CACHET_TOOLS_DEMO_ISOLATED_H
#define CACHET_TOOLS_DEMO_ISOLATED_H

#include <string>

#include "board.h"
#include "model.h"

namespace demo {

// Tells on standard output what happens, and enters the change into the ledger. Empty, or what went wrong.
std::string show_isolated_client(const std::string& directory, const Model& model, const Database& watcher,
                                 Ledger& ledger);

}  // namespace demo

#endif
