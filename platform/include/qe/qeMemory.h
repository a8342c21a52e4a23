// Advice to the system about large buffers.
#ifndef QE_QEMEMORY_H
#define QE_QEMEMORY_H

#include <cstddef>
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
template <typename T>
void qeReserveLarge(std::vector<T>& list, size_t capacity) {
    if (list.capacity() >= capacity) {
        list.reserve(capacity);
        return;
    }
    list.reserve(capacity);
    qeAdviseLargePages(list.data(), capacity * sizeof(T));
}

}  // namespace qe

#endif
