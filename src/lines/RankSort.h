// Integer-key sorting of edges. Positions are first replaced by dense ranks
// (equal positions share a rank, ranks ascend with the position order), so
// that edges can then be grouped by the rank of their first end with one
// counting pass and ordered inside each small group by the rank of their
// second end, instead of comparing positions in a general sort. Fresh memory
// is dear (every page is faulted in on first touch), so the edge lists are
// kept small and are not initialised before they are filled.
#ifndef CTR_LINES_RANKSORT_H
#define CTR_LINES_RANKSORT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qe/qeMemory.h"

namespace ctr {
namespace edges {

// Three 32-bit key words (word 0 most significant) and the number of the
// item they belong to.
struct RankRecord {
    uint32_t key[3];
    uint32_t item;
};

// An edge of a group with its sort key within the group; keys and ties are
// chosen so that no two edges of a group are equal unless interchangeable.
struct KeyedEdge {
    uint64_t key;
    uint32_t tie;
};

inline bool operator<(const KeyedEdge& p, const KeyedEdge& q) { return p.key != q.key ? p.key < q.key : p.tie < q.tie; }

// Working arrays of ranking, kept by a caller that ranks repeatedly so that
// their storage is reused.
struct RankScratch {
    qe::qeLargeVector<RankRecord> spare;
    std::vector<uint32_t> histograms;
};

// Gives every item of records (each item once, rank having an entry for
// each) its dense rank in rank[item]: the position of its key among the
// distinct keys in lexicographic order. Reorders records. Returns the number
// of distinct keys.
uint32_t RankByKeys(qe::qeLargeVector<RankRecord>& records, std::vector<uint32_t>& rank, RankScratch& scratch);

// Sorts the edges of one group: most groups hold the few edges that leave
// one position, and are sorted by insertion.
template <class T>
void SortGroup(T* begin, T* end) {
    constexpr std::ptrdiff_t kInsertionLimit = 16;
    if (end - begin > kInsertionLimit) {
        std::sort(begin, end);
        return;
    }
    for (T* i = begin + 1; i < end; ++i) {
        const T edge = *i;
        T* j = i;
        for (; j > begin && edge < *(j - 1); --j) *j = *(j - 1);
        *j = edge;
    }
}

// Turns per-group counts, counted one place ahead (the count of group g in
// entry g + 1), into group starts: entry g becomes the start of group g.
// Placing an edge at entry g and incrementing it then leaves entry g at the
// end of group g (a counting sort that keeps the order of equal groups).
inline void CountsToStarts(std::vector<uint32_t>& counts) {
    for (size_t g = 1; g < counts.size(); ++g) counts[g] += counts[g - 1];
}

// Below this many ranks the groups are placed in one counting pass: their
// counters stay in a core's cache. Above it the counters and the placed items
// are touched at random across arrays of tens of megabytes, a cache and TLB
// miss per item, and the placement goes in two steps instead.
constexpr uint32_t kDirectGroupRanks = 1u << 16;
// The coarse step writes to at most this many places at once, so that the
// open cache line and page of each stay resident.
constexpr uint32_t kCoarseBuckets = 1u << 11;

// Places items into out (count slots) grouped by their rank in [0,
// rankCount), groups in rank order; groupEnd[g] becomes the end of group g.
// forEach(f) calls f(item, rank) for every item, in the same order each time
// (it is called twice); rankOf(item) gives an item's rank again. The order
// inside a group is unspecified: callers sort each group by a key that makes
// items distinct or interchangeable. With many ranks the items go first to
// coarse buckets of 2^shift consecutive ranks (the shift depends on rankCount
// alone), then each bucket is counted and placed within its own small range.
template <class Item, class ForEach, class RankOf>
void PlaceInGroups(size_t count, uint32_t rankCount, ForEach&& forEach, RankOf&& rankOf, Item* out,
                   std::vector<uint32_t>& groupEnd, std::vector<Item>& bucket, std::vector<uint32_t>& bucketRanks) {
    groupEnd.assign(rankCount, 0u);
    if (rankCount == 0 || count == 0) return;
    if (rankCount <= kDirectGroupRanks) {
        forEach([&](const Item&, uint32_t rank) { ++groupEnd[rank]; });
        uint32_t running = 0;
        for (uint32_t& entry : groupEnd) {
            const uint32_t groupCount = entry;
            entry = running;
            running += groupCount;
        }
        forEach([&](const Item& item, uint32_t rank) { out[groupEnd[rank]++] = item; });
        return;
    }
    int shift = 0;
    while (((rankCount - 1) >> shift) >= kCoarseBuckets) ++shift;
    const uint32_t bucketCount = ((rankCount - 1) >> shift) + 1;
    std::vector<uint32_t> bucketStart(static_cast<size_t>(bucketCount) + 1, 0u);
    forEach([&](const Item&, uint32_t rank) { ++bucketStart[(rank >> shift) + 1]; });
    CountsToStarts(bucketStart);
    std::vector<uint32_t> next(bucketStart.begin(), bucketStart.end() - 1);
    forEach([&](const Item& item, uint32_t rank) { out[next[rank >> shift]++] = item; });
    for (uint32_t b = 0; b < bucketCount; ++b) {
        const uint32_t begin = bucketStart[b];
        const uint32_t end = bucketStart[b + 1];
        // An empty bucket still sets its groups' ends: a later group starts
        // where the one before it ends.
        bucket.assign(out + begin, out + end);
        bucketRanks.clear();
        for (const Item& item : bucket) {
            const uint32_t rank = rankOf(item);
            bucketRanks.push_back(rank);
            ++groupEnd[rank];
        }
        const uint32_t firstRank = b << shift;
        const uint32_t lastRank = static_cast<uint32_t>(
            std::min<uint64_t>(rankCount, (static_cast<uint64_t>(b) + 1) << shift));
        uint32_t running = begin;
        for (uint32_t rank = firstRank; rank < lastRank; ++rank) {
            const uint32_t groupCount = groupEnd[rank];
            groupEnd[rank] = running;
            running += groupCount;
        }
        for (size_t i = 0; i < bucket.size(); ++i) out[groupEnd[bucketRanks[i]]++] = bucket[i];
    }
}

}  // namespace edges
}  // namespace ctr

#endif
