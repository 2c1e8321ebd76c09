// Whether this is a build that a sanitizer watches, which takes most addresses and adds instructions.
#ifndef CACHET_TESTS_SUPPORT_SANITIZERS_H
#define CACHET_TESTS_SUPPORT_SANITIZERS_H

namespace cachet::test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#elif defined(__has_feature)
inline constexpr bool sanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool sanitized = false;
#endif

}  // namespace cachet::test

#endif
