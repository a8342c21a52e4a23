// Advice to the system about large buffers.
#ifndef QE_QEMEMORY_H
#define QE_QEMEMORY_H

#include <cstddef>
#include <memory>
#include <vector>

namespace qe {

// Asks the system to back the untouched pages of [data, data + bytes) with
// large pages where it can, so that writing a buffer of many megabytes for
// the first time takes a few page faults instead of one per small page. A
// hint only: contents and addresses never change, and it does nothing where
// the system offers no such advice or the range is too small to hold a
// large page.
void qeAdviseLargePages(void* data, size_t bytes);

// Reserves room for capacity elements and advises large pages for it
// before anything is written there.
template <typename T, typename Allocator>
void qeReserveLarge(std::vector<T, Allocator>& list, size_t capacity) {
    if (list.capacity() >= capacity) {
        list.reserve(capacity);
        return;
    }
    list.reserve(capacity);
    qeAdviseLargePages(list.data(), capacity * sizeof(T));
}

// Memory for a large working list that lives for one step: from 2 MiB on,
// aligned to a large page and advised to large pages, so that writing it
// for the first time costs one fault per large page (and small ones for the
// partial page at its end) wherever the allocator takes it from. A fresh mapping per list (what the C library does for large
// blocks unless told otherwise) then costs about as little as a block
// reused from the heap. Smaller sizes are plain allocations. Throws
// std::bad_alloc as operator new does; release with the same size.
void* qeAllocateLarge(size_t bytes);
void qeFreeLarge(void* data, size_t bytes) noexcept;

template <typename T>
struct qeLargeAllocator {
    using value_type = T;
    qeLargeAllocator() = default;
    template <typename U>
    qeLargeAllocator(const qeLargeAllocator<U>&) {}
    T* allocate(size_t count) { return static_cast<T*>(qeAllocateLarge(count * sizeof(T))); }
    void deallocate(T* data, size_t count) noexcept { qeFreeLarge(data, count * sizeof(T)); }
};
template <typename T, typename U>
bool operator==(const qeLargeAllocator<T>&, const qeLargeAllocator<U>&) {
    return true;
}
template <typename T, typename U>
bool operator!=(const qeLargeAllocator<T>&, const qeLargeAllocator<U>&) {
    return false;
}

template <typename T>
using qeLargeVector = std::vector<T, qeLargeAllocator<T>>;

// An array of count values of a trivial type, not initialised: for lists
// whose every slot is written before it is read.
template <typename T>
class qeLargeArray {
public:
    explicit qeLargeArray(size_t count)
        : m_count(count), m_data(static_cast<T*>(qeAllocateLarge(count * sizeof(T)))) {}
    ~qeLargeArray() { qeFreeLarge(m_data, m_count * sizeof(T)); }
    qeLargeArray(const qeLargeArray&) = delete;
    qeLargeArray& operator=(const qeLargeArray&) = delete;
    T* get() const { return m_data; }
    T& operator[](size_t i) const { return m_data[i]; }

private:
    size_t m_count;
    T* m_data;
};

}  // namespace qe

#endif
