#include "dbsessions/session_texts.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/features.h"

namespace cachet {

namespace {

SidText make_sid(const ThreadIdentity& thread) {
  std::array<char, sizeof(SidText) + 1> text{};
  std::snprintf(text.data(), text.size(), "%024lu%024lu", static_cast<unsigned long>(thread.pid),
                static_cast<unsigned long>(thread.tid));
  SidText sid;
  std::memcpy(sid.data(), text.data(), sid.size());
  return sid;
}

TimeText make_time(time_t second) {
  TimeText text{};
  tm parts{};
  localtime_r(&second, &parts);
  std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &parts);
  return text;
}

// The last text of a thread, and what it was made from.
template <class Source, class Text>
struct Kept {
  Source source{};
  Text text{};
  bool valid = false;
};

template <class Source, class Text, class Make>
const Text& kept_text(Kept<Source, Text>& kept, const Source& source, const Make& make) {
  if (!features::kept_texts || !kept.valid || kept.source != source) kept = {source, make(source), true};
  return kept.text;
}

[[gnu::tls_model("initial-exec")]] thread_local Kept<ThreadIdentity, SidText> kept_sid;
[[gnu::tls_model("initial-exec")]] thread_local Kept<time_t, TimeText> kept_time;

}  // namespace

const SidText& sid_of(const ThreadIdentity& thread) {
  return kept_text(kept_sid, thread, make_sid);
}

const TimeText& local_time() {
  return kept_text(kept_time, std::time(nullptr), make_time);
}

}  // namespace cachet
