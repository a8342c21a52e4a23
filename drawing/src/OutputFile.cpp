#include "ctr/drawing/OutputFile.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace contour {

namespace {

// What the signal handler may remove; a handler can only use plain storage.
char gPendingTemporary[4096];
volatile std::sig_atomic_t gHasPendingTemporary = 0;

void setPending(const std::string& path) {
    gHasPendingTemporary = 0;
    if (path.empty() || path.size() >= sizeof gPendingTemporary) return;
    std::memcpy(gPendingTemporary, path.c_str(), path.size() + 1);
    gHasPendingTemporary = 1;
}

volatile std::sig_atomic_t gInterrupted = 0;

extern "C" void removePendingAndReraise(int signalNumber) {
    if (gHasPendingTemporary) unlink(gPendingTemporary);
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
}

// The first interrupt asks the drawing to stop at its next check, which
// cleans up on the normal way out; a second one does not wait for that.
extern "C" void requestStop(int signalNumber) {
    if (gInterrupted) removePendingAndReraise(signalNumber);
    gInterrupted = 1;
}

std::string systemError() { return std::strerror(errno); }

}  // namespace

AtomicOutput::~AtomicOutput() { discard(); }

void AtomicOutput::discard() {
    if (temporary.empty()) return;
    setPending("");
    std::remove(temporary.c_str());
    temporary.clear();
}

bool AtomicOutput::create(const std::string& targetPath, std::string& error) {
    discard();
    target = targetPath;
    namespace fs = std::filesystem;
    std::string folder;
    std::string name = "contour";
    if (target == "-") {
        const char* tmp = std::getenv("TMPDIR");
        folder = tmp && *tmp ? tmp : "/tmp";
    } else {
        const fs::path path(target);
        std::error_code ignored;
        if (fs::is_directory(path, ignored)) {
            error = "'" + target + "' is a directory";
            return false;
        }
        folder = path.has_parent_path() ? path.parent_path().string() : ".";
        name = path.filename().string();
    }
    // Hidden and unique, in the target's folder so that the rename cannot
    // cross file systems.
    std::string pattern = folder + "/." + name + ".tmp-XXXXXX";
    const int descriptor = mkstemp(pattern.data());
    if (descriptor < 0) {
        error = "cannot create a file in '" + folder + "': " + systemError();
        return false;
    }
    // mkstemp makes the file private; the drawing gets the target's existing
    // permissions, or those of any new file.
    struct stat existing;
    mode_t mode;
    if (target != "-" && stat(target.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)) {
        mode = existing.st_mode & 07777;
    } else {
        const mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    fchmod(descriptor, mode);
    close(descriptor);
    temporary = pattern;
    setPending(temporary);
    return true;
}

bool AtomicOutput::commit(std::string& error) {
    if (temporary.empty()) {
        error = "no drawing was written";
        return false;
    }
    if (target == "-") {
        std::FILE* in = std::fopen(temporary.c_str(), "rb");
        if (!in) {
            error = "cannot read back '" + temporary + "': " + systemError();
            return false;
        }
        char buffer[1 << 16];
        size_t count;
        bool ok = true;
        while (ok && (count = std::fread(buffer, 1, sizeof buffer, in)) > 0)
            ok = std::fwrite(buffer, 1, count, stdout) == count;
        ok = ok && !std::ferror(in) && std::fflush(stdout) == 0;
        std::fclose(in);
        discard();
        if (!ok) error = "cannot write the drawing to standard output";
        return ok;
    }
    if (std::rename(temporary.c_str(), target.c_str()) != 0) {
        error = "cannot replace '" + target + "': " + systemError();
        return false;
    }
    setPending("");
    temporary.clear();
    return true;
}

void InstallInterruptHandling() {
    std::signal(SIGINT, requestStop);
    for (const int signalNumber : {SIGTERM, SIGHUP}) std::signal(signalNumber, removePendingAndReraise);
}

bool InterruptRequested() { return gInterrupted != 0; }

}  // namespace contour
