// Fixed chunking of parallel loops. Chunk bounds depend only on the number of
// items and the chunk size, never on the executor, so results joined in chunk
// order are the same with any number of threads and without an executor.
#ifndef CTR_PARALLEL_CHUNKS_H
#define CTR_PARALLEL_CHUNKS_H

#include <algorithm>
#include <cstddef>

#include "ctr/Executor.h"

namespace ctr {

inline size_t ChunkCount(size_t items, size_t chunkSize) { return (items + chunkSize - 1) / chunkSize; }

// Calls body(chunk, begin, end) for every chunk of [0, items): through the
// executor when there is one and more than one chunk, else in order on the
// calling thread.
template <typename Body>
void ForEachChunk(Executor* executor, size_t items, size_t chunkSize, const Body& body) {
    const size_t chunks = ChunkCount(items, chunkSize);
    const auto run = [&](size_t chunk) {
        const size_t begin = chunk * chunkSize;
        body(chunk, begin, std::min(items, begin + chunkSize));
    };
    if (!executor || chunks < 2) {
        for (size_t chunk = 0; chunk < chunks; ++chunk) run(chunk);
        return;
    }
    ParallelForCarrying(*executor, chunks, run);
}

// Calls task(i) for i in [0, count) through the executor, or in order.
template <typename Task>
void ForEachTask(Executor* executor, size_t count, const Task& task) {
    if (!executor || count < 2) {
        for (size_t i = 0; i < count; ++i) task(i);
        return;
    }
    ParallelForCarrying(*executor, count, task);
}

// For loops whose progress and cancellation the host watches: the chunks
// run a wave at a time through the executor, and between waves the calling
// thread, the only one that talks to the notifier, calls
// afterWave(begin, end) with the items the wave covered. A false answer
// stops the loop. Returns false when stopped.
template <typename Body, typename AfterWave>
bool ForEachChunkInWaves(Executor& executor, size_t items, size_t chunkSize, size_t chunksPerWave, const Body& body,
                         const AfterWave& afterWave) {
    const size_t chunks = ChunkCount(items, chunkSize);
    for (size_t firstChunk = 0; firstChunk < chunks; firstChunk += chunksPerWave) {
        const size_t waveChunks = std::min(chunksPerWave, chunks - firstChunk);
        ParallelForCarrying(executor, waveChunks, [&](size_t k) {
            const size_t begin = (firstChunk + k) * chunkSize;
            body(firstChunk + k, begin, std::min(items, begin + chunkSize));
        });
        if (!afterWave(firstChunk * chunkSize, std::min(items, (firstChunk + waveChunks) * chunkSize))) return false;
    }
    return true;
}

}  // namespace ctr

#endif
