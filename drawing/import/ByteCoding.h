// What a reader in a child process hands back: plain bytes in host order,
// since parent and child are the same program. The reading side checks
// every count against the bytes left, so a garbled result fails cleanly.
#ifndef CONTOUR_BYTECODING_H
#define CONTOUR_BYTECODING_H

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "ScratchArray.h"

namespace contour::importer {

class tWriter {
public:
    template <class T>
    void value(const T& v) {
        bytes.append(reinterpret_cast<const char*>(&v), sizeof v);
    }
    template <class T>
    void array(const T* data, size_t count) {
        value(static_cast<uint64_t>(count));
        bytes.append(reinterpret_cast<const char*>(data), count * sizeof(T));
    }
    void text(const std::string& s) { array(s.data(), s.size()); }
    std::string bytes;
};

class tReader {
public:
    explicit tReader(const std::string& bytes) : at(bytes.data()), end(bytes.data() + bytes.size()) {}
    template <class T>
    T value() {
        T v;
        take(&v, sizeof v);
        return v;
    }
    uint64_t count(size_t elementSize) {
        const uint64_t n = value<uint64_t>();
        if (n > static_cast<uint64_t>(end - at) / elementSize) throw std::runtime_error("garbled scene");
        return n;
    }
    template <class T>
    void array(ScratchArray<T>& out) {
        out.resize(count(sizeof(T)));
        take(out.data(), out.size() * sizeof(T));
    }
    template <class T>
    void array(std::vector<T>& out) {
        out.resize(count(sizeof(T)));
        take(out.data(), out.size() * sizeof(T));
    }
    std::string text() {
        std::string s(count(1), '\0');
        take(s.data(), s.size());
        return s;
    }

private:
    void take(void* to, size_t size) {
        if (size > static_cast<size_t>(end - at)) throw std::runtime_error("garbled scene");
        if (size != 0) std::memcpy(to, at, size);
        at += size;
    }
    const char* at;
    const char* end;
};

}  // namespace contour::importer

#endif
