#include "SmoothNormals.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "FirstSeenNumbering.h"

namespace contour::importer {

namespace {

std::array<uint32_t, 3> positionKey(const tVec3& p) { return {floatBits(p.x), floatBits(p.y), floatBits(p.z)}; }

using Vector3d = Wm4::Vector3<double>;

Vector3d toDouble(const tVec3& v) { return Vector3d(v.x, v.y, v.z); }

bool sameBits(const Wm4::Vector3<float>& a, const Wm4::Vector3<float>& b) {
    return floatBits(a[0]) == floatBits(b[0]) && floatBits(a[1]) == floatBits(b[1]) &&
           floatBits(a[2]) == floatBits(b[2]);
}

Wm4::Vector3<float> unitNormal(const Vector3d& sum) {
    const double length = sum.Length();
    if (!(length > 0.0)) return Wm4::Vector3<float>(0.0f, 0.0f, 0.0f);
    return Wm4::Vector3<float>(static_cast<float>(sum[0] / length), static_cast<float>(sum[1] / length),
                               static_cast<float>(sum[2] / length));
}

// A face with a direction at an edge of many faces.
struct tAround {
    Vector3d direction;
    double angle;  // about the edge, from an arbitrary start
    uint32_t member;
};

// Puts the faces at the edge along axis in turn around it. Any two axes
// perpendicular to the edge that turn the same way round it give the same
// cyclic order.
void sortAroundEdge(const Vector3d& axis, std::vector<tAround>& around) {
    size_t least = 0;
    for (size_t i = 1; i < 3; ++i)
        if (std::fabs(axis[i]) < std::fabs(axis[least])) least = i;
    Vector3d pole(0.0, 0.0, 0.0);
    pole[least] = 1.0;
    const Vector3d u = axis.Cross(pole);
    const Vector3d v = axis.Cross(u);
    for (tAround& at : around) at.angle = std::atan2(at.direction.Dot(v), at.direction.Dot(u));
    std::sort(around.begin(), around.end(), [](const tAround& a, const tAround& b) {
        return a.angle < b.angle || (a.angle == b.angle && a.member < b.member);
    });
}

// Each face's normal scaled by twice its area, its direction, and the
// groups of its corners, which name its edges.
struct tFace {
    Vector3d weighted;
    Vector3d direction;
    std::array<uint32_t, 3> group;
};

// Work is cut by the input alone: faces in fixed chunks, groups in runs of
// at least kRunCorners corners and at most about kMaxRuns runs.
constexpr size_t kFaceChunk = size_t(1) << 15;
constexpr size_t kRunCorners = size_t(1) << 16;
constexpr size_t kMaxRuns = 64;

// Runs task(0 .. count-1) on the executor, or in turn without one.
void inChunks(ctr::Executor* executor, size_t count, const std::function<void(size_t)>& task) {
    if (!executor || count < 2) {
        for (size_t i = 0; i < count; ++i) task(i);
        return;
    }
    ctr::ParallelForCarrying(*executor, count, task);
}

// Settles the fans and slots of groups [groupBegin, groupEnd) into slots,
// numbered from its size on entry.
void settleGroups(const tSourceMesh& source, const tFace* faces, const uint32_t* grouped, const uint32_t* groupStart,
                  const uint32_t* groupVertex, size_t groupBegin, size_t groupEnd, float angleDegrees,
                  unsigned int* slotOfCorner, tSmoothVertices& slots) {
    const double cosLimit = std::cos(static_cast<double>(angleDegrees) * 3.14159265358979323846 / 180.0);
    const Vector3d zero(0.0, 0.0, 0.0);
    constexpr uint32_t kNone = 0xffffffffu;

    // Per group, indexed by member (the group's k-th corner): the union-find
    // forest whose roots are each fan's first member, the members' edges as
    // (other group, member) keys, and each fan's sum and slot.
    std::vector<uint32_t> parent;
    std::vector<uint64_t> edges;
    std::vector<std::pair<uint32_t, uint32_t>> hangers;  // directionless member, member with a direction
    std::vector<tAround> aroundEdge;                     // the members with a direction at an edge of many faces
    constexpr size_t kReach = 8;                         // faces compared with each one around such an edge
    std::vector<uint32_t> hangOn;
    std::vector<Vector3d> sum;
    std::vector<unsigned char> directed;
    std::vector<uint32_t> slotOfFan;
    const auto find = [&parent](uint32_t k) {
        while (parent[k] != k) {
            parent[k] = parent[parent[k]];
            k = parent[k];
        }
        return k;
    };
    const auto unite = [&](uint32_t a, uint32_t b) {
        a = find(a);
        b = find(b);
        if (a < b) parent[b] = a;
        if (b < a) parent[a] = b;
    };

    for (size_t g = groupBegin; g < groupEnd; ++g) {
        const uint32_t* const member = grouped + groupStart[g];
        const uint32_t count = groupStart[g + 1] - groupStart[g];
        const auto faceOf = [&](uint32_t k) -> const tFace& { return faces[member[k] / 3]; };
        const auto hasDirection = [&](uint32_t k) { return faceOf(k).direction != zero; };
        for (uint32_t k = 0; k < count; ++k) {
            constexpr size_t kAhead = 16;
            const size_t ahead = groupStart[g] + k + kAhead;
            if (ahead < groupStart[groupEnd]) __builtin_prefetch(&faces[grouped[ahead] / 3]);
        }
        parent.resize(count);
        for (uint32_t k = 0; k < count; ++k) parent[k] = k;

        if (count > 1) {
            // Members meeting at an edge have the same other group: sorting
            // the keys finds them in n log n, even at a hub of thousands of
            // faces. An edge whose other end lies at this position has no
            // length and joins nothing.
            edges.clear();
            for (uint32_t k = 0; k < count; ++k) {
                const tFace& face = faceOf(k);
                const uint32_t at = member[k] % 3;
                for (const uint32_t step : {1u, 2u}) {
                    const uint32_t other = face.group[(at + step) % 3];
                    if (other != g) edges.push_back(static_cast<uint64_t>(other) << 32 | k);
                }
            }
            std::sort(edges.begin(), edges.end());
            hangers.clear();
            for (size_t runStart = 0; runStart < edges.size();) {
                size_t runEnd = runStart + 1;
                while (runEnd < edges.size() && edges[runEnd] >> 32 == edges[runStart] >> 32) ++runEnd;
                // The members of a run meet at one edge: two at a manifold
                // edge, more at a non-manifold one, and any two of them are
                // neighbours. Their pairs are not visited one by one, as the
                // n pages of a book have n^2 / 2: each kind of pair is
                // settled for the whole run at once, with the same fans.
                // - Two directionless members are joined: a chain from the
                //   first joins them all.
                // - A directionless member hangs on every member with a
                //   direction, and only the least of those counts (see
                //   below). The run's directionless members being joined,
                //   one hanger from the first of them to the first with a
                //   direction (the keys are sorted, so the run is in member
                //   order) stands for them all.
                // - Two members with a direction are joined when they turn
                //   by at most the smoothing angle. The faces at an edge
                //   contain it, so their directions are perpendicular to it
                //   and lie on one circle. When two are within the angle, so
                //   is each step from one face to the next on the shorter
                //   arc between them, as no step is longer than the arc:
                //   taken in turn around the edge, comparing each member
                //   with the next joins every fan. Each is compared with the
                //   next kReach (cyclically) rather than one, for two
                //   reasons. Up to 2 kReach + 1 members with a direction,
                //   that is every pair, whatever the order: such a run, as
                //   the usual edges of two faces or a few more are, is not
                //   sorted but compared pair by pair, exactly as all pairs
                //   would be. In a longer run the order comes from computed
                //   directions, off by about 1e-16; a wider reach keeps it
                //   from parting two faces that all pairs would join unless
                //   more than kReach directions within rounding of each
                //   other lie between them and a step among them is within
                //   rounding of the angle as well: a fan joined by the luck
                //   of rounding, not by a margin. The sort is n log n, the
                //   comparisons kReach n.
                // A face with a repeated corner may appear twice in a run; it
                // has no area.
                if (runEnd - runStart == 2) {
                    // The manifold edge, most edges of most meshes: one pair.
                    const uint32_t a = static_cast<uint32_t>(edges[runStart]);
                    const uint32_t b = static_cast<uint32_t>(edges[runStart + 1]);
                    if (hasDirection(a) && hasDirection(b)) {
                        if (faceOf(a).direction.Dot(faceOf(b).direction) >= cosLimit) unite(a, b);
                    } else if (!hasDirection(a) && !hasDirection(b)) {
                        unite(a, b);
                    } else {
                        hangers.emplace_back(hasDirection(a) ? b : a, hasDirection(a) ? a : b);
                    }
                    runStart = runEnd;
                    continue;
                }
                uint32_t firstDirectionless = kNone;
                uint32_t firstDirected = kNone;
                size_t directedCount = 0;
                for (size_t i = runStart; i < runEnd; ++i) {
                    const uint32_t k = static_cast<uint32_t>(edges[i]);
                    if (hasDirection(k)) {
                        if (firstDirected == kNone) firstDirected = k;
                        ++directedCount;
                    } else if (firstDirectionless == kNone) {
                        firstDirectionless = k;
                    } else {
                        unite(firstDirectionless, k);
                    }
                }
                if (firstDirectionless != kNone && firstDirected != kNone)
                    hangers.emplace_back(firstDirectionless, firstDirected);
                if (directedCount > 2 * kReach + 1) {
                    aroundEdge.clear();
                    for (size_t i = runStart; i < runEnd; ++i) {
                        const uint32_t k = static_cast<uint32_t>(edges[i]);
                        if (hasDirection(k)) aroundEdge.push_back(tAround{faceOf(k).direction, 0.0, k});
                    }
                    sortAroundEdge(toDouble(source.positions[groupVertex[edges[runStart] >> 32]]) -
                                       toDouble(source.positions[groupVertex[g]]),
                                   aroundEdge);
                    for (size_t i = 0; i < aroundEdge.size(); ++i)
                        for (size_t step = 1; step <= kReach; ++step) {
                            const tAround& a = aroundEdge[i];
                            const tAround& b = aroundEdge[(i + step) % aroundEdge.size()];
                            if (a.direction.Dot(b.direction) >= cosLimit) unite(a.member, b.member);
                        }
                } else if (directedCount > 1) {
                    for (size_t i = runStart; i < runEnd; ++i) {
                        const uint32_t a = static_cast<uint32_t>(edges[i]);
                        if (!hasDirection(a)) continue;
                        for (size_t j = i + 1; j < runEnd; ++j) {
                            const uint32_t b = static_cast<uint32_t>(edges[j]);
                            if (hasDirection(b) && faceOf(a).direction.Dot(faceOf(b).direction) >= cosLimit)
                                unite(a, b);
                        }
                    }
                }
                runStart = runEnd;
            }
            if (!hangers.empty()) {
                // Each directionless fan hangs on the neighbouring member
                // with a direction that comes first, never on two, so it
                // cannot join the fans on both sides of a crease.
                hangOn.assign(count, kNone);
                for (const auto& hanger : hangers) {
                    uint32_t& on = hangOn[find(hanger.first)];
                    on = std::min(on, hanger.second);
                }
                for (uint32_t k = 0; k < count; ++k)
                    if (hangOn[k] != kNone) unite(k, hangOn[k]);
            }
        }

        sum.assign(count, zero);
        directed.assign(count, 0);
        bool anyDirectionless = false;
        for (uint32_t k = 0; k < count; ++k) {
            const uint32_t fan = find(k);
            sum[fan] += faceOf(k).weighted;
            if (hasDirection(k)) directed[fan] = 1;
        }
        slotOfFan.assign(count, kNone);
        // Fans of one position may still come out with the same normal: they
        // share a vertex. The few slots of a group are searched in turn; a
        // hub of many fans uses a table instead.
        const size_t firstSlot = slots.normal.size();
        std::unique_ptr<tFirstSeenNumbering<3>> seen;
        if (count > 16) seen.reset(new tFirstSeenNumbering<3>(count));
        const auto slotFor = [&](const Wm4::Vector3<float>& normal) {
            size_t slot = firstSlot;
            if (seen)
                slot += seen->number({floatBits(normal[0]), floatBits(normal[1]), floatBits(normal[2])});
            else
                while (slot < slots.normal.size() && !sameBits(slots.normal[slot], normal)) ++slot;
            if (slot == slots.normal.size()) {
                slots.normal.push_back(normal);
                slots.source.push_back(groupVertex[g]);
            }
            return static_cast<uint32_t>(slot);
        };
        for (uint32_t k = 0; k < count; ++k) {
            if (parent[k] != k) continue;
            if (!directed[k]) {
                anyDirectionless = true;
                continue;
            }
            slotOfFan[k] = slotFor(unitNormal(sum[k]));
        }
        if (anyDirectionless) {
            Vector3d all = zero;
            for (uint32_t k = 0; k < count; ++k) all += faceOf(k).weighted;
            const uint32_t slot = slotFor(unitNormal(all));
            for (uint32_t k = 0; k < count; ++k)
                if (parent[k] == k && !directed[k]) slotOfFan[k] = slot;
        }
        for (uint32_t k = 0; k < count; ++k) slotOfCorner[member[k]] = static_cast<unsigned int>(slotOfFan[find(k)]);
    }
}

}  // namespace

void makeSmoothSlots(const tSourceMesh& source, float angleDegrees, unsigned int* slotOfCorner,
                     tSmoothVertices& slots, ctr::Executor* executor) {
    const ScratchArray<unsigned int>& corners = source.corners;
    const size_t faceCount = corners.size() / 3;

    // Corners bucketed by position, groups numbered in the order of their
    // first corner. Corners that share a vertex share its group, so the
    // table is asked once per vertex, not once per corner.
    constexpr uint32_t kUnset = 0xffffffffu;
    ScratchArray<uint32_t> groupOfVertex;
    groupOfVertex.assign(source.positions.size(), kUnset);
    ScratchArray<uint32_t> groupVertex;  // a vertex of each group
    {
        constexpr size_t kAhead = 32;
        tFirstSeenNumbering<3> groupOf(std::min(source.positions.size(), corners.size()));
        for (size_t c = 0; c < corners.size(); ++c) {
            if (c + kAhead < corners.size() && groupOfVertex[corners[c + kAhead]] == kUnset)
                groupOf.prefetch(positionKey(source.positions[corners[c + kAhead]]));
            uint32_t& group = groupOfVertex[corners[c]];
            if (group == kUnset) {
                group = groupOf.number(positionKey(source.positions[corners[c]]));
                if (group == groupVertex.size()) groupVertex.push_back(corners[c]);
            }
        }
    }

    ScratchArray<tFace> faces(faceCount);
    const size_t faceChunks = (faceCount + kFaceChunk - 1) / kFaceChunk;
    inChunks(executor, faceChunks, [&](size_t chunk) {
        const size_t end = std::min(faceCount, (chunk + 1) * kFaceChunk);
        for (size_t f = chunk * kFaceChunk; f < end; ++f) {
            const Vector3d p0 = toDouble(source.positions[corners[3 * f]]);
            const Vector3d p1 = toDouble(source.positions[corners[3 * f + 1]]);
            const Vector3d p2 = toDouble(source.positions[corners[3 * f + 2]]);
            tFace& face = faces[f];
            face.weighted = (p1 - p0).Cross(p2 - p0);
            const double length = face.weighted.Length();
            face.direction = length > 0.0 ? face.weighted / length : Vector3d(0.0, 0.0, 0.0);
            for (size_t k = 0; k < 3; ++k) face.group[k] = groupOfVertex[corners[3 * f + k]];
        }
    });

    const size_t groupCount = groupVertex.size();
    ScratchArray<uint32_t> groupStart;
    groupStart.assign(groupCount + 1, 0);
    for (const unsigned int corner : corners) ++groupStart[groupOfVertex[corner] + 1];
    for (size_t g = 0; g < groupCount; ++g) groupStart[g + 1] += groupStart[g];
    ScratchArray<uint32_t> grouped(corners.size());  // each group's corners in corner order
    {
        ScratchArray<uint32_t> next(groupCount);
        std::memcpy(next.data(), groupStart.data(), groupCount * sizeof(uint32_t));
        for (size_t c = 0; c < corners.size(); ++c)
            grouped[next[groupOfVertex[corners[c]]]++] = static_cast<uint32_t>(c);
    }
    groupOfVertex = ScratchArray<uint32_t>();

    // Groups are settled in runs of whole groups, each run into slots of its
    // own numbered from 0; the runs' slots are then appended in run order and
    // their corners' slots moved up by what the runs before them made. The
    // slots of a group depend on that group alone, so this numbering is the
    // one a single pass in group order gives, with any number of threads.
    std::vector<size_t> runGroup{0};
    {
        const size_t target = std::max(kRunCorners, corners.size() / kMaxRuns);
        for (size_t g = 0; g < groupCount; ++g)
            if (groupStart[g + 1] - groupStart[runGroup.back()] >= target || g + 1 == groupCount)
                runGroup.push_back(g + 1);
    }
    const size_t runs = runGroup.size() - 1;
    std::vector<tSmoothVertices> runSlots(runs);
    inChunks(executor, runs, [&](size_t run) {
        settleGroups(source, faces.data(), grouped.data(), groupStart.data(), groupVertex.data(), runGroup[run],
                     runGroup[run + 1], angleDegrees, slotOfCorner, runSlots[run]);
    });
    const size_t before = slots.normal.size();
    std::vector<size_t> runBase(runs + 1, before);
    for (size_t run = 0; run < runs; ++run) runBase[run + 1] = runBase[run] + runSlots[run].normal.size();
    slots.normal.reserve(runBase[runs]);
    slots.source.reserve(runBase[runs]);
    for (tSmoothVertices& run : runSlots) {
        for (size_t k = 0; k < run.normal.size(); ++k) {
            slots.normal.push_back(run.normal[k]);
            slots.source.push_back(run.source[k]);
        }
        run = tSmoothVertices();
    }
    inChunks(executor, runs, [&](size_t run) {
        const unsigned int base = static_cast<unsigned int>(runBase[run]);
        if (base == 0) return;
        for (size_t m = groupStart[runGroup[run]]; m < groupStart[runGroup[run + 1]]; ++m)
            slotOfCorner[grouped[m]] += base;
    });
}

}  // namespace contour::importer
