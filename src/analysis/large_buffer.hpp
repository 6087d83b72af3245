#pragma once

// Allocator for the large temporary arrays of the analysis functions (ten
// million tags make 80 MB per list). Fresh memory is paid for page by page
// when it is first touched, and with 4 KiB pages that costs more than the
// analysis itself; large blocks are therefore aligned to 2 MiB and offered to
// the kernel for transparent huge pages. Small blocks take the usual path.

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

namespace zolt::timing::detail {

inline constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;
inline constexpr std::size_t kLargeBufferBytes = std::size_t{4} << 20;

// Asks the kernel to back [address, address + bytes) with huge pages. Only a
// hint: on failure (or where unsupported) ordinary pages are used.
void advise_huge_pages(void* address, std::size_t bytes) noexcept;

template <class T>
class LargeBufferAllocator {
 public:
  using value_type = T;

  LargeBufferAllocator() noexcept = default;
  template <class U>
  LargeBufferAllocator(const LargeBufferAllocator<U>&) noexcept {}  // NOLINT: allocator rebinding

  T* allocate(std::size_t n) {
    if (n > SIZE_MAX / sizeof(T)) throw std::bad_array_new_length();
    const std::size_t bytes = n * sizeof(T);
    if (bytes < kLargeBufferBytes) return static_cast<T*>(::operator new(bytes, std::align_val_t{alignof(T)}));
    void* block = ::operator new(bytes, std::align_val_t{kHugePageBytes});
    advise_huge_pages(block, bytes);
    return static_cast<T*>(block);
  }

  void deallocate(T* p, std::size_t n) noexcept {
    const std::size_t bytes = n * sizeof(T);
    ::operator delete(p, bytes < kLargeBufferBytes ? std::align_val_t{alignof(T)} : std::align_val_t{kHugePageBytes});
  }

  template <class U>
  bool operator==(const LargeBufferAllocator<U>&) const noexcept {
    return true;
  }
};

template <class T>
using LargeVector = std::vector<T, LargeBufferAllocator<T>>;

}  // namespace zolt::timing::detail
