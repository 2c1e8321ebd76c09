// The bytes of a file or of standard input, read in pieces, with the place of each.
#ifndef CACHET_TOOLS_ZT_MOVE_INPUT_H
#define CACHET_TOOLS_ZT_MOVE_INPUT_H

#include <string>
#include <vector>

#include "zt/move/text_place.h"

namespace zt {

class Input {
 public:
  static constexpr int end = -1;

  // "-" is standard input. Throws Failure when the file cannot be opened.
  explicit Input(const std::string& file);
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  // The byte that comes next (0 to 255), or `end`. Throws Failure when the file cannot be read.
  int peek() {
    return position_ < filled_ || refill() ? static_cast<unsigned char>(buffer_[position_]) : end;
  }
  // The same, and goes on behind it.
  int next() {
    const int byte = peek();
    if (byte == end) return end;
    ++position_;
    ++place_.column;
    if (byte == '\n') place_ = {place_.line + 1, 1};
    return byte;
  }
  // Goes on behind the marker of UTF-8 texts, if that comes next; for the begin of a file.
  void skip_byte_order_mark();

  // Of the byte that comes next.
  TextPlace place() const { return place_; }
  // How much of the file has been read, from 0 to 1; negative when its size is not known.
  double share() const;
  // Whether it can be read again from its begin.
  bool can_rewind() const { return size_bytes_ >= 0; }
  void rewind();

 private:
  bool refill();

  std::string name_;
  int file_ = -1;
  std::int64_t size_bytes_ = -1;  // of a regular file
  std::int64_t taken_bytes_ = 0;  // before the buffer
  std::vector<char> buffer_;
  std::size_t position_ = 0, filled_ = 0;
  TextPlace place_;
};

}  // namespace zt

#endif
