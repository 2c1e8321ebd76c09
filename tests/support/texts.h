// The texts that a test expects, from the library's catalogue: GBK, with their arguments.
#ifndef CACHET_TESTS_SUPPORT_TEXTS_H
#define CACHET_TESTS_SUPPORT_TEXTS_H

#include <cstdio>
#include <string>
#include <type_traits>

#include "base/messages.h"
#include "support/schema.h"

namespace cachet::test {

template <class... Args>
std::string gbk(const message::Message<Args...>& text, std::type_identity_t<Args>... args) {
  if constexpr (sizeof...(args) == 0) {
    return text.c_str();
  } else {
    char buffer[1000];
    std::snprintf(buffer, sizeof buffer, text.c_str(), args...);
    return buffer;
  }
}

// The error -1008 with this text.
template <class... Args>
Error failure(const message::Message<Args...>& text, std::type_identity_t<Args>... args) {
  return {ZT_ERR_GENERAL, gbk(text, args...)};
}

}  // namespace cachet::test

#endif
