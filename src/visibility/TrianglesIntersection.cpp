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

using tPointOnEdge = TrianglesIntersection::tInternal::tPointOnEdge;

bool straddles(const int64_t (&distance)[3]) {
    const bool below = distance[0] < 0 || distance[1] < 0 || distance[2] < 0;
    const bool above = distance[0] > 0 || distance[1] > 0 || distance[2] > 0;
    return below && above;
}

// The two points where the boundary of a triangle that straddles a plane
// crosses it. An edge starting on the plane is skipped: its start is the end
// (t = 1) of the edge before it, so each crossing is produced once.
void findCrossings(const BakedVertex (&corner)[3], const int64_t (&distance)[3], tPointOnEdge* out) {
    int found = 0;
    for (int k = 0; k < 3 && found < 2; ++k) {
        const int next = (k + 1) % 3;
        const int64_t da = distance[k];
        const int64_t db = distance[next];
        if (da == 0 || (db != 0 && (db < 0) == (da < 0))) continue;
        tPointOnEdge& crossing = out[found++];
        crossing.edgeStart = corner[k];
        crossing.edgeEnd = corner[next];
        if (da - db >= 1) {
            crossing.numerator = da;
            crossing.denominator = da - db;
        } else {
            crossing.numerator = -da;
            crossing.denominator = db - da;
        }
        const BakedVertex& a = crossing.edgeStart;
        const BakedVertex& b = crossing.edgeEnd;
        crossing.point = exact::FloorAlong(a, b, exact::Fraction{crossing.numerator, crossing.denominator});
    }
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

// Below this many levels of the pairing recursion the work is one task.
constexpr int kTaskDepth = 7;
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
    const auto testEntries = [&](const tBlockEntry& x, const tBlockEntry& y, std::vector<tHit>& out) {
        if (x.triangle == y.triangle) return;
        const bool xFirst = x.triangle < y.triangle;
        const tBlockEntry& first = xFirst ? x : y;
        const tBlockEntry& partner = xFirst ? y : x;
        if (!nodes[partner.leaf].box.overlaps(first.box)) return;
        tHit hit{first.triangle, rank[partner.triangle], {}};
        if (testTrianglePair(first.data, partner.data, hit.edge.first, hit.edge.second)) out.push_back(hit);
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
    // Blocks of one walk, kept while the next pair names the same node: the
    // walk goes depth first, so one side of the pair repeats for a while.
    struct tBlocks {
        std::vector<tBlockEntry> a, b;
        uint32_t nodeA = ~0u, nodeB = ~0u;
    };
    const auto testBlocks = [&](const tNodePair& pair, tBlocks& blocks, std::vector<tHit>& out) {
        if (blocks.nodeA != pair.a) {
            if (blocks.nodeB == pair.a) {
                std::swap(blocks.a, blocks.b);
                std::swap(blocks.nodeA, blocks.nodeB);
            } else {
                loadBlock(pair.a, blocks.a);
                blocks.nodeA = pair.a;
            }
        }
        const std::vector<tBlockEntry>& blockA = blocks.a;
        if (pair.a == pair.b) {
            for (size_t k = 0; k < blockA.size(); ++k)
                for (size_t m = k + 1; m < blockA.size(); ++m) testEntries(blockA[k], blockA[m], out);
            return;
        }
        if (blocks.nodeB != pair.b) {
            loadBlock(pair.b, blocks.b);
            blocks.nodeB = pair.b;
        }
        for (const tBlockEntry& x : blockA)
            for (const tBlockEntry& y : blocks.b) testEntries(x, y, out);
    };
    const auto walk = [&](const tNodePair& start, std::vector<tHit>& out) {
        std::vector<tNodePair> stack{start};
        tBlocks blocks;
        tNodePair parts[3];
        int partCount = 0;
        while (!stack.empty()) {
            const tNodePair pair = stack.back();
            stack.pop_back();
            if (!split(pair, parts, partCount))
                testBlocks(pair, blocks, out);
            else
                stack.insert(stack.end(), parts, parts + partCount);
        }
    };

    // The first levels become the tasks; how they are cut depends on the
    // tree alone, and the hits are sorted afterwards in any case.
    std::vector<tNodePair> tasks{{0u, 0u}};
    for (int level = 0; level < kTaskDepth; ++level) {
        std::vector<tNodePair> deeper;
        tNodePair parts[3];
        int partCount = 0;
        for (const tNodePair& pair : tasks) {
            if (split(pair, parts, partCount))
                deeper.insert(deeper.end(), parts, parts + partCount);
            else
                deeper.push_back(pair);
        }
        tasks.swap(deeper);
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
    // The crossing points cost 128-bit floors: only pairs that pass both
    // plane tests get them. Slots 0 and 1 hold the first triangle's
    // crossings, 2 and 3 the other's.
    tPointOnEdge slot[4];
    findCrossings(first.vertices, distance, slot);
    findCrossings(other.vertices, otherDistance, slot + 2);

    // Both crossing segments lie on the line where the planes meet; they are
    // compared along the screen axis on which the four points spread most.
    int64_t spread[2];
    for (int axis = 0; axis < 2; ++axis) {
        const auto coordinate = [&](int s) { return axis == 0 ? slot[s].point.x : slot[s].point.y; };
        int32_t low = coordinate(0), high = coordinate(0);
        for (int s = 1; s < 4; ++s) {
            low = std::min(low, coordinate(s));
            high = std::max(high, coordinate(s));
        }
        spread[axis] = int64_t{high} - low;
    }
    if (spread[0] == 0 && spread[1] == 0) return false;
    const bool alongX = spread[0] > spread[1];
    const auto coordinate = [&](int s) { return alongX ? slot[s].point.x : slot[s].point.y; };

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
    start = slot[from];
    end = slot[to];
    return true;
}

}  // namespace ctr
