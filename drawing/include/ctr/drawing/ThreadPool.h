// The tool's executor: a fixed set of worker threads that the library's
// parallel loops run on. The library starts no thread itself.
#ifndef CTR_DRAWING_THREADPOOL_H
#define CTR_DRAWING_THREADPOOL_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "ctr/Executor.h"

namespace contour {

class ThreadPool : public ctr::Executor {
public:
    // threads counts the calling thread, which takes part in every loop: 1
    // starts no worker.
    explicit ThreadPool(unsigned int threads);
    ~ThreadPool() override;
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // One loop at a time: a second caller waits for the first.
    void parallelFor(size_t count, const std::function<void(size_t)>& task) override;

    unsigned int threadCount() const { return static_cast<unsigned int>(workers.size()) + 1u; }

    // One thread per core the system reports (at least one).
    static unsigned int DefaultThreadCount();

private:
    void work();
    void runItems(const std::function<void(size_t)>* task, size_t count);

    std::mutex callerMutex;  // serialises parallelFor
    std::mutex mutex;
    std::condition_variable wake;
    std::condition_variable idle;
    const std::function<void(size_t)>* job = nullptr;
    size_t jobCount = 0;
    std::atomic<size_t> next{0};
    uint64_t generation = 0;
    unsigned int active = 0;
    bool stopping = false;
    std::vector<std::thread> workers;
};

}  // namespace contour

#endif
