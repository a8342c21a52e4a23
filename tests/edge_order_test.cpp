// The integer keys that edge sorting uses in place of position comparisons:
// the float order key against the float comparison it stands for, position
// ranks against a plain sort, and crease extraction against a direct
// implementation that sorts edges with the position comparator, on meshes
// full of repeated, signed-zero and NaN positions.
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

#include "Wm4Math.h"

#include "TestSupport.h"
#include "ctr/LineSegmentSet.h"
#include "lines/CreaseRecord.h"
#include "lines/EdgeOrder.h"
#include "lines/RankSort.h"

namespace {

using V3 = Wm4::Vector3<float>;

const bool kNotCancelled = false;
const qe::qeCancelInterfaceProxyReadOnly kNeverCancel(kNotCancelled);

float FromBits(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Crease records as a comparison sort of edge numbers by the position
// comparator gives them, walked run by run.
std::vector<ctr::CreaseEdgeInfo> ReferenceCreases(const qe::qeVertexBuffer& buffer,
                                                  const std::vector<unsigned>& indices, float angleDegrees) {
    const size_t edgeCount = indices.size() / 3 * 3;
    std::vector<uint32_t> ends(2 * edgeCount);
    std::vector<uint32_t> order(edgeCount);
    for (size_t e = 0; e < edgeCount; ++e) {
        uint32_t a = indices[e];
        uint32_t b = indices[e % 3 == 2 ? e - 2 : e + 1];
        ctr::edges::MakeCanonical(buffer, a, b);
        ends[2 * e] = a;
        ends[2 * e + 1] = b;
        order[e] = static_cast<uint32_t>(e);
    }
    std::sort(order.begin(), order.end(), [&](uint32_t e, uint32_t f) {
        return ctr::edges::EdgeLess(buffer, ends[2 * e], ends[2 * e + 1], ends[2 * f], ends[2 * f + 1]);
    });
    const float cosLimit = std::cos(Wm4::Math<float>::WM4_DEG_TO_RAD * angleDegrees);
    const auto info = [&](uint32_t a, uint32_t b, const std::vector<V3>& normals) {
        const V3 d = buffer.Position3(static_cast<int>(b)) - buffer.Position3(static_cast<int>(a));
        const float tolerance = d.Length() * 0.0009765625f;
        bool flag = true;
        for (const V3& n : normals) flag = flag && std::fabs(n.Dot(d)) < tolerance;
        return ctr::CreaseEdgeInfo{a, b | (flag ? ctr::kCreaseFlagBit : 0u)};
    };
    std::vector<ctr::CreaseEdgeInfo> out;
    for (size_t s = 0; s < edgeCount;) {
        const uint32_t a = ends[2 * order[s]];
        const uint32_t b = ends[2 * order[s] + 1];
        size_t t = s + 1;
        while (t < edgeCount &&
               ctr::edges::BitIdentical(buffer.Position3(static_cast<int>(ends[2 * order[t]])),
                                        buffer.Position3(static_cast<int>(a))) &&
               ctr::edges::BitIdentical(buffer.Position3(static_cast<int>(ends[2 * order[t] + 1])),
                                        buffer.Position3(static_cast<int>(b))))
            ++t;
        const V3& na = buffer.Normal3(static_cast<int>(a));
        const V3& nb = buffer.Normal3(static_cast<int>(b));
        if (t == s + 1) out.push_back(info(a, b, {na, nb}));
        bool first = false;
        for (size_t r = s + 1; r < t; ++r) {
            const uint32_t c = ends[2 * order[r]];
            const uint32_t e = ends[2 * order[r] + 1];
            const V3& nc = buffer.Normal3(static_cast<int>(c));
            const V3& ne = buffer.Normal3(static_cast<int>(e));
            if (!(na.Dot(nc) < cosLimit || nb.Dot(ne) < cosLimit)) continue;
            const ctr::CreaseEdgeInfo record = info(c, e, {na, nb, nc, ne});
            if (!first) out.push_back({a, b | (record.vertexBAndFlag & ctr::kCreaseFlagBit)});
            first = true;
            const ctr::CreaseEdgeInfo& last = out.back();
            if (last.vertexA != c || (last.vertexBAndFlag & ctr::kCreaseIndexMask) != e) out.push_back(record);
        }
        s = t;
    }
    return out;
}

TEST(EdgeOrder, CreaseRecordsMatchAComparatorSortOnAwkwardPositions) {
    // Coordinates from a small pool, so that positions repeat across split
    // vertices, with both zeros and NaNs of either sign and two payloads;
    // normals from a pool too, so that some copies agree and some crease.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> pool = {0.0f, -0.0f, 1.0f, -1.0f, 0.5f, nan, -nan, FromBits(0x7F800001u), 2.0f};
    const std::vector<V3> normalPool = {V3(0, 0, 1), V3(0, 1, 0), V3(0.6f, 0.8f, 0), V3(0, 0, -1)};
    std::mt19937 random(3);
    // Vertex and triangle counts: small and large enough for each ranking
    // path, and a buffer with more vertices than edges.
    const std::vector<std::pair<int, int>> sizes = {{12, 10}, {60, 200}, {2000, 900}, {6000, 300}, {150000, 60000}};
    for (const auto& size : sizes) {
        for (int trial = 0; trial < 3; ++trial) {
            std::vector<V3> positions;
            std::vector<V3> normals;
            for (int v = 0; v < size.first; ++v) {
                if (v > 0 && random() % 3 == 0) {
                    positions.push_back(positions[random() % positions.size()]);  // a split copy
                } else if (size.first > 10000) {
                    // Enough distinct positions for the two-step placement.
                    positions.emplace_back(static_cast<float>(random() % 1000), pool[random() % pool.size()],
                                           static_cast<float>(random() % 1000));
                } else {
                    positions.emplace_back(pool[random() % pool.size()], pool[random() % pool.size()],
                                           pool[random() % pool.size()]);
                }
                normals.push_back(normalPool[random() % normalPool.size()]);
            }
            std::vector<unsigned> indices;
            for (int i = 0; i < 3 * size.second + trial; ++i)  // trial 1 and 2 leave trailing indices
                indices.push_back(static_cast<unsigned>(random() % static_cast<unsigned>(size.first)));
            const auto mesh = ctr_test::MakeMesh(positions, indices, normals);

            std::vector<ctr::CreaseEdgeInfo> records;
            ASSERT_TRUE(ctr::ComputeCreaseEdgeInfo(records, mesh->VBuffer, mesh->IBuffer, 5.0f, kNeverCancel));
            const std::vector<ctr::CreaseEdgeInfo> expected = ReferenceCreases(*mesh->VBuffer, indices, 5.0f);
            ASSERT_EQ(records.size(), expected.size()) << size.first << " vertices, trial " << trial;
            for (size_t i = 0; i < records.size(); ++i) {
                ASSERT_EQ(records[i].vertexA, expected[i].vertexA) << i;
                ASSERT_EQ(records[i].vertexBAndFlag, expected[i].vertexBAndFlag) << i;
            }
        }
    }
}

TEST(EdgeOrder, RanksAreDenseInKeyOrder) {
    // Word domains from one value to all: long runs tied on the first word
    // or two go down to the later words' radix passes.
    std::mt19937 random(11);
    for (const size_t count : {size_t(7), size_t(600), size_t(40000)}) {
        for (const uint32_t domain0 : {1u, 3u, 0xffffffffu}) {
            for (const uint32_t domain1 : {2u, 0xffffffffu}) {
                qe::qeLargeVector<ctr::edges::RankRecord> records(count);
                for (uint32_t i = 0; i < count; ++i)
                    records[i] = {{static_cast<uint32_t>(random()) % domain0, static_cast<uint32_t>(random()) % domain1,
                                   static_cast<uint32_t>(random()) % 5000u},
                                  i};
                const qe::qeLargeVector<ctr::edges::RankRecord> original = records;
                std::vector<std::array<uint32_t, 3>> keys;
                for (const auto& r : original) keys.push_back({r.key[0], r.key[1], r.key[2]});
                std::sort(keys.begin(), keys.end());
                keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
                std::vector<uint32_t> rank(count);
                ctr::edges::RankScratch scratch;
                ASSERT_EQ(ctr::edges::RankByKeys(records, rank, scratch), keys.size());
                for (const auto& r : original) {
                    const std::array<uint32_t, 3> key{r.key[0], r.key[1], r.key[2]};
                    ASSERT_EQ(rank[r.item], std::lower_bound(keys.begin(), keys.end(), key) - keys.begin());
                }
            }
        }
    }
}

TEST(EdgeOrder, PlacingInGroupsPutsEveryItemInItsRanksGroup) {
    // Rank counts on both sides of the two-step threshold, with ranks that
    // leave whole coarse buckets empty.
    std::mt19937 random(5);
    for (const uint32_t rankCount : {1u, 300u, ctr::edges::kDirectGroupRanks, ctr::edges::kDirectGroupRanks + 1,
                                     700000u}) {
        for (const uint32_t stride : {1u, 4099u}) {
            std::vector<uint32_t> ranks(3 * rankCount / 2 + 7);
            for (uint32_t& r : ranks) r = static_cast<uint32_t>(random() % rankCount / stride * stride);
            // Items are their own index; forEach hands them out in index order.
            std::vector<uint32_t> placed(ranks.size()), groupEnd, bucket, bucketRanks;
            ctr::edges::PlaceInGroups(
                ranks.size(), rankCount,
                [&](auto&& take) {
                    for (uint32_t i = 0; i < ranks.size(); ++i) take(i, ranks[i]);
                },
                [&](uint32_t item) { return ranks[item]; }, placed.data(), groupEnd, bucket, bucketRanks);
            ASSERT_EQ(groupEnd.size(), rankCount);
            ASSERT_EQ(groupEnd.back(), ranks.size());
            std::vector<bool> seen(ranks.size(), false);
            for (uint32_t g = 0; g < rankCount; ++g) {
                const uint32_t begin = g == 0 ? 0u : groupEnd[g - 1];
                ASSERT_LE(begin, groupEnd[g]) << g;
                for (uint32_t k = begin; k < groupEnd[g]; ++k) {
                    ASSERT_EQ(ranks[placed[k]], g) << "rank count " << rankCount << ", slot " << k;
                    ASSERT_FALSE(seen[placed[k]]);
                    seen[placed[k]] = true;
                }
            }
        }
    }
}

}  // namespace
