// Growable arrays for the importer's large per-vertex and per-corner data.
#ifndef CONTOUR_SCRATCHARRAY_H
#define CONTOUR_SCRATCHARRAY_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/mman.h>
#include <type_traits>
#include <utility>

namespace contour {

// Like a vector of plain values, with two differences that matter for
// arrays of tens of megabytes filled once:
// - resize leaves new elements uninitialised; callers write every element
//   they read, and zero-filling first would touch each page twice;
// - large arrays get their own anonymous mapping, backed by huge pages where
//   the system allows. Page faults dominate the cost of first touching fresh
//   memory, and 2 MiB pages take 512 times fewer; unmapping returns the
//   memory at once. Through malloc such a block would also raise its
//   adaptive mmap threshold, after which later large blocks come from the
//   heap and stay resident after being freed.
template <class T>
class ScratchArray {
    static_assert(std::is_trivially_copyable<T>::value && std::is_trivially_destructible<T>::value,
                  "scratch arrays hold plain values");

public:
    ScratchArray() = default;
    explicit ScratchArray(size_t count) { resize(count); }
    ~ScratchArray() { release(); }
    ScratchArray(ScratchArray&& other) noexcept { swap(other); }
    ScratchArray& operator=(ScratchArray&& other) noexcept {
        if (this != &other) {
            release();
            swap(other);
        }
        return *this;
    }
    ScratchArray(const ScratchArray&) = delete;
    ScratchArray& operator=(const ScratchArray&) = delete;

    // Room for count elements; reserving more than is used costs address
    // space only, as pages are allocated when first touched.
    void reserve(size_t count) {
        if (count <= m_capacity) return;
        if (count > SIZE_MAX / sizeof(T)) throw std::bad_alloc();
        size_t mapped = 0;
        T* const data = static_cast<T*>(allocate(count * sizeof(T), mapped));
        const size_t size = m_size;
        if (size != 0) std::memcpy(static_cast<void*>(data), m_data, size * sizeof(T));
        release();
        m_data = data;
        m_size = size;
        m_capacity = mapped ? mapped / sizeof(T) : count;  // a mapping's whole pages are usable
        m_mapped = mapped;
    }
    // New elements are left uninitialised.
    void resize(size_t count) {
        reserve(count);
        m_size = count;
    }
    void assign(size_t count, const T& value) {
        resize(count);
        std::fill(m_data, m_data + count, value);
    }
    void push_back(const T& value) {
        if (m_size == m_capacity) reserve(std::max<size_t>(16, 2 * m_capacity));
        m_data[m_size++] = value;
    }
    void clear() { m_size = 0; }

    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    T* data() { return m_data; }
    const T* data() const { return m_data; }
    T& operator[](size_t i) { return m_data[i]; }
    const T& operator[](size_t i) const { return m_data[i]; }
    T* begin() { return m_data; }
    T* end() { return m_data + m_size; }
    const T* begin() const { return m_data; }
    const T* end() const { return m_data + m_size; }
    T& back() { return m_data[m_size - 1]; }

private:
    static constexpr size_t kMapFrom = size_t(256) << 10;
    static constexpr size_t kHugePage = size_t(2) << 20;

    // Memory for bytes; mapped is the length of the mapping, or 0 for a
    // block from malloc.
    static void* allocate(size_t bytes, size_t& mapped) {
        mapped = 0;
        if (bytes < kMapFrom) {
            void* const block = std::malloc(std::max<size_t>(bytes, 1));
            if (!block) throw std::bad_alloc();
            return block;
        }
        // Whole huge pages, on a huge page boundary: the spare head and tail
        // of a slightly larger mapping are given back.
        const size_t length = (bytes + kHugePage - 1) / kHugePage * kHugePage;
        void* const raw =
            ::mmap(nullptr, length + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (raw == MAP_FAILED) throw std::bad_alloc();
        const uintptr_t start = reinterpret_cast<uintptr_t>(raw);
        const uintptr_t aligned = (start + kHugePage - 1) / kHugePage * kHugePage;
        if (aligned != start) ::munmap(raw, aligned - start);
        if (aligned + length != start + length + kHugePage)
            ::munmap(reinterpret_cast<void*>(aligned + length), start + kHugePage - aligned);
        void* const block = reinterpret_cast<void*>(aligned);
#ifdef MADV_HUGEPAGE
        ::madvise(block, length, MADV_HUGEPAGE);  // advice only: small pages work too
#endif
        mapped = length;
        return block;
    }

    void release() {
        if (!m_data) return;
        if (m_mapped)
            ::munmap(static_cast<void*>(m_data), m_mapped);
        else
            std::free(m_data);
        m_data = nullptr;
        m_size = m_capacity = m_mapped = 0;
    }

    void swap(ScratchArray& other) noexcept {
        std::swap(m_data, other.m_data);
        std::swap(m_size, other.m_size);
        std::swap(m_capacity, other.m_capacity);
        std::swap(m_mapped, other.m_mapped);
    }

    T* m_data = nullptr;
    size_t m_size = 0;
    size_t m_capacity = 0;
    size_t m_mapped = 0;
};

}  // namespace contour

#endif
