// The bytes of a model file, and the loads the binary readers make from them.
#ifndef CONTOUR_MAPPEDFILE_H
#define CONTOUR_MAPPEDFILE_H

#include <cstddef>
#include <cstring>
#include <string>

namespace contour::importer {

// The bytes of a file, mapped read-only and faulted in at once: a large
// model then costs no copy and few page faults. A file that cannot be
// opened or mapped, is not a regular file or is empty stays closed.
class tMappedFile {
public:
    explicit tMappedFile(const std::string& path);
    // Bytes held by the caller, which must outlive this object: the fuzz
    // targets hand the readers exactly the bytes they generated, so that a
    // read past the end is caught, as it would not be inside the last page
    // of a mapping. Closed when size is 0, as an empty file is.
    tMappedFile(const char* data, size_t size);
    ~tMappedFile();
    tMappedFile(const tMappedFile&) = delete;
    tMappedFile& operator=(const tMappedFile&) = delete;

    const char* begin() const { return m_data; }
    const char* end() const { return m_data + m_size; }
    size_t size() const { return m_size; }
    bool isOpen() const { return m_data != nullptr; }

private:
    const char* m_data = nullptr;
    size_t m_size = 0;
    bool m_mapped = false;
};

// Whether the host stores numbers as binary STL and PLY files do; the
// readers that load them in place decline the file otherwise.
bool littleEndianHost();

// A value stored at any alignment, in host byte order.
template <class T>
T load(const char* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

}  // namespace contour::importer

#endif
