// Request and Answer: the two messages of one exchange, and reading a request's body without trusting a byte of it.
#ifndef CACHET_TOOLS_ZTMANAGER_REQUESTS_REQUEST_H
#define CACHET_TOOLS_ZTMANAGER_REQUESTS_REQUEST_H

#include <cstring>
#include <string_view>
#include <type_traits>

#include "vemroprotocol.h"

namespace manager {

// A private copy of a frame whose length has been checked against the body's room.
class Request {
 public:
  explicit Request(const _VEMROMSG& message) : message_(message) {}

  char command() const { return message_.head.cmd; }
  int length() const { return message_.head.length; }

  // The body's fixed part; what the body does not reach is zero.
  template <class Body>
  Body body() const {
    static_assert(std::is_trivially_copyable_v<Body>);
    Body body{};
    const auto there = static_cast<std::size_t>(length());
    std::memcpy(&body, message_.body.buffer, there < sizeof body ? there : sizeof body);
    return body;
  }

  // What follows the first `offset` bytes of the body.
  std::string_view behind(std::size_t offset) const {
    const auto there = static_cast<std::size_t>(length());
    return offset < there ? std::string_view(message_.body.buffer + offset, there - offset)
                          : std::string_view();
  }

 private:
  const _VEMROMSG& message_;
};

class Answer {
 public:
  explicit Answer(_VEMROMSG& message) : message_(message) { set_head(CMD_OK, 0); }

  // For a body that is already in its place.
  void set_head(char command, std::size_t body_bytes) {
    message_.head = {};
    message_.head.cmd = command;
    message_.head.length = static_cast<int>(body_bytes);
  }

  template <class Body>
  void set(char command, const Body& body) {
    static_assert(std::is_class_v<Body> && std::is_trivially_copyable_v<Body>);
    static_assert(sizeof(Body) <= VEMRO_BODY_BYTES);
    set_head(command, sizeof body);
    std::memcpy(message_.body.buffer, &body, sizeof body);
  }

  void set_error(int code, std::string_view text) {
    _ERRORMSG error{code, {}};
    text.copy(error.errmsg, sizeof error.errmsg - 1);
    set(CMD_ERROR, error);
  }

  char* body() { return message_.body.buffer; }

 private:
  _VEMROMSG& message_;
};

// A text of the catalogue or the library in its place in a body: cut, with a NUL, and zeros behind it.
template <std::size_t size>
void put_text(char (&field)[size], const char* text) {
  std::memset(field, 0, size);
  if (text != nullptr) std::string_view(text).copy(field, size - 1);
}

}  // namespace manager

#endif
