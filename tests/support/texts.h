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

// Runs an open that must fail and takes the line it prints; the handle is deleted.
template <class Open>
Error error_of(Open open) {
  ::testing::internal::CaptureStdout();
  Error error;
  {
    Database db = open();
    EXPECT_FALSE(db.opened);
    error = last_error(db);
  }
  std::fflush(stdout);
  const std::string printed = ::testing::internal::GetCapturedStdout();
  const std::string line = "errcode=" + std::to_string(error.code) + ",errmsg=" + error.text + "\n";
  EXPECT_NE(printed.find(line), std::string::npos) << ::testing::PrintToString(printed);
  return error;
}

}  // namespace cachet::test

#endif
