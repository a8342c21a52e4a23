// Integer-key sorting of edges. Positions are first replaced by dense ranks
// (equal positions share a rank, ranks ascend with the position order), so
// that edges can then be grouped by the rank of their first end with one
// counting pass and ordered inside each small group by the rank of their
// second end, instead of comparing positions in a general sort.
#ifndef CTR_LINES_RANKSORT_H
#define CTR_LINES_RANKSORT_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ctr {
namespace edges {

// Three 32-bit key words (word 0 most significant) and the number of the
// item they belong to.
struct RankRecord {
    uint32_t key[3];
    uint32_t item;
};

// An edge placed in its group: the rank of its second end and two words that
// order the edges of equal ranks (and that the caller reads back).
struct GroupedEdge {
    uint32_t rankB;
    uint32_t first;
    uint32_t second;
};

inline bool GroupedLess(const GroupedEdge& p, const GroupedEdge& q) {
    if (p.rankB != q.rankB) return p.rankB < q.rankB;
    if (p.first != q.first) return p.first < q.first;
    return p.second < q.second;
}

// Working arrays, kept by a caller that ranks or groups repeatedly so that
// their storage is reused.
struct RankScratch {
    std::vector<RankRecord> spare;
    std::vector<uint32_t> histograms;
};

// Gives every item of records (each item once, rank having an entry for
// each) its dense rank in rank[item]: the position of its key among the
// distinct keys in lexicographic order. Reorders records. Returns the number
// of distinct keys.
uint32_t RankByKeys(std::vector<RankRecord>& records, std::vector<uint32_t>& rank, RankScratch& scratch);

// Sorts the edges of groups [firstGroup, lastGroup) in place by GroupedLess.
// Group g spans [g == 0 ? 0 : groupEnd[g - 1], groupEnd[g]) of edges. Groups
// are independent of each other: any split of the group range gives the same
// result.
void SortGroups(std::vector<GroupedEdge>& edges, const std::vector<uint32_t>& groupEnd, uint32_t firstGroup,
                uint32_t lastGroup);

// Places count edges into groups by the rank of their first end, keeping
// their order inside a group (a counting sort): edge i of rank rankA(i)
// becomes record(i) in out, and groupEnd[g] ends group g (see SortGroups).
template <class RankA, class Record>
void GroupByRank(size_t count, uint32_t rankCount, RankA rankA, Record record, std::vector<uint32_t>& groupEnd,
                 std::vector<GroupedEdge>& out) {
    // Counted one place ahead, so that after the prefix sum entry g is the
    // start of group g, and after scattering it is the group's end.
    groupEnd.assign(static_cast<size_t>(rankCount) + 1, 0u);
    for (size_t i = 0; i < count; ++i) ++groupEnd[static_cast<size_t>(rankA(i)) + 1];
    for (size_t g = 1; g <= rankCount; ++g) groupEnd[g] += groupEnd[g - 1];
    out.resize(count);
    for (size_t i = 0; i < count; ++i) out[groupEnd[rankA(i)]++] = record(i);
    groupEnd.pop_back();
}

}  // namespace edges
}  // namespace ctr

#endif
