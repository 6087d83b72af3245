#include "analysis/large_buffer.hpp"

#include <sys/mman.h>

namespace zolt::timing::detail {

void advise_huge_pages(void* address, std::size_t bytes) noexcept {
#ifdef MADV_HUGEPAGE
  // Only whole huge pages can be advised; the block starts on one.
  const std::size_t whole = bytes / kHugePageBytes * kHugePageBytes;
  if (whole != 0) (void)madvise(address, whole, MADV_HUGEPAGE);
#else
  (void)address;
  (void)bytes;
#endif
}

}  // namespace zolt::timing::detail
