#include "ReaderModule.h"

#include <cstdlib>
#include <dlfcn.h>
#include <unistd.h>
#include <map>
#include <mutex>
#include <vector>

namespace contour::importer {

namespace {

std::string folderOf(const std::string& file) {
    const size_t slash = file.rfind('/');
    return slash == std::string::npos ? std::string() : file.substr(0, slash);
}

// The folder of the object this code is linked into: the tool, a test, the
// Python module. A shared object is named by the path it was loaded from;
// the program itself by its argv[0], a bare name when it was found through
// PATH, and then by the kernel's link to it.
std::string ownFolder() {
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void*>(&ReaderEntry), &info) || !info.dli_fname) return std::string();
    const std::string file = info.dli_fname;
    if (file.find('/') != std::string::npos) return folderOf(file);
    char program[4096];
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program - 1);
    if (length <= 0) return std::string();
    return folderOf(std::string(program, static_cast<size_t>(length)));
}

std::string canonical(const std::string& path) {
    char* const resolved = realpath(path.c_str(), nullptr);
    if (!resolved) return path;
    const std::string result = resolved;
    std::free(resolved);
    return result;
}

std::vector<std::string> candidates(const char* module) {
    std::vector<std::string> paths;
    const std::string folder = canonical(ownFolder());
    if (folder.empty()) return paths;
    paths.push_back(folder + "/" + module);
    paths.push_back(folder + "/" CONTOUR_READER_INSTALL_RELATIVE "/" + module);
    // Only what runs from the build tree looks there: an installed copy
    // must not pick up whatever a later build leaves behind.
    const std::string root = canonical(CONTOUR_BUILD_ROOT) + "/";
    if (folder.compare(0, root.size(), root) == 0) paths.push_back(std::string(CONTOUR_READER_BUILD_DIR "/") + module);
    return paths;
}

}  // namespace

void* ReaderEntry(const char* module, const char* entry, std::string& error) {
    static std::mutex mutex;
    static std::map<std::string, void*> loaded;  // never closed: entries stay valid
    const std::lock_guard<std::mutex> lock(mutex);
    void*& handle = loaded[module];
    std::string reasons;
    if (!handle)
        for (const std::string& path : candidates(module)) {
            handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (handle) break;
            // A copy that exists but does not load (a missing dependency)
            // says more than the ones that are absent.
            const char* const why = dlerror();
            if (why && reasons.empty() && access(path.c_str(), F_OK) == 0) reasons = why;
        }
    if (!handle) {
        error = std::string("the reader module ") + module + " is not installed" +
                (reasons.empty() ? std::string() : " or does not load (" + reasons + ")");
        return nullptr;
    }
    void* const address = dlsym(handle, entry);
    if (!address) error = std::string("the reader module ") + module + " has no entry " + entry;
    return address;
}

}  // namespace contour::importer
