#include "check/Check.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace ctr {
namespace check {

namespace {

// Read from the occlusion pass on the executor's threads; relaxed is enough
// for a switch that is set before the work begins.
std::atomic<bool> validation{false};

}  // namespace

void SetValidation(bool on) { validation.store(on, std::memory_order_relaxed); }

bool IsValidating() {
#ifdef NDEBUG
    return false;
#else
    return validation.load(std::memory_order_relaxed);
#endif
}

void Fail(const char* condition, const char* file, int line, const char* detail) {
    // The one place where the library writes a message: it is about to stop
    // the process, and the message is all a host will have to report.
    std::fprintf(stderr, "%s:%d: qeContouringLib check failed: %s%s%s\n", file, line, condition,
                 detail && *detail ? ": " : "", detail ? detail : "");
    std::fflush(stderr);
    std::abort();
}

}  // namespace check
}  // namespace ctr
