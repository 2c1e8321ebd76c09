#include "zt/output/encoding.h"

#include <fmt/format.h>
#include <iconv.h>
#include <langinfo.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>

#include "zt/status.h"

namespace zt {

namespace {

bool is_ascii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char byte) { return (byte & 0x80) == 0; });
}

}  // namespace

// One direction of iconv. Most texts are ASCII, which most encodings keep as it is: iconv is spared then.
class Converter {
 public:
  Converter(const std::string& to, const std::string& from) {
    state_ = iconv_open(to.c_str(), from.c_str());
    if (state_ == none()) throw UsageError(tr("no conversion from encoding {} to {}", from, to));
    std::string ascii;
    for (int byte = 0; byte < 128; ++byte) ascii += static_cast<char>(byte);
    keeps_ascii_ = convert(ascii, [](std::string_view, std::string&) { return std::size_t{0}; }) == ascii;
  }
  ~Converter() { iconv_close(state_); }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // `replace(rest, result)` appends what stands for the character that cannot be converted and says how many bytes of
  // the rest that was; 0 gives up, and so does the conversion.
  template <class Replace>
  std::optional<std::string> convert(std::string_view text, const Replace& replace) const {
    if (keeps_ascii_ && is_ascii(text)) return std::string(text);
    std::string result;
    iconv(state_, nullptr, nullptr, nullptr, nullptr);
    while (!text.empty()) {
      text.remove_prefix(convert_run(text, result));
      if (text.empty()) break;
      const std::size_t replaced = replace(text, result);
      if (replaced == 0) return std::nullopt;
      text.remove_prefix(replaced);
    }
    return result;
  }

  bool keeps_ascii() const { return keeps_ascii_; }

 private:
  static iconv_t none() { return reinterpret_cast<iconv_t>(-1); }

  // As much as can be converted; returns how much that was.
  std::size_t convert_run(std::string_view text, std::string& result) const {
    char* in = const_cast<char*>(text.data());
    std::size_t in_bytes = text.size();
    for (bool full = true; full;) {
      char buffer[512];
      char* out = buffer;
      std::size_t out_bytes = sizeof buffer;
      full =
          iconv(state_, &in, &in_bytes, &out, &out_bytes) == static_cast<std::size_t>(-1) && errno == E2BIG;
      result.append(buffer, sizeof buffer - out_bytes);
    }
    return text.size() - in_bytes;
  }

  iconv_t state_;
  bool keeps_ascii_ = false;
};

namespace {

std::size_t escape_byte(std::string_view rest, std::string& result) {
  result += fmt::format("\\x{:02x}", static_cast<unsigned char>(rest.front()));
  return 1;
}

std::size_t give_up(std::string_view, std::string&) {
  return 0;
}

std::size_t question_mark(std::string_view utf8, std::string& result) {
  result += '?';
  std::size_t bytes = 1;
  while (bytes < utf8.size() && (static_cast<unsigned char>(utf8[bytes]) & 0xC0) == 0x80) ++bytes;
  return bytes;
}

}  // namespace

Encoding::Encoding(const std::string& outside, const std::string& stored)
    : from_stored_(std::make_unique<Converter>("UTF-8", stored)),
      to_stored_(std::make_unique<Converter>(stored, "UTF-8")),
      from_outside_(std::make_unique<Converter>("UTF-8", outside)),
      to_outside_(std::make_unique<Converter>(outside, "UTF-8")) {
  has_boxes_ = to_outside("\u2502") != "?" && strcasecmp(outside.c_str(), "UTF-8") == 0;
}

Encoding::Encoding(Encoding&&) noexcept = default;
Encoding::~Encoding() = default;

std::string Encoding::of_locale() {
  return nl_langinfo(CODESET);
}

std::string Encoding::from_stored(std::string_view text) const {
  return *from_stored_->convert(text, escape_byte);
}

std::string Encoding::from_outside(std::string_view text) const {
  return *from_outside_->convert(text, escape_byte);
}

std::string Encoding::to_outside(std::string_view utf8) const {
  return *to_outside_->convert(utf8, question_mark);
}

std::optional<std::string> Encoding::exactly_from_outside(std::string_view text) const {
  return from_outside_->convert(text, give_up);
}

std::optional<std::string> Encoding::exactly_to_outside(std::string_view utf8) const {
  return to_outside_->convert(utf8, give_up);
}

bool Encoding::outside_keeps_ascii() const {
  return from_outside_->keeps_ascii() && to_outside_->keeps_ascii();
}

std::optional<std::string> Encoding::to_stored(std::string_view utf8) const {
  return to_stored_->convert(utf8, give_up);
}

}  // namespace zt
