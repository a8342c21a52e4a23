#include "qe/qeMemory.h"

#include <cstdint>
#include <new>

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

namespace {

constexpr size_t kLargePageBytes = size_t(1) << 21;

}  // namespace

void* qeAllocateLarge(size_t bytes) {
    if (bytes < kLargePageBytes) return ::operator new(bytes);
    // Aligned, so that only the partial page at the end is left to small
    // pages. The block is not rounded up to whole large pages: a large page
    // is resident as a whole once touched, and rounding every list up would
    // raise the peak memory by up to a large page per list.
    void* data = ::operator new(bytes, std::align_val_t(kLargePageBytes));
    qeAdviseLargePages(data, bytes);
    return data;
}

void qeFreeLarge(void* data, size_t bytes) noexcept {
    if (!data) return;
    if (bytes < kLargePageBytes)
        ::operator delete(data);
    else
        ::operator delete(data, std::align_val_t(kLargePageBytes));
}

}  // namespace qe
