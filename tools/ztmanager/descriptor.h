// Descriptor: owns a file descriptor.
#ifndef CACHET_TOOLS_ZTMANAGER_DESCRIPTOR_H
#define CACHET_TOOLS_ZTMANAGER_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace manager {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~Descriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  explicit operator bool() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_ = -1;
};

}  // namespace manager

#endif
