#include "zt/move/checksum.h"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "zt/status.h"
#include "zt/stop.h"

namespace zt {
namespace {

constexpr std::size_t piece_bytes = 1 << 20;

class Sha256 {
 public:
  Sha256() : state_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
    check(state_ != nullptr && EVP_DigestInit_ex(state_.get(), EVP_sha256(), nullptr) == 1);
  }
  void add(const char* bytes, std::size_t count) { check(EVP_DigestUpdate(state_.get(), bytes, count) == 1); }
  std::string digits() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    check(EVP_DigestFinal_ex(state_.get(), digest.data(), &length) == 1);
    std::string digits;
    for (unsigned i = 0; i < length; ++i) digits += fmt::format("{:02x}", digest[i]);
    return digits;
  }

 private:
  static void check(bool done) {
    if (!done) throw Failure(tr("the checksum cannot be computed"));
  }

  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> state_;
};

}  // namespace

Checksum checksum_of(const std::string& file, const std::function<void(std::int64_t)>& each_piece) {
  const auto close = [](std::FILE* open) { std::fclose(open); };
  const std::unique_ptr<std::FILE, decltype(close)> in(std::fopen(file.c_str(), "rbe"), close);
  if (in == nullptr) throw Failure(tr("cannot open {}: {}", file, std::strerror(errno)));
  std::setbuf(in.get(), nullptr);
  Sha256 sha256;
  std::vector<char> piece(piece_bytes);
  std::int64_t bytes = 0;
  while (const std::size_t came = std::fread(piece.data(), 1, piece.size(), in.get())) {
    if (stop_asked()) throw Failure(tr("interrupted"));
    sha256.add(piece.data(), came);
    bytes += static_cast<std::int64_t>(came);
    each_piece(bytes);
  }
  if (std::ferror(in.get()) != 0) throw Failure(tr("cannot read {}: {}", file, std::strerror(errno)));
  return {bytes, sha256.digits()};
}

}  // namespace zt
