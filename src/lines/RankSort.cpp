#include "lines/RankSort.h"

#include "qe/qeMemory.h"

#include <algorithm>

namespace ctr {
namespace edges {

namespace {

// Below this many items a comparison sort beats clearing and filling the
// radix histograms.
constexpr size_t kRadixMinimum = 512;

// A key word is sorted as three digits of 11, 11 and 10 bits.
constexpr int kDigitBits = 11;
constexpr uint32_t kBuckets = 1u << kDigitBits;
constexpr int kDigitsPerWord = 3;

uint32_t Digit(const RankRecord& record, int word, int d) {
    return (record.key[word] >> (kDigitBits * d)) & (kBuckets - 1);
}

bool KeyLess(const RankRecord& p, const RankRecord& q) {
    for (int w = 0; w < 3; ++w)
        if (p.key[w] != q.key[w]) return p.key[w] < q.key[w];
    return false;
}

bool SameKey(const RankRecord& p, const RankRecord& q) {
    return p.key[0] == q.key[0] && p.key[1] == q.key[1] && p.key[2] == q.key[2];
}

// Sorts [begin, end), whose records agree on the words before word, by the
// words from word on: a least-significant-digit radix sort of that word
// alone (a digit that every record shares needs no pass), then the runs
// that tie on it by the next word in the same way. Positions seldom share
// their first coordinate, so most records are moved three times rather than
// nine, and ties are few and small. spare holds at least end - begin records.
void SortFromWord(RankRecord* begin, RankRecord* end, int word, RankRecord* spare, RankScratch& scratch) {
    const size_t count = static_cast<size_t>(end - begin);
    if (count < kRadixMinimum) {
        std::sort(begin, end, KeyLess);
        return;
    }
    std::vector<uint32_t>& histograms = scratch.histograms;
    histograms.assign(static_cast<size_t>(kDigitsPerWord) * kBuckets, 0u);
    for (const RankRecord* record = begin; record < end; ++record)
        for (int d = 0; d < kDigitsPerWord; ++d) ++histograms[d * kBuckets + Digit(*record, word, d)];
    RankRecord* from = begin;
    RankRecord* to = spare;
    for (int d = 0; d < kDigitsPerWord; ++d) {
        uint32_t* offsets = &histograms[d * kBuckets];
        if (offsets[Digit(*from, word, d)] == count) continue;
        uint32_t sum = 0;
        for (uint32_t b = 0; b < kBuckets; ++b) {
            const uint32_t n = offsets[b];
            offsets[b] = sum;
            sum += n;
        }
        for (const RankRecord* record = from; record < from + count; ++record)
            to[offsets[Digit(*record, word, d)]++] = *record;
        std::swap(from, to);
    }
    if (from != begin) std::copy(from, from + count, begin);
    if (word == 2) return;
    for (RankRecord* run = begin; run < end;) {
        RankRecord* runEnd = run + 1;
        while (runEnd < end && runEnd->key[word] == run->key[word]) ++runEnd;
        if (runEnd - run > 1) SortFromWord(run, runEnd, word + 1, spare, scratch);
        run = runEnd;
    }
}

}  // namespace

uint32_t RankByKeys(qe::qeLargeVector<RankRecord>& records, std::vector<uint32_t>& rank, RankScratch& scratch) {
    const size_t count = records.size();
    if (count == 0) return 0;
    if (count < kRadixMinimum) {
        std::sort(records.begin(), records.end(), KeyLess);
    } else {
        qe::qeReserveLarge(scratch.spare, count);
        scratch.spare.resize(count);
        SortFromWord(records.data(), records.data() + count, 0, scratch.spare.data(), scratch);
    }
    uint32_t next = 0;
    rank[records[0].item] = 0;
    for (size_t i = 1; i < count; ++i) {
        if (!SameKey(records[i - 1], records[i])) ++next;
        rank[records[i].item] = next;
    }
    return next + 1;
}

}  // namespace edges
}  // namespace ctr
