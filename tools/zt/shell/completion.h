// What may come next on a line of the shell: commands, options and their values, and the names of the database's
// tables, fields and indexes. What an argument takes is known by its type: TABLE, FIELD, INDEX, FILE, FOLDER.
#ifndef CACHET_TOOLS_ZT_SHELL_COMPLETION_H
#define CACHET_TOOLS_ZT_SHELL_COMPLETION_H

#include <map>
#include <string>
#include <vector>

#include "zt/context.h"

namespace zt {

// What may stand in place of the end of a line, from `begin` on.
struct Completion {
  std::size_t begin = 0;
  std::vector<std::string> texts;  // sorted, as they would be typed
  bool ends_word = true;           // whether a blank follows when there is but one
};

// What the shell itself understands beside the commands, each with what may stand behind it.
using OwnWords = std::map<std::string, std::vector<std::string>>;

// `line` up to the cursor; all is UTF-8. Looks into the database for a moment, and offers no names when it cannot.
Completion complete(const Context& context, const std::string& database, const OwnWords& own_words,
                    const std::string& line);

}  // namespace zt

#endif
