// The elements of a vector under ids from outside.
#ifndef CACHET_CPP_BASE_ELEMENT_H
#define CACHET_CPP_BASE_ELEMENT_H

#include <cstddef>
#include <memory>
#include <vector>

namespace cachet {

constexpr std::size_t index_of_id(int id) noexcept {
  return static_cast<unsigned>(id);  // a negative one is beyond every size
}

// Compares bytes: the number of elements would cost a division by their size.
template <class T>
bool has_element(const std::vector<T>& elements, int id) noexcept {
  const auto* const begin = reinterpret_cast<const char*>(elements.data());
  const auto* const end = reinterpret_cast<const char*>(std::to_address(elements.end()));
  // NOLINTNEXTLINE(bugprone-sizeof-expression): where the elements are pointers, their own size is meant
  return index_of_id(id) * sizeof(T) < static_cast<std::size_t>(end - begin);
}

}  // namespace cachet

#endif
