#include "Isolation.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define CONTOUR_SANITIZED_ADDRESS_SPACE 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define CONTOUR_SANITIZED_ADDRESS_SPACE 1
#endif
#endif

// The address sanitizer's allocator, as g++ 12 ships it, does not hold its
// locks across fork: a child forked while another thread allocates can wait
// forever on a lock that no thread of its own will free. Builds with it read
// in-process, and the tests that feed assimp a file it aborts on skip there.
#if defined(__SANITIZE_ADDRESS__)
#define CONTOUR_IN_PROCESS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CONTOUR_IN_PROCESS 1
#endif
#endif

namespace contour::importer {

#ifndef CONTOUR_IN_PROCESS
namespace {

// The result travels behind one status byte and ahead of an end marker, so
// that a child cut short is told from one that finished.
constexpr char kDone = 'D';
constexpr char kFailed = 'F';
constexpr char kEnd[] = "\nend of result\n";
constexpr size_t kEndLength = sizeof kEnd - 1;

bool writeAll(int descriptor, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(descriptor, data, size);
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

void lowerLimit(int resource, uint64_t soft, uint64_t hard) {
    rlimit limit;
    if (::getrlimit(resource, &limit) != 0) return;
    const auto lower = [](rlim_t current, uint64_t wanted) {
        return current == RLIM_INFINITY || current > wanted ? static_cast<rlim_t>(wanted) : current;
    };
    limit.rlim_cur = lower(limit.rlim_cur, soft);
    limit.rlim_max = lower(limit.rlim_max, hard);
    if (limit.rlim_cur > limit.rlim_max) limit.rlim_cur = limit.rlim_max;
    ::setrlimit(resource, &limit);
}

void limitChild(size_t inputBytes) {
    const uint64_t input = inputBytes;
#ifndef CONTOUR_SANITIZED_ADDRESS_SPACE
    // Memory the child may use beyond what it maps at the fork, per input byte
    // and in all. Readers hold a scene several times the size of its file, and
    // compressed containers expand further; a header that claims gigabytes
    // still fails at once.
    constexpr uint64_t kBytesPerInputByte = 64;
    constexpr uint64_t kFixedBytes = uint64_t{1} << 30;
    // The child starts with the parent's whole address space, which may be
    // large in a host that holds other models.
    uint64_t mapped = 0;
    if (FILE* const statm = std::fopen("/proc/self/statm", "r")) {
        unsigned long long pages = 0;
        if (std::fscanf(statm, "%llu", &pages) == 1) mapped = pages * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
        std::fclose(statm);
    }
    const uint64_t budget = mapped + kFixedBytes + (input > UINT64_MAX / 128 ? UINT64_MAX / 2 : input * kBytesPerInputByte);
    lowerLimit(RLIMIT_AS, budget, budget);
#endif
    const uint64_t seconds = 60 + input / (uint64_t{1} << 20);
    lowerLimit(RLIMIT_CPU, seconds, seconds + 5);
}

[[noreturn]] void runChild(int descriptor, size_t inputBytes, const std::function<std::string()>& work) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) std::signal(signal, SIG_DFL);
    limitChild(inputBytes);
    // Readers print their failed assertions and progress; the parent's
    // one-line reason says what happened, and its standard output may be
    // carrying a drawing.
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null >= 0) {
        ::dup2(null, STDOUT_FILENO);
        ::dup2(null, STDERR_FILENO);
        ::close(null);
    }
    char status = kDone;
    std::string result;
    try {
        result = work();
    } catch (const std::bad_alloc&) {
        status = kFailed;
        result = "not enough memory for the file's contents";
    } catch (const std::exception& failure) {
        status = kFailed;
        result = failure.what();
    } catch (...) {
        status = kFailed;
        result = "the reader failed";
    }
    const bool written = writeAll(descriptor, &status, 1) && writeAll(descriptor, result.data(), result.size()) &&
                         writeAll(descriptor, kEnd, kEndLength);
    ::_exit(written ? 0 : 1);
}

std::string describeEnd(int status) {
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        if (signal == SIGXCPU) return "the reader took too long";
        if (signal == SIGINT || signal == SIGTERM || signal == SIGHUP) return "interrupted";
        if (signal == SIGKILL) return "the reader was killed (out of memory?)";
        const char* const name = ::strsignal(signal);
        return std::string("the reader crashed (") + (name ? name : "signal " + std::to_string(signal)) + ")";
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0) return "the reader ended before finishing";
    return "the reader handed back an incomplete result";
}

}  // namespace
#endif

bool RunIsolated(size_t inputBytes, const std::function<std::string()>& work, std::string& result,
                 std::string& error) {
    result.clear();
#ifdef CONTOUR_IN_PROCESS
    (void)inputBytes;
    try {
        result = work();
        return true;
    } catch (const std::bad_alloc&) {
        error = "not enough memory for the file's contents";
    } catch (const std::exception& failure) {
        error = failure.what();
    }
    return false;
#else
    int channel[2];
    pid_t child;
    {
        // A child that another thread forks while this pipe's writing end is
        // open here would hold it too, and the end of the result would wait
        // for that child's end as well; so no fork comes between the pipe
        // and the closing of that end.
        static std::mutex forking;
        std::lock_guard<std::mutex> lock(forking);
        if (::pipe2(channel, O_CLOEXEC) != 0) {
            error = std::string("cannot start the reader: ") + std::strerror(errno);
            return false;
        }
        child = ::fork();
        if (child < 0) {
            error = std::string("cannot start the reader: ") + std::strerror(errno);
            ::close(channel[0]);
            ::close(channel[1]);
            return false;
        }
        if (child == 0) {
            ::close(channel[0]);
            runChild(channel[1], inputBytes, work);
        }
        ::close(channel[1]);
    }

    std::string received;
    char buffer[1 << 16];
    bool readFailed = false;
    for (;;) {
        const ssize_t count = ::read(channel[0], buffer, sizeof buffer);
        if (count == 0) break;
        if (count < 0) {
            if (errno == EINTR) continue;
            readFailed = true;
            break;
        }
        received.append(buffer, static_cast<size_t>(count));
    }
    ::close(channel[0]);
    int status = 0;
    pid_t waited;
    do {
        waited = ::waitpid(child, &status, 0);
    } while (waited < 0 && errno == EINTR);

    // The end marker, not the exit status, says the result is whole: a host
    // that ignores SIGCHLD reaps its children itself.
    const bool whole = !readFailed && received.size() >= 1 + kEndLength &&
                       received.compare(received.size() - kEndLength, kEndLength, kEnd) == 0;
    if (!whole) {
        error = waited == child ? describeEnd(status) : "the reader handed back an incomplete result";
        return false;
    }
    received.resize(received.size() - kEndLength);
    if (received[0] == kFailed) {
        error = received.substr(1);
        return false;
    }
    received.erase(0, 1);
    result.swap(received);
    return true;
#endif
}

}  // namespace contour::importer
