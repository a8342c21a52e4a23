#include "MappedFile.h"

#include <cstdint>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace contour::importer {

tMappedFile::tMappedFile(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return;
    struct stat status;
    if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
        void* const mapped =
            ::mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ, MAP_PRIVATE | MAP_POPULATE, descriptor, 0);
        if (mapped != MAP_FAILED) {
            m_data = static_cast<const char*>(mapped);
            m_size = static_cast<size_t>(status.st_size);
            m_mapped = true;
        }
    }
    ::close(descriptor);
}

tMappedFile::tMappedFile(const char* data, size_t size) {
    if (size == 0) return;
    m_data = data;
    m_size = size;
}

tMappedFile::~tMappedFile() {
    if (m_mapped) ::munmap(const_cast<char*>(m_data), m_size);
}

bool littleEndianHost() {
    const uint32_t one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

}  // namespace contour::importer
