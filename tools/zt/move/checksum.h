// The checksum of a file: SHA-256, as sha256sum prints it.
#ifndef CACHET_TOOLS_ZT_MOVE_CHECKSUM_H
#define CACHET_TOOLS_ZT_MOVE_CHECKSUM_H

#include <cstdint>
#include <functional>
#include <string>

namespace zt {

struct Checksum {
  std::int64_t bytes = 0;
  std::string sha256;  // 64 hexadecimal digits
  bool operator==(const Checksum&) const = default;
};

// Reads the whole file, in pieces; `each_piece` is told how many bytes were read so far. Throws Failure when the file
// cannot be read, or when the tool was asked to stop.
Checksum checksum_of(const std::string& file, const std::function<void(std::int64_t)>& each_piece);

}  // namespace zt

#endif
