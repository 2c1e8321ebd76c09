// THE error catalogue: every Chinese text that the library reports or prints, as GBK in the program.
//
// The texts stand in messages.def. Each becomes a constant, cachet::message::<name>, that knows the types of
// its arguments; a placeholder that does not fit them does not compile.
#ifndef CACHET_CPP_BASE_MESSAGES_H
#define CACHET_CPP_BASE_MESSAGES_H

#include <array>
#include <cstddef>
#include <type_traits>

#include "base/gbk.h"
#include "base/placeholders.h"

namespace cachet::message {

// Never defined, and no constant expression: a call stops the compilation, which then shows the name.
void placeholders_do_not_match_the_arguments();

template <class... Args>
class Message {
 public:
  template <std::size_t N>
  consteval explicit Message(const char8_t (&utf8)[N]) : gbk_(gbk::encode<capacity>({utf8, N - 1})) {
    if (!placeholders_match<Args...>(gbk_.data())) placeholders_do_not_match_the_arguments();
  }

  // The text in GBK, with its placeholders: a printf format for arguments of the types Args.
  constexpr const char* c_str() const { return gbk_.data(); }

 private:
  static constexpr std::size_t capacity = 64;
  std::array<char, capacity> gbk_;
};

template <class Signature>
struct MessageTaking;
template <class... Args>
struct MessageTaking<void(Args...)> {
  using Type = Message<Args...>;
};

#define MESSAGE(name, argument_types, text) \
  inline constexpr MessageTaking<void argument_types>::Type name{text};
#include "base/messages.def"

// snprintf, with the result cut at a whole character when the buffer of `size` bytes is too small for it. A
// text ends at 999 bytes in any case.
void format_bounded(char* buffer, std::size_t size, const char* format, ...);

// Prints the text and a line end on standard output.
void print_line_bounded(const char* format, ...);

template <class... Args>
void format(char* buffer, std::size_t size, const Message<Args...>& message,
            std::type_identity_t<Args>... args) {
  format_bounded(buffer, size, message.c_str(), args...);
}

template <class... Args>
void print_line(const Message<Args...>& message, std::type_identity_t<Args>... args) {
  print_line_bounded(message.c_str(), args...);
}

}  // namespace cachet::message

#endif
