// Texts between three encodings: that of the database (GBK), UTF-8, which the tool works in, and that of the world
// outside (the locale's). The only file that converts.
#ifndef CACHET_TOOLS_ZT_OUTPUT_ENCODING_H
#define CACHET_TOOLS_ZT_OUTPUT_ENCODING_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zt {

class Converter;

class Encoding {
 public:
  // Names as iconv knows them. Throws UsageError for one that it does not know.
  Encoding(const std::string& outside, const std::string& stored);
  Encoding(Encoding&&) noexcept;
  ~Encoding();

  // The locale's encoding.
  static std::string of_locale();

  // A byte that is no character there becomes "\xNN".
  std::string from_stored(std::string_view text) const;
  std::string from_outside(std::string_view text) const;
  // None when a byte is no character there.
  std::optional<std::string> exactly_from_outside(std::string_view text) const;
  // A character that is missing there becomes "?".
  std::string to_outside(std::string_view utf8) const;
  // None when a character is missing there.
  std::optional<std::string> exactly_to_outside(std::string_view utf8) const;
  // Whether each ASCII character is the same byte outside.
  bool outside_keeps_ascii() const;
  // None when a character is missing there: what is stored is never silently changed.
  std::optional<std::string> to_stored(std::string_view utf8) const;
  // Whether box-drawing characters can be shown.
  bool has_boxes() const { return has_boxes_; }

 private:
  std::unique_ptr<Converter> from_stored_, to_stored_, from_outside_, to_outside_;
  bool has_boxes_ = false;
};

}  // namespace zt

#endif
