#include "lines/RankSort.h"

#include "qe/qeMemory.h"

#include <algorithm>

namespace ctr {
namespace edges {

namespace {

// Below this many items a comparison sort beats clearing and filling the
// radix histograms.
constexpr size_t kRadixMinimum = 512;

// Each key word is sorted as three digits of 11, 11 and 10 bits.
constexpr int kDigitBits = 11;
constexpr uint32_t kBuckets = 1u << kDigitBits;
constexpr int kDigitsPerWord = 3;
constexpr int kDigits = 3 * kDigitsPerWord;

// Digit d counts from the least significant: the low digit of word 2 first,
// the high digit of word 0 last.
uint32_t Digit(const RankRecord& record, int d) {
    const uint32_t word = record.key[2 - d / kDigitsPerWord];
    return (word >> (kDigitBits * (d % kDigitsPerWord))) & (kBuckets - 1);
}

bool KeyLess(const RankRecord& p, const RankRecord& q) {
    for (int w = 0; w < 3; ++w)
        if (p.key[w] != q.key[w]) return p.key[w] < q.key[w];
    return false;
}

bool SameKey(const RankRecord& p, const RankRecord& q) {
    return p.key[0] == q.key[0] && p.key[1] == q.key[1] && p.key[2] == q.key[2];
}

// Least-significant-digit radix sort; a digit that every record shares needs
// no pass. The result ends in records.
void RadixSort(qe::qeLargeVector<RankRecord>& records, RankScratch& scratch) {
    const size_t count = records.size();
    std::vector<uint32_t>& histograms = scratch.histograms;
    histograms.assign(static_cast<size_t>(kDigits) * kBuckets, 0u);
    for (const RankRecord& record : records)
        for (int d = 0; d < kDigits; ++d) ++histograms[d * kBuckets + Digit(record, d)];

    qe::qeReserveLarge(scratch.spare, count);
    scratch.spare.resize(count);
    qe::qeLargeVector<RankRecord>* from = &records;
    qe::qeLargeVector<RankRecord>* to = &scratch.spare;
    for (int d = 0; d < kDigits; ++d) {
        uint32_t* offsets = &histograms[d * kBuckets];
        if (offsets[Digit((*from)[0], d)] == count) continue;
        uint32_t sum = 0;
        for (uint32_t b = 0; b < kBuckets; ++b) {
            const uint32_t n = offsets[b];
            offsets[b] = sum;
            sum += n;
        }
        RankRecord* target = to->data();
        for (const RankRecord& record : *from) target[offsets[Digit(record, d)]++] = record;
        std::swap(from, to);
    }
    if (from != &records) records.swap(scratch.spare);
}

}  // namespace

uint32_t RankByKeys(qe::qeLargeVector<RankRecord>& records, std::vector<uint32_t>& rank, RankScratch& scratch) {
    const size_t count = records.size();
    if (count == 0) return 0;
    if (count < kRadixMinimum)
        std::sort(records.begin(), records.end(), KeyLess);
    else
        RadixSort(records, scratch);
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
