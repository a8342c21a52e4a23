#include "ctr/drawing/OutputFile.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace contour {

namespace {

// What the signal handler may remove: one slot per output being written at
// once (a batch writes one per worker). A handler can only use plain storage
// and lock-free atomics. A slot is free (0), being filled (1) or holds a name
// (2); with every slot taken a name goes unregistered, which only matters on
// file systems without unnamed files.
struct tPendingSlot {
    std::atomic<int> state{0};
    char path[4096];
};
constexpr int kPendingSlots = 64;
tPendingSlot gPending[kPendingSlots];
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler reads the slots");

volatile std::sig_atomic_t gInterrupted = 0;

extern "C" void removePendingAndReraise(int signalNumber) {
    for (tPendingSlot& slot : gPending)
        if (slot.state.load() == 2) unlink(slot.path);
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

// The process's file creation mask. umask can only be read by setting it,
// which would open a window in which another thread's new files get mask 0,
// so it is read from /proc where that is there, and at most once otherwise.
mode_t creationMask() {
    static const mode_t mask = [] {
        if (FILE* status = std::fopen("/proc/self/status", "re")) {
            char line[256];
            unsigned int value = 0;
            bool found = false;
            while (!found && std::fgets(line, sizeof line, status))
                found = std::sscanf(line, "Umask: %o", &value) == 1;
            std::fclose(status);
            if (found) return static_cast<mode_t>(value);
        }
        const mode_t current = umask(0);
        umask(current);
        return current;
    }();
    return mask;
}

}  // namespace

void AtomicOutput::setPending(const std::string& path) {
    if (pendingSlot >= 0) gPending[pendingSlot].state.store(0);
    pendingSlot = -1;
    if (path.empty() || path.size() >= sizeof gPending[0].path) return;
    for (int i = 0; i < kPendingSlots; ++i) {
        int expected = 0;
        if (gPending[i].state.compare_exchange_strong(expected, 1)) {
            std::memcpy(gPending[i].path, path.c_str(), path.size() + 1);
            gPending[i].state.store(2);
            pendingSlot = i;
            return;
        }
    }
}

AtomicOutput::~AtomicOutput() { discard(); }

void AtomicOutput::discard() {
    setPending("");
    if (!temporary.empty()) unlink(temporary.c_str());
    temporary.clear();
    if (descriptor >= 0) close(descriptor);
    descriptor = -1;
    unnamed = false;
    writeTo.clear();
}

bool AtomicOutput::create(const std::string& targetPath, std::string& error) {
    discard();
    // The names of standard output go the way of "-": a shell's ">> file"
    // behind them is appended to, which opening the name again would not do.
    given = target =
        targetPath == "/dev/stdout" || targetPath == "/dev/fd/1" || targetPath == "/proc/self/fd/1" ? "-" : targetPath;
    mode = 0666 & ~creationMask();
    if (given == "-") {
        const char* tmp = std::getenv("TMPDIR");
        folder = tmp && *tmp ? tmp : "/tmp";
        name = "contour";
        return makeFile(error);
    }
    struct stat status;
    if (stat(given.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            error = "'" + given + "' is a directory";
            return false;
        }
        // A device or a pipe takes the drawing as it comes; replacing the
        // node would break it for everyone else.
        if (!S_ISREG(status.st_mode)) {
            writeTo = given;
            return true;
        }
        mode = status.st_mode & 07777;
    } else if (errno != ENOENT) {
        error = "cannot write '" + given + "': " + systemError();
        return false;
    }
    // The name to replace is the end of the chain of links, so that the
    // links stay; a dangling link gets the file it names. stat has already
    // refused loops; the bound only guards against links changing meanwhile.
    struct stat link;
    for (int hops = 0; lstat(target.c_str(), &link) == 0 && S_ISLNK(link.st_mode); ++hops) {
        if (hops == 40) {
            error = "cannot follow the links from '" + given + "'";
            return false;
        }
        std::string next(static_cast<size_t>(link.st_size) + 1, '\0');
        const ssize_t length = readlink(target.c_str(), next.data(), next.size());
        if (length < 0 || static_cast<size_t>(length) >= next.size()) {
            error = "cannot follow the link '" + target + "'";
            return false;
        }
        next.resize(static_cast<size_t>(length));
        // A relative link names a file beside the link itself.
        const size_t slash = target.rfind('/');
        target = next[0] == '/' || slash == std::string::npos ? next : target.substr(0, slash + 1) + next;
        // /dev/stdout and its kin lead to a descriptor the caller opened (a
        // shell's "> file" or ">> file"): it is written as opened, not
        // replaced under it.
        if (target.rfind("/proc/", 0) == 0 || target.rfind("/dev/", 0) == 0) {
            writeTo = given;
            return true;
        }
    }
    const size_t slash = target.rfind('/');
    folder = slash == std::string::npos ? "." : slash == 0 ? "/" : target.substr(0, slash);
    name = target.substr(slash + 1);
    return makeFile(error);
}

bool AtomicOutput::makeFile(std::string& error) {
    // The drawing's permissions are set at commit: a replaced read-only
    // file must not make its successor unwritable while it is drawn.
    descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor >= 0) {
        // Writers open the file by name; without /proc it has none.
        writeTo = "/proc/self/fd/" + std::to_string(descriptor);
        if (access(writeTo.c_str(), W_OK) == 0) {
            unnamed = true;
            return true;
        }
        close(descriptor);
        descriptor = -1;
    } else if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
        error = "cannot create a file in '" + folder + "': " + systemError();
        return false;
    }
    // The file system has no unnamed files: a hidden, unique name beside the
    // target, which the signal handlers remove.
    std::string pattern = folder + "/." + name + ".tmp-XXXXXX";
    descriptor = mkostemp(pattern.data(), O_CLOEXEC);
    if (descriptor < 0) {
        error = "cannot create a file in '" + folder + "': " + systemError();
        return false;
    }
    writeTo = temporary = pattern;
    setPending(temporary);
    return true;
}

std::string AtomicOutput::nameTheTarget(std::string message) const {
    if (writeTo.empty() || writeTo == given) return message;
    const std::string from = "'" + writeTo + "'", to = given == "-" ? "standard output" : "'" + given + "'";
    for (size_t at = message.find(from); at != std::string::npos; at = message.find(from, at + to.size()))
        message.replace(at, from.size(), to);
    return message;
}

bool AtomicOutput::toStandardOutput(std::string& error) {
    char buffer[1 << 16];
    bool ok = true;
    off_t offset = 0;
    for (ssize_t count; ok && (count = pread(descriptor, buffer, sizeof buffer, offset)) != 0; offset += count)
        ok = count > 0 && std::fwrite(buffer, 1, static_cast<size_t>(count), stdout) == static_cast<size_t>(count);
    ok = ok && std::fflush(stdout) == 0;
    discard();
    if (!ok) error = "cannot write the drawing to standard output";
    return ok;
}

bool AtomicOutput::commit(std::string& error) {
    if (writeTo.empty()) {
        error = "no drawing was written";
        return false;
    }
    if (descriptor < 0) {  // written directly
        writeTo.clear();
        return true;
    }
    if (given == "-") return toStandardOutput(error);
    if (fchmod(descriptor, mode) != 0) {
        error = "cannot set the permissions of '" + given + "': " + systemError();
        return false;
    }
    if (unnamed) {
        // A link cannot replace a name, so the file gets a fresh one beside
        // the target and is renamed onto it at once: only the instant
        // between the two calls leaves a name that a killed process would
        // strand. The inode number makes the name unique in the folder.
        struct stat status {};
        fstat(descriptor, &status);
        const std::string base = folder + "/." + name + ".tmp-" + std::to_string(status.st_ino);
        for (int attempt = 0; temporary.empty(); ++attempt) {
            const std::string staged = attempt ? base + "-" + std::to_string(attempt) : base;
            if (linkat(AT_FDCWD, writeTo.c_str(), AT_FDCWD, staged.c_str(), AT_SYMLINK_FOLLOW) == 0)
                temporary = staged;
            else if (errno != EEXIST || attempt == 100) {
                error = "cannot write '" + given + "': " + systemError();
                return false;
            }
        }
        setPending(temporary);
    }
    if (std::rename(temporary.c_str(), target.c_str()) != 0) {
        error = "cannot replace '" + given + "': " + systemError();
        return false;
    }
    temporary.clear();
    discard();
    return true;
}

void InstallInterruptHandling() {
    std::signal(SIGINT, requestStop);
    for (const int signalNumber : {SIGTERM, SIGHUP}) std::signal(signalNumber, removePendingAndReraise);
}

bool InterruptRequested() { return gInterrupted != 0; }

}  // namespace contour
