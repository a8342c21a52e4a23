#include "ctr/drawing/ThreadPool.h"

namespace contour {

ThreadPool::ThreadPool(unsigned int threads) {
    for (unsigned int i = 1; i < threads; ++i) workers.emplace_back([this] { work(); });
}

ThreadPool::~ThreadPool() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    for (std::thread& worker : workers) worker.join();
}

unsigned int ThreadPool::DefaultThreadCount() {
    const unsigned int cores = std::thread::hardware_concurrency();
    return cores == 0 ? 1u : cores;
}

void ThreadPool::runItems(const std::function<void(size_t)>* task, size_t count) {
    for (;;) {
        const size_t i = next.fetch_add(1, std::memory_order_relaxed);
        if (i >= count) return;
        (*task)(i);
    }
}

void ThreadPool::work() {
    uint64_t seen = 0;
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        wake.wait(lock, [&] { return stopping || generation != seen; });
        if (stopping) return;
        seen = generation;
        const std::function<void(size_t)>* task = job;
        const size_t count = jobCount;
        ++active;
        lock.unlock();
        runItems(task, count);
        lock.lock();
        if (--active == 0) idle.notify_all();
    }
}

void ThreadPool::parallelFor(size_t count, const std::function<void(size_t)>& task) {
    if (count == 0) return;
    std::lock_guard<std::mutex> caller(callerMutex);
    if (workers.empty() || count == 1) {
        for (size_t i = 0; i < count; ++i) task(i);
        return;
    }
    {
        std::unique_lock<std::mutex> lock(mutex);
        // A worker that woke late for the previous loop may still be
        // draining its (exhausted) counter: the counter is reset only once
        // it has left.
        idle.wait(lock, [&] { return active == 0; });
        job = &task;
        jobCount = count;
        next.store(0, std::memory_order_relaxed);
        ++generation;
    }
    wake.notify_all();
    runItems(&task, count);
    std::unique_lock<std::mutex> lock(mutex);
    idle.wait(lock, [&] { return active == 0; });
}

}  // namespace contour
