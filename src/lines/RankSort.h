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

}  // namespace edges
}  // namespace ctr

#endif
