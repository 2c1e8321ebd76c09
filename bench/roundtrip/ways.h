// Ways for two processes of one host to exchange messages of a fixed size: the mailbox, and what a program would
// otherwise take. Each way is made before a fork; the parent asks, the child answers with the bytes it got.
#ifndef CACHET_BENCH_ROUNDTRIP_WAYS_H
#define CACHET_BENCH_ROUNDTRIP_WAYS_H

#include <memory>
#include <vector>

namespace roundtrip {

class Way {
 public:
  virtual ~Way() = default;
  // In the child, before it answers.
  virtual void enter_child() {}
  // Sends the bytes and waits for as many. False when something failed.
  virtual bool ask(std::vector<char>& bytes) = 0;
  virtual bool answer(std::vector<char>& bytes) = 0;
};

enum class Kind { mailbox, unix_socket, pipe, futex };
inline constexpr Kind kinds[] = {Kind::mailbox, Kind::unix_socket, Kind::pipe, Kind::futex};

const char* name_of(Kind kind);
// Exits when the system refuses it.
std::unique_ptr<Way> make_way(Kind kind);

// The mailbox is in a file of its own; see make_way.
std::unique_ptr<Way> make_mailbox();
[[noreturn]] void fail(const char* what);

}  // namespace roundtrip

#endif
