// Texts for the log, which is UTF-8: the library's are GBK, and what clients send may be anything.
#ifndef CACHET_TOOLS_ZTMANAGER_LOG_H
#define CACHET_TOOLS_ZTMANAGER_LOG_H

#include <string>
#include <string_view>

namespace manager {

// Control characters, and bytes that are no GBK, become "?".
std::string for_log(std::string_view gbk);

}  // namespace manager

#endif
