// What is wrong with a command line, said in the tool's own words.
#ifndef CACHET_TOOLS_ZT_USAGE_H
#define CACHET_TOOLS_ZT_USAGE_H

#include <CLI/App.hpp>
#include <string>

namespace zt {

// The parser's own English text, where it says something that is not known here.
std::string usage_text(const CLI::ParseError& error);

}  // namespace zt

#endif
