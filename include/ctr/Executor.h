// How a host lends the library its threads. The library starts no thread of
// its own: work that can run in parallel is cut into a fixed number of
// chunks that depends only on the input, handed to the host's executor, and
// the chunks' results are joined in chunk order. Output therefore never
// depends on how many threads the executor runs, or on whether there is one.
#ifndef CTR_EXECUTOR_H
#define CTR_EXECUTOR_H

#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>

#include "ctr/Export.h"

namespace ctr {

class CTR_API Executor {
public:
    virtual ~Executor();

    // Calls task(i) exactly once for every i in [0, count), on any threads
    // and in any order, and returns when every call has returned. The calling
    // thread may take part. task throws nothing; distinct i touch distinct
    // data.
    virtual void parallelFor(size_t count, const std::function<void(size_t)>& task) = 0;
};

// executor.parallelFor(count, task) for tasks that may throw (running out of
// memory): an executor's tasks throw nothing, so the first exception is kept
// and thrown on the calling thread once every task has returned.
template <typename Task>
void ParallelForCarrying(Executor& executor, size_t count, const Task& task) {
    std::mutex mutex;
    std::exception_ptr failure;
    executor.parallelFor(count, [&](size_t i) {
        try {
            task(i);
        } catch (...) {
            const std::lock_guard<std::mutex> lock(mutex);
            if (!failure) failure = std::current_exception();
        }
    });
    if (failure) std::rethrow_exception(failure);
}

}  // namespace ctr

#endif
