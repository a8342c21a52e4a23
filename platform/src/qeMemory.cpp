#include "qe/qeMemory.h"

#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace qe {

void qeAdviseLargePages(void* data, size_t bytes) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    // Only whole large pages inside the range are advised: the pages around
    // it may belong to other allocations.
    constexpr uintptr_t kLargePage = uintptr_t(1) << 21;
    const uintptr_t begin = reinterpret_cast<uintptr_t>(data);
    const uintptr_t first = (begin + kLargePage - 1) & ~(kLargePage - 1);
    const uintptr_t end = (begin + bytes) & ~(kLargePage - 1);
    if (!data || end <= first) return;
    // Failure (an older kernel, large pages switched off) leaves the
    // ordinary pages, which is all the advice can change.
    (void)madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}

}  // namespace qe
