// The search for intersecting triangle pairs over the hierarchy, and the
// exact test of one pair.
//
// Bounds (the bit budget in exact/Exact.h): a plane distance, and the
// difference of two of them, is at most 2^62 in magnitude, so a crossing
// parameter is a 64-bit fraction whose floor along an edge is exact.

#include "ctr/TrianglesIntersection.h"

#include <algorithm>

#include "exact/Exact.h"
#include "parallel/Chunks.h"
#include "visibility/IntersectionInternal.h"

namespace ctr {

namespace {

bool straddles(const int64_t (&distance)[3]) {
    const bool below = distance[0] < 0 || distance[1] < 0 || distance[2] < 0;
    const bool above = distance[0] > 0 || distance[1] > 0 || distance[2] > 0;
    return below && above;
}

using tCrossing = TrianglesIntersection::tInternal::tCrossing;

// The two points where the boundary of a triangle that straddles a plane
// crosses it. An edge starting on the plane is skipped: its start is the end
// (t = 1) of the edge before it, so each crossing is produced once.
void findCrossings(const BakedVertex (&corner)[3], const int64_t (&distance)[3], tCrossing* out) {
    int found = 0;
    for (int k = 0; k < 3 && found < 2; ++k) {
        const int next = k == 2 ? 0 : k + 1;
        const int64_t da = distance[k];
        const int64_t db = distance[next];
        if (da == 0 || (db != 0 && (db < 0) == (da < 0))) continue;
        tCrossing& crossing = out[found++];
        crossing.edgeStart = &corner[k];
        crossing.edgeEnd = &corner[next];
        if (da - db >= 1) {
            crossing.numerator = da;
            crossing.denominator = da - db;
        } else {
            crossing.numerator = -da;
            crossing.denominator = db - da;
        }
    }
}

// The filtered rejection below compares double estimates of the crossings'
// screen coordinates. Each estimate is within kAlongEstimateError of the
// exact coordinate, and exact when the parameter is 1 or the edge keeps the
// coordinate; a difference of two estimates (each below 2^31 in magnitude)
// rounds once more, by at most u 2^32 = 2^-21. So a computed difference hi -
// lo at least kApartMargin (resp. 1 + kApartMargin) proves that the exact
// values differ by at least 0 (resp. 1); between two exact estimates the
// difference of two integers is exact and no margin is needed.
constexpr double kApartMargin = 0x1p-16;
static_assert(2 * exact::kAlongEstimateError + 0x1p-21 <= kApartMargin, "the margin covers both estimates");
// The same for a difference of two spreads (four estimates, three
// subtractions).
constexpr double kSpreadMargin = 0x1p-14;
static_assert(4 * exact::kAlongEstimateError + 3 * 0x1p-20 <= kSpreadMargin, "the margin covers both spreads");

struct tEstimate {
    double value;
    bool exact;
};

// Proven: exact(high) - exact(low) >= atLeast, for atLeast 0 or 1.
bool provenApart(const tEstimate& low, const tEstimate& high, double atLeast) {
    const double difference = high.value - low.value;
    return low.exact && high.exact ? difference >= atLeast : difference >= atLeast + kApartMargin;
}

}  // namespace

TrianglesIntersection::TrianglesIntersection(const BakedTriangles& triangles)
    : internal(std::make_unique<tInternal>(triangles)) {}

TrianglesIntersection::~TrianglesIntersection() = default;

void TrianglesIntersection::setProgressNotifier(qe::qeProgressNotifierInterface* notifier) {
    internal->progressNotifier = notifier;
}

TrianglesIntersection::tInternal::tTriangleData TrianglesIntersection::tInternal::getTriangleData(
    unsigned int triangle) const {
    const std::vector<BakedVertex>& vertices = bakedTriangles->getVertices();
    const uint32_t* corner = &bakedTriangles->getTriangles()[3 * static_cast<size_t>(triangle)];
    tTriangleData data;
    for (int c = 0; c < 3; ++c) data.vertices[c] = vertices[corner[c]];
    data.normal = bakedTriangles->getPlanes()[triangle];
    data.index = triangle;
    return data;
}

void TrianglesIntersection::setExecutor(Executor* executor) { internal->executor = executor; }

void TrianglesIntersection::tInternal::findIntersectionEdges(tEdgeList& edges) const {
    const uint32_t count = bakedTriangles->getTriangleQuantity();
    // The pairs are found all at once, then handed out triangle by triangle,
    // where progress and cancellation are counted as they always were.
    std::vector<tHit> hits;
    findAllHits(hits);
    size_t next = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (progressNotifier) {
            progressNotifier->advanceProgress(1.0);
            if (progressNotifier->shouldCancel()) return;
        }
        for (; next < hits.size() && hits[next].first == i; ++next) edges.push_back(hits[next].edge);
    }
}

namespace {

// Two subtrees whose triangles are still to be paired; a == b pairs a subtree
// with itself.
struct tNodePair {
    uint32_t a;
    uint32_t b;
};

qe::qeBBox floatBox(const BakedVertex (&v)[3]) {
    return exact::GridBox(BakedVertex{std::min({v[0].x, v[1].x, v[2].x}), std::min({v[0].y, v[1].y, v[2].y}),
                                      std::min({v[0].z, v[1].z, v[2].z})},
                          BakedVertex{std::max({v[0].x, v[1].x, v[2].x}), std::max({v[0].y, v[1].y, v[2].y}),
                                      std::max({v[0].z, v[1].z, v[2].z})});
}

// A pair of subtrees with at most this many triangles (or a share of the
// input, for large inputs) is one task of the pairing.
constexpr uint64_t kMinTaskTriangles = 1024;
constexpr uint64_t kTasksWanted = 256;
// Inputs up to this many triangles get their block entries made once.
constexpr uint32_t kCachedTriangles = 1u << 18;
// Subtrees of at most this many triangles are paired triangle by triangle
// rather than node by node: a few more box tests, far fewer node visits.
constexpr uint32_t kBlockSize = 8;

}  // namespace

void TrianglesIntersection::tInternal::findAllHits(std::vector<tHit>& hits) const {
    hits.clear();
    const uint32_t count = bakedTriangles->getTriangleQuantity();
    if (bvh->isEmpty() || count < 2) return;
    const std::vector<qe::qeBVHNode>& nodes = bvh->getNodes();
    const std::vector<uint32_t>& primitives = bvh->getPrimitives();
    const uint32_t nodeCount = static_cast<uint32_t>(nodes.size());
    const auto valid = [nodeCount](uint32_t node) { return node < nodeCount; };

    // Leaves in depth-first order, first child first: the order in which the
    // search from one triangle meets its partners.
    constexpr uint32_t kUnranked = ~0u;
    std::vector<uint32_t> rank(count, kUnranked);
    {
        uint32_t next = 0;
        std::vector<uint32_t> stack{0u};
        while (!stack.empty()) {
            const qe::qeBVHNode& node = nodes[stack.back()];
            stack.pop_back();
            if (node.isLeaf()) {
                const uint32_t end = node.firstPrimitive() + node.primitiveCount();
                for (uint32_t k = node.firstPrimitive(); k < end && k < primitives.size(); ++k)
                    if (primitives[k] < count && rank[primitives[k]] == kUnranked) rank[primitives[k]] = next++;
                continue;
            }
            if (valid(node.secondChild())) stack.push_back(node.secondChild());
            if (valid(node.firstChild())) stack.push_back(node.firstChild());
        }
    }

    const auto primitivesOf = [&](const qe::qeBVHNode& leaf, uint32_t& first, uint32_t& end) {
        first = std::min<uint32_t>(leaf.firstPrimitive(), static_cast<uint32_t>(primitives.size()));
        end = std::min<uint32_t>(first + leaf.primitiveCount(), static_cast<uint32_t>(primitives.size()));
    };
    // Per node, the run of primitive positions below it when the run is
    // contiguous (the builder makes it so; kScattered marks a node whose
    // run is not, which is then always split), and per position its leaf.
    constexpr uint32_t kScattered = ~0u;
    std::vector<uint32_t> runFirst(nodeCount), runCount(nodeCount);
    std::vector<uint32_t> leafAt(primitives.size(), 0u);
    for (uint32_t n = nodeCount; n-- > 0;) {
        const qe::qeBVHNode& node = nodes[n];
        if (node.isLeaf()) {
            uint32_t first, end;
            primitivesOf(node, first, end);
            runFirst[n] = first;
            runCount[n] = end - first;
            for (uint32_t k = first; k < end; ++k) leafAt[k] = n;
            continue;
        }
        const uint32_t left = node.firstChild(), right = node.secondChild();
        runCount[n] = kScattered;
        if (left <= n || right <= n || !valid(left) || !valid(right)) continue;
        if (runCount[left] == kScattered || runCount[right] == kScattered) continue;
        if (runFirst[left] + runCount[left] == runFirst[right]) {
            runFirst[n] = runFirst[left];
            runCount[n] = runCount[left] + runCount[right];
        } else if (runFirst[right] + runCount[right] == runFirst[left]) {
            runFirst[n] = runFirst[right];
            runCount[n] = runCount[left] + runCount[right];
        }
    }

    // The search from triangle i tests partner j (j > i) exactly when the box
    // of i overlaps the box of the leaf holding j (and so every box above
    // it); that same condition is applied here, so the same pairs reach the
    // exact test. Small subtrees are paired primitive by primitive, with
    // the triangles' data read once per block.
    struct tBlockEntry {
        uint32_t triangle;
        uint32_t leaf;
        tTriangleData data;
        qe::qeBBox box;
    };
    const auto loadBlock = [&](uint32_t node, std::vector<tBlockEntry>& block) {
        block.clear();
        for (uint32_t k = runFirst[node], end = runFirst[node] + runCount[node]; k < end; ++k) {
            if (primitives[k] >= count) continue;
            tBlockEntry entry{primitives[k], leafAt[k], getTriangleData(primitives[k]), qe::qeBBox()};
            entry.box = floatBox(entry.data.vertices);
            block.push_back(entry);
        }
    };
    // edge is the caller's scratch, so that no pair pays for building one.
    const auto testEntries = [&](const tBlockEntry& x, const tBlockEntry& y, tEdge& edge, std::vector<tHit>& out) {
        if (x.triangle == y.triangle) return;
        const bool xFirst = x.triangle < y.triangle;
        const tBlockEntry& first = xFirst ? x : y;
        const tBlockEntry& partner = xFirst ? y : x;
        if (!nodes[partner.leaf].box.overlaps(first.box)) return;
        if (testTrianglePair(first.data, partner.data, edge.first, edge.second))
            out.push_back(tHit{first.triangle, rank[partner.triangle], edge});
    };
    const auto small = [&](uint32_t node) { return runCount[node] != kScattered && runCount[node] <= kBlockSize; };
    // Splits a pair one level: the children of a subtree paired with
    // themselves and with each other, or the larger of two subtrees split.
    // Pairs of subtrees whose boxes are apart are dropped. Returns false for
    // a pair that is tested block against block instead.
    const auto split = [&](const tNodePair& pair, tNodePair(&parts)[3], int& partCount) {
        partCount = 0;
        const qe::qeBVHNode& a = nodes[pair.a];
        const qe::qeBVHNode& b = nodes[pair.b];
        if (pair.a == pair.b) {
            if (a.isLeaf() || small(pair.a)) return false;
            const uint32_t left = a.firstChild(), right = a.secondChild();
            if (valid(left)) parts[partCount++] = {left, left};
            if (valid(right)) parts[partCount++] = {right, right};
            if (valid(left) && valid(right)) parts[partCount++] = {left, right};
            return true;
        }
        if (!a.box.overlaps(b.box)) return true;
        if ((a.isLeaf() || small(pair.a)) && (b.isLeaf() || small(pair.b))) return false;
        if (a.isLeaf() || (!b.isLeaf() && b.box.halfArea() > a.box.halfArea())) {
            if (valid(b.firstChild())) parts[partCount++] = {pair.a, b.firstChild()};
            if (valid(b.secondChild())) parts[partCount++] = {pair.a, b.secondChild()};
        } else {
            if (valid(a.firstChild())) parts[partCount++] = {a.firstChild(), pair.b};
            if (valid(a.secondChild())) parts[partCount++] = {a.secondChild(), pair.b};
        }
        return true;
    };
    // Below kCachedTriangles every triangle's entry is made once, in
    // primitive order, and a block is the run of its node in that array;
    // above, the array would weigh too much and blocks are loaded as the
    // walk meets them, kept while the next pair names the same node (the
    // walk goes depth first, so one side of the pair repeats for a while).
    std::vector<tBlockEntry> cache;
    if (count <= kCachedTriangles &&
        std::all_of(primitives.begin(), primitives.end(), [count](uint32_t p) { return p < count; })) {
        cache.resize(primitives.size());
        for (uint32_t k = 0; k < primitives.size(); ++k) {
            tBlockEntry& entry = cache[k];
            entry = tBlockEntry{primitives[k], leafAt[k], getTriangleData(primitives[k]), qe::qeBBox()};
            entry.box = floatBox(entry.data.vertices);
        }
    }
    struct tBlock {
        const tBlockEntry* begin = nullptr;
        const tBlockEntry* end = nullptr;
    };
    struct tBlocks {
        std::vector<tBlockEntry> a, b;
        uint32_t nodeA = ~0u, nodeB = ~0u;
    };
    const auto blocksOf = [&](const tNodePair& pair, tBlocks& blocks, tBlock& blockA, tBlock& blockB) {
        if (!cache.empty()) {
            blockA = tBlock{cache.data() + runFirst[pair.a], cache.data() + runFirst[pair.a] + runCount[pair.a]};
            blockB = tBlock{cache.data() + runFirst[pair.b], cache.data() + runFirst[pair.b] + runCount[pair.b]};
            return;
        }
        if (blocks.nodeA != pair.a) {
            if (blocks.nodeB == pair.a) {
                std::swap(blocks.a, blocks.b);
                std::swap(blocks.nodeA, blocks.nodeB);
            } else {
                loadBlock(pair.a, blocks.a);
                blocks.nodeA = pair.a;
            }
        }
        if (pair.a != pair.b && blocks.nodeB != pair.b) {
            loadBlock(pair.b, blocks.b);
            blocks.nodeB = pair.b;
        }
        blockA = tBlock{blocks.a.data(), blocks.a.data() + blocks.a.size()};
        const std::vector<tBlockEntry>& b = pair.a == pair.b ? blocks.a : blocks.b;
        blockB = tBlock{b.data(), b.data() + b.size()};
    };
    const auto testBlocks = [&](const tNodePair& pair, tBlocks& blocks, tEdge& edge, std::vector<tHit>& out) {
        tBlock blockA, blockB;
        blocksOf(pair, blocks, blockA, blockB);
        if (pair.a == pair.b) {
            for (const tBlockEntry* x = blockA.begin; x != blockA.end; ++x)
                for (const tBlockEntry* y = x + 1; y != blockA.end; ++y) testEntries(*x, *y, edge, out);
            return;
        }
        for (const tBlockEntry* x = blockA.begin; x != blockA.end; ++x)
            for (const tBlockEntry* y = blockB.begin; y != blockB.end; ++y) testEntries(*x, *y, edge, out);
    };
    const auto walk = [&](const tNodePair& start, std::vector<tHit>& out) {
        std::vector<tNodePair> stack{start};
        tBlocks blocks;
        tEdge edge;
        tNodePair parts[3];
        int partCount = 0;
        while (!stack.empty()) {
            const tNodePair pair = stack.back();
            stack.pop_back();
            if (!split(pair, parts, partCount))
                testBlocks(pair, blocks, edge, out);
            else
                stack.insert(stack.end(), parts, parts + partCount);
        }
    };

    // The first levels become the tasks: a pair is split while it holds more
    // triangles than a task should, a size taken from the input alone, so
    // that small parts run as a few tasks and large ones as many; the hits
    // are sorted afterwards in any case.
    const uint64_t taskTriangles = std::max<uint64_t>(kMinTaskTriangles, count / kTasksWanted);
    const auto large = [&](const tNodePair& pair) {
        if (runCount[pair.a] == kScattered || runCount[pair.b] == kScattered) return true;
        const uint64_t size = uint64_t{runCount[pair.a]} + (pair.a == pair.b ? 0u : runCount[pair.b]);
        return size > taskTriangles;
    };
    std::vector<tNodePair> tasks;
    {
        std::vector<tNodePair> pending{{0u, 0u}};
        tNodePair parts[3];
        int partCount = 0;
        while (!pending.empty()) {
            const tNodePair pair = pending.back();
            pending.pop_back();
            if (large(pair) && split(pair, parts, partCount))
                pending.insert(pending.end(), parts, parts + partCount);
            else
                tasks.push_back(pair);
        }
    }
    std::vector<std::vector<tHit>> found(tasks.size());
    ForEachTask(executor, tasks.size(), [&](size_t t) { walk(tasks[t], found[t]); });
    size_t total = 0;
    for (const std::vector<tHit>& part : found) total += part.size();
    hits.reserve(total);
    for (const std::vector<tHit>& part : found) hits.insert(hits.end(), part.begin(), part.end());
    std::sort(hits.begin(), hits.end(),
              [](const tHit& x, const tHit& y) { return x.first != y.first ? x.first < y.first : x.rank < y.rank; });
}

void TrianglesIntersection::tInternal::findTriangleIntersections(unsigned int triangle, tEdgeList& edges) const {
    if (triangle >= bakedTriangles->getTriangleQuantity() || bvh->isEmpty()) return;
    const tTriangleData data = getTriangleData(triangle);
    const qe::qeBBox box = floatBox(data.vertices);
    triangleIntersectionIter(0, data, box, edges);
}

void TrianglesIntersection::tInternal::triangleIntersectionIter(unsigned int node, const tTriangleData& triangle,
                                                                const qe::qeBBox& box, tEdgeList& edges) const {
    const std::vector<qe::qeBVHNode>& nodes = bvh->getNodes();
    const std::vector<uint32_t>& primitives = bvh->getPrimitives();
    for (;;) {
        if (node >= nodes.size()) return;
        const qe::qeBVHNode& current = nodes[node];
        if (!current.box.overlaps(box)) return;
        if (!current.isLeaf()) {
            triangleIntersectionIter(current.firstChild(), triangle, box, edges);
            node = current.secondChild();
            continue;
        }
        const uint32_t first = current.firstPrimitive();
        const uint32_t end = first + current.primitiveCount();
        for (uint32_t k = first; k < end; ++k) {
            const uint32_t other = primitives[k];
            // Partners of higher number only: each pair once, never a
            // triangle with itself.
            if (other <= triangle.index) continue;
            tPointOnEdge start{};
            tPointOnEdge finish{};
            if (testTriangleIntersection(triangle, other, start, finish)) edges.emplace_back(start, finish);
        }
        return;
    }
}

bool TrianglesIntersection::tInternal::testTriangleIntersection(const tTriangleData& first, unsigned int second,
                                                                tPointOnEdge& start, tPointOnEdge& end) const {
    return testTrianglePair(first, getTriangleData(second), start, end);
}

bool TrianglesIntersection::tInternal::crossingsApart(const tCrossing (&slot)[4]) {
    // Both crossing segments lie on the line where the planes meet; the pair
    // test compares them, on their floored grid points, along the screen axis
    // on which the four points spread most. With minA, maxA and minB, maxB
    // the ranges of the two segments on that axis, the comparison finds no
    // common segment (whatever the ties among the four points) when
    //   R1: maxA <= minB, or
    //   R2: maxB < minA, or
    //   R3: maxB <= minA, minA < maxA and minB < maxB
    // (in R3 the segments touch in one coordinate and neither is degenerate;
    // a degenerate one there would count as inside the other's range). The
    // floor keeps <=, and x <= y - 1 gives floor(x) < floor(y), so these
    // follow from the exact coordinates: R1 from maxA <= minB, R2 from
    // minA - maxB >= 1, R3 from maxB <= minA, maxA - minA >= 1 and maxB - minB
    // >= 1. Estimates prove them without the floors; when they do on the
    // axis the comparison will use, or on both axes, the pair is rejected
    // here, exactly as the comparison would reject it.
    tEstimate estimate[2][4];
    for (int s = 0; s < 4; ++s) {
        const BakedVertex& a = *slot[s].edgeStart;
        const BakedVertex& b = *slot[s].edgeEnd;
        const bool whole = slot[s].numerator == slot[s].denominator;
        const double quotient = exact::AlongQuotient(slot[s].numerator, slot[s].denominator);
        estimate[0][s] = tEstimate{exact::AlongEstimate(a.x, b.x, quotient), whole || a.x == b.x};
        estimate[1][s] = tEstimate{exact::AlongEstimate(a.y, b.y, quotient), whole || a.y == b.y};
    }
    bool apart[2];
    double spread[2];
    for (int axis = 0; axis < 2; ++axis) {
        const tEstimate* a = estimate[axis];
        const tEstimate* b = a + 2;
        // Every point of one segment against every point of the other:
        // an estimate's error does not say which of two close points is
        // the larger.
        const auto allApart = [](const tEstimate* low, const tEstimate* high, double atLeast) {
            return provenApart(low[0], high[0], atLeast) && provenApart(low[0], high[1], atLeast) &&
                   provenApart(low[1], high[0], atLeast) && provenApart(low[1], high[1], atLeast);
        };
        const auto long1 = [](const tEstimate* e) {
            return provenApart(e[0], e[1], 1.0) || provenApart(e[1], e[0], 1.0);
        };
        apart[axis] = allApart(a, b, 0.0) || allApart(b, a, 1.0) || (allApart(b, a, 0.0) && long1(a) && long1(b));
        const double high = std::max({a[0].value, a[1].value, b[0].value, b[1].value});
        const double low = std::min({a[0].value, a[1].value, b[0].value, b[1].value});
        spread[axis] = high - low;
    }
    // A floored spread is within one unit of the exact one, so spreads
    // two apart fix the axis.
    const double lead = spread[0] - spread[1];
    if (lead >= 2.0 + kSpreadMargin) return apart[0];
    if (lead <= -(2.0 + kSpreadMargin)) return apart[1];
    return apart[0] && apart[1];
}

bool TrianglesIntersection::tInternal::testTrianglePair(const tTriangleData& first, const tTriangleData& other,
                                                        tPointOnEdge& start, tPointOnEdge& end) {
    // Parallel planes need no test of their own: a triangle lies wholly on
    // one side of a plane parallel to its own, so it never straddles it.

    int64_t distance[3];
    int64_t otherDistance[3];
    for (int k = 0; k < 3; ++k) distance[k] = exact::PlaneDistance(first.vertices[k], other.vertices[0], other.normal);
    // Touching the other plane with a vertex or an edge is not crossing it.
    if (!straddles(distance)) return false;
    for (int k = 0; k < 3; ++k)
        otherDistance[k] = exact::PlaneDistance(other.vertices[k], first.vertices[0], first.normal);
    if (!straddles(otherDistance)) return false;
    // Slots 0 and 1 hold the first triangle's crossings, 2 and 3 the other's.
    tCrossing slot[4];
    findCrossings(first.vertices, distance, slot);
    findCrossings(other.vertices, otherDistance, slot + 2);

    // Estimates reject most pairs that reach this point, without a floor.
    if (crossingsApart(slot)) return false;

    // The crossing points cost floors: only their screen coordinates decide,
    // depth is needed for the two ends of a hit alone.
    int32_t point[2][4];
    for (int s = 0; s < 4; ++s) {
        const BakedVertex& a = *slot[s].edgeStart;
        const BakedVertex& b = *slot[s].edgeEnd;
        point[0][s] = exact::FloorAlong(a.x, b.x, slot[s].numerator, slot[s].denominator);
        point[1][s] = exact::FloorAlong(a.y, b.y, slot[s].numerator, slot[s].denominator);
    }
    int64_t spread[2];
    for (int axis = 0; axis < 2; ++axis) {
        const int32_t* c = point[axis];
        spread[axis] = int64_t{std::max({c[0], c[1], c[2], c[3]})} - std::min({c[0], c[1], c[2], c[3]});
    }
    if (spread[0] == 0 && spread[1] == 0) return false;
    const bool alongX = spread[0] > spread[1];
    const int32_t* c = point[alongX ? 0 : 1];
    const auto coordinate = [&](int s) { return c[s]; };

    const int lowA = coordinate(1) < coordinate(0) ? 1 : 0;
    const int highA = 1 - lowA;
    const int lowB = coordinate(3) < coordinate(2) ? 3 : 2;
    const int highB = 5 - lowB;
    int from = lowA;
    if (coordinate(lowB) >= coordinate(from)) from = lowB;
    int to = highA;
    if (coordinate(highB) < coordinate(to)) to = highB;
    if (!(coordinate(from) < coordinate(to))) {
        std::swap(from, to);
        // Ends from different triangles in the wrong order: the segments are
        // disjoint or meet in one coordinate. Ends from one triangle: its
        // segment is degenerate on the axis and inside the other's range.
        if ((from < 2) != (to < 2)) return false;
    }
    const auto record = [&](int s, tPointOnEdge& out) {
        const tCrossing& crossing = slot[s];
        out.edgeStart = *crossing.edgeStart;
        out.edgeEnd = *crossing.edgeEnd;
        out.numerator = crossing.numerator;
        out.denominator = crossing.denominator;
        out.point = BakedVertex{point[0][s], point[1][s],
                                exact::FloorAlong(crossing.edgeStart->z, crossing.edgeEnd->z, crossing.numerator,
                                                  crossing.denominator)};
    };
    record(from, start);
    record(to, end);
    return true;
}

}  // namespace ctr
