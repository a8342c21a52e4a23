// Top-down builder. The binned surface-area heuristic follows Wald, "On fast
// Construction of SAH-based Bounding Volume Hierarchies" (IEEE RT 2007): the
// centroids of a node are dropped into a fixed number of bins per axis and
// only the bin boundaries are tried as split planes, which keeps every level
// linear in the primitive count.

#include "qe/qeLinearGenericBVHBuilder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

#include "qe/qeMemory.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qe {

namespace {

constexpr uint32_t kBinQuantity = 16;
// Cost of visiting one more node, in units of one primitive test.
constexpr float kTraversalCost = 1.0f;
// Past this depth the builder halves by count, so that pathological inputs
// (many equal centroids, non-finite boxes) still give a tree of logarithmic
// depth and the recursive walks over it stay shallow.
constexpr uint32_t kMaxHeuristicDepth = 48;
constexpr uint32_t kNoParent = 0xFFFFFFFFu;
constexpr uint32_t kCancelPollInterval = 256;

// A run of the primitive list with the bounds of its boxes and of their
// centres. Children get their bounds from the parent's bins, so most nodes
// need no pass of their own over their primitives.
struct tRange {
    uint32_t begin = 0;
    uint32_t end = 0;
    qeBBox box;
    qeBBox centroids;
};

// Binning spends most of its time taking minima and maxima of three floats
// at a time, so bins keep their bounds as four-float lanes (the fourth lane
// unused) and take them in one instruction each. The selections are those
// of qeBBox::include: min(value, bound) is value < bound ? value : bound,
// which keeps the bound for a NaN value and for an equal one (-0 and +0),
// exactly as the packed minimum and maximum instructions do.
#if defined(__SSE2__)
typedef __m128 tLanes;
inline tLanes loadLanes(const float* values) { return _mm_loadu_ps(values); }
inline void storeLanes(float* values, tLanes lanes) { _mm_storeu_ps(values, lanes); }
inline tLanes splatLanes(float value) { return _mm_set1_ps(value); }
inline tLanes lowerLanes(tLanes value, tLanes bound) { return _mm_min_ps(value, bound); }
inline tLanes upperLanes(tLanes value, tLanes bound) { return _mm_max_ps(value, bound); }
#else
struct tLanes {
    float v[4];
};
inline tLanes loadLanes(const float* values) {
    tLanes lanes;
    std::memcpy(lanes.v, values, sizeof lanes.v);
    return lanes;
}
inline void storeLanes(float* values, tLanes lanes) { std::memcpy(values, lanes.v, sizeof lanes.v); }
inline tLanes splatLanes(float value) { return tLanes{{value, value, value, value}}; }
inline tLanes lowerLanes(tLanes value, tLanes bound) {
    for (int k = 0; k < 4; ++k) value.v[k] = value.v[k] < bound.v[k] ? value.v[k] : bound.v[k];
    return value;
}
inline tLanes upperLanes(tLanes value, tLanes bound) {
    for (int k = 0; k < 4; ++k) value.v[k] = value.v[k] > bound.v[k] ? value.v[k] : bound.v[k];
    return value;
}
#endif

qeBBox boxOfLanes(tLanes lower, tLanes upper) {
    float low[4], high[4];
    storeLanes(low, lower);
    storeLanes(high, upper);
    return qeBBox(Wm4::Vector3<float>(low[0], low[1], low[2]), Wm4::Vector3<float>(high[0], high[1], high[2]));
}

// A bin's bounds are valid only once it counts a primitive: an empty box
// adds nothing to a union, so empty bins are skipped instead of being
// cleared, and a node clears only the sixteen counts.
struct tBin {
    tLanes lower, upper;                  // of the boxes
    tLanes centroidLower, centroidUpper;  // of their centres
    uint32_t count = 0;

    void makeEmpty() {
        const float inf = std::numeric_limits<float>::infinity();
        lower = centroidLower = splatLanes(inf);
        upper = centroidUpper = splatLanes(-inf);
    }
    // Adds the bounds of a bin (the parts of one binned in pieces).
    void include(const tBin& from) {
        lower = lowerLanes(from.lower, lower);
        upper = upperLanes(from.upper, upper);
        centroidLower = lowerLanes(from.centroidLower, centroidLower);
        centroidUpper = upperLanes(from.centroidUpper, centroidUpper);
    }
    qeBBox box() const { return boxOfLanes(lower, upper); }
    qeBBox centroids() const { return boxOfLanes(centroidLower, centroidUpper); }
};
typedef std::array<tBin, kBinQuantity> tBins;

void clearBins(tBins& bins) {
    for (tBin& bin : bins) bin.count = 0;
}

// Where the centres of a range fall: the widest axis of their bounds, its
// lower end and the factor from a coordinate to a bin.
struct tBinning {
    uint32_t axis = 0;
    float lower = 0.0f;
    float extent = 0.0f;
    float scale = 0.0f;
};

struct tTask {
    tRange range;
    uint32_t parent = kNoParent;
    bool secondChild = false;
    uint32_t depth = 0;
    // Whether the task's bins are filled already: the parent's partition
    // reads every primitive anyway, so binning the children there saves each
    // of them a pass over memory.
    bool binned = false;
};

// A primitive's box and centre travel with its number while the list is
// partitioned, so that every pass over a node reads memory in order.
struct tItem {
    qeBBox box;
    Wm4::Vector3<float> centroid;
    uint32_t primitive;
};

// Bin of a centroid coordinate; NaN and values below the range go to bin 0,
// values at or past its top to the last bin, so no float reaches an integer
// conversion outside its range.
inline uint32_t binOf(float coordinate, float lower, float scale) {
    const float position = (coordinate - lower) * scale;
    if (!(position > 0.0f)) return 0;
    if (position >= static_cast<float>(kBinQuantity)) return kBinQuantity - 1;
    return static_cast<uint32_t>(position);
}

// An item's box minimum, maximum and centre are read as four floats each,
// the fourth being the next field's first (the primitive number for the
// centre), which lands in the unused lane.
static_assert(std::is_standard_layout<tItem>::value && offsetof(tItem, box) == 0 && sizeof(qeBBox) == 24 &&
                  offsetof(tItem, centroid) == 24 && offsetof(tItem, primitive) == 36,
              "four-float loads of an item stay inside it");

inline void addToBin(tBins& bins, const tBinning& binning, const tItem& item) {
    tBin& bin = bins[binOf(item.centroid[binning.axis], binning.lower, binning.scale)];
    if (bin.count++ == 0) bin.makeEmpty();
    const char* const bytes = reinterpret_cast<const char*>(&item);
    const tLanes centroid = loadLanes(reinterpret_cast<const float*>(bytes + offsetof(tItem, centroid)));
    bin.lower = lowerLanes(loadLanes(reinterpret_cast<const float*>(bytes)), bin.lower);
    bin.upper = upperLanes(loadLanes(reinterpret_cast<const float*>(bytes + 12)), bin.upper);
    bin.centroidLower = lowerLanes(centroid, bin.centroidLower);
    bin.centroidUpper = upperLanes(centroid, bin.centroidUpper);
}

bool isFinitePositive(float value) { return value > 0.0f && std::isfinite(value); }

uint32_t widestAxis(const qeBBox& box) {
    uint32_t axis = 0;
    float widest = -1.0f;
    for (uint32_t a = 0; a < 3; ++a) {
        const float extent = box.Max[a] - box.Min[a];
        if (extent > widest) {
            widest = extent;
            axis = a;
        }
    }
    return axis;
}

tBinning makeBinning(const tRange& range) {
    tBinning binning;
    binning.axis = widestAxis(range.centroids);
    binning.lower = range.centroids.Min[binning.axis];
    binning.extent = range.centroids.Max[binning.axis] - binning.lower;
    binning.scale = static_cast<float>(kBinQuantity) / binning.extent;
    return binning;
}

// Splits one task's range. It owns no state but the item list, so tasks
// over disjoint ranges can be split on different threads.
class tSplitter {
public:
    tSplitter(tItem* items, uint32_t maxLeafSize, qeLinearGenericBVHBuilder::SplitMethod method)
        : m_items(items), m_maxLeafSize(std::max<uint32_t>(1, maxLeafSize)), m_method(method) {}

    tRange boundRange(uint32_t begin, uint32_t end) const {
        tRange range;
        range.begin = begin;
        range.end = end;
        for (uint32_t k = begin; k < end; ++k) {
            range.box.include(m_items[k].box);
            range.centroids.include(m_items[k].centroid);
        }
        return range;
    }

    // Whether a task with this range and depth bins its centres, and how.
    bool usesBins(const tRange& range, uint32_t depth, tBinning& binning) const {
        if (range.end - range.begin <= 1) return false;
        if (m_method != qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH || depth >= kMaxHeuristicDepth ||
            !isFinitePositive(range.box.halfArea()))
            return false;
        binning = makeBinning(range);
        return isFinitePositive(binning.extent);
    }

    void binItems(uint32_t begin, uint32_t end, const tBinning& binning, tBins& bins) const {
        clearBins(bins);
        for (uint32_t k = begin; k < end; ++k) addToBin(bins, binning, m_items[k]);
    }

    // Splits the task's range in two, partitioning the primitive list, or
    // returns false when the node stays a leaf. bins are the task's own
    // (filled when task.binned); on return they hold the second child's,
    // and firstBins the first child's. Sets the children's ranges and binned
    // flags only.
    bool split(const tTask& task, tBins& bins, tBins& firstBins, tTask& first, tTask& second, uint32_t& axis) const {
        const tRange& range = task.range;
        const uint32_t count = range.end - range.begin;
        if (count <= 1) return false;
        const bool mustSplit = count > m_maxLeafSize;
        tBinning binning;
        if (!usesBins(range, task.depth, binning)) {
            axis = widestAxis(range.centroids);
            if (!mustSplit) return false;
            medianSplit(range, axis, first, second);
            return true;
        }
        axis = binning.axis;

        // Bin the centres along the widest axis (unless the parent did) and
        // sweep the bin borders.
        if (!task.binned) binItems(range.begin, range.end, binning, bins);
        // Only the borders after non-empty bins are tried: past an empty bin
        // both sides, and so the cost, are the same as at the border before
        // it, and a repeated cost never beats the first. An empty bin adds
        // nothing to a union either, so small nodes sweep a few bins only.
        uint32_t used[kBinQuantity];
        uint32_t usedQuantity = 0;
        for (uint32_t b = 0; b < kBinQuantity; ++b)
            if (bins[b].count) used[usedQuantity++] = b;
        // rightCost[i]: area times count of the used bins after used[i].
        float rightCost[kBinQuantity];
        qeBBox rightBox;
        uint32_t rightCount = 0;
        for (uint32_t i = usedQuantity - 1; i > 0; --i) {
            rightBox.include(bins[used[i]].box());
            rightCount += bins[used[i]].count;
            rightCost[i - 1] = rightBox.halfArea() * static_cast<float>(rightCount);
        }
        qeBBox leftBox;
        uint32_t leftCount = 0;
        bool found = false;
        uint32_t lastLeftBin = 0;
        float bestCost = 0.0f;
        for (uint32_t i = 0; i + 1 < usedQuantity; ++i) {
            leftBox.include(bins[used[i]].box());
            leftCount += bins[used[i]].count;
            const float cost = kTraversalCost + (leftBox.halfArea() * static_cast<float>(leftCount) + rightCost[i]) /
                                                    range.box.halfArea();
            if (!found || cost < bestCost) {
                found = true;
                lastLeftBin = used[i];
                bestCost = cost;
            }
        }
        if (!found || (!mustSplit && !(bestCost < static_cast<float>(count)))) {
            if (!mustSplit) return false;
            medianSplit(range, axis, first, second);
            return true;
        }

        tRange& left = first.range;
        tRange& right = second.range;
        left = tRange();
        right = tRange();
        uint32_t firstCount = 0;
        for (uint32_t b = 0; b < kBinQuantity; ++b) {
            if (!bins[b].count) continue;
            tRange& side = b <= lastLeftBin ? left : right;
            side.box.include(bins[b].box());
            side.centroids.include(bins[b].centroids());
            if (b <= lastLeftBin) firstCount += bins[b].count;
        }
        // Counts and bounds of both sides are known before the partition, so
        // it can bin them for their own splits as it goes. The parent's bins
        // are spent: they now take the second child's.
        left.begin = range.begin;
        left.end = right.begin = range.begin + firstCount;
        right.end = range.end;
        const uint32_t depth = task.depth + 1;
        tBinning leftBinning, rightBinning;
        first.binned = usesBins(left, depth, leftBinning);
        second.binned = usesBins(right, depth, rightBinning);
        clearBins(firstBins);
        clearBins(bins);
        partition(range, binning, lastLeftBin, first.binned ? &leftBinning : nullptr, firstBins,
                  second.binned ? &rightBinning : nullptr, bins);
        return true;
    }

private:
    // The two-sided exchange partition (the classic one of the C++ library:
    // scan from the front for an item that belongs right, from the back for
    // one that belongs left, swap them), so the primitive order is fixed by
    // this code alone. Each item is classified exactly once and is binned
    // into its side's bins then, when that side bins.
    void partition(const tRange& range, const tBinning& binning, uint32_t lastLeftBin, const tBinning* leftBinning,
                   tBins& leftBins, const tBinning* rightBinning, tBins& rightBins) const {
        const auto isLeft = [&](const tItem& item) {
            return binOf(item.centroid[binning.axis], binning.lower, binning.scale) <= lastLeftBin;
        };
        tItem* first = m_items + range.begin;
        tItem* last = m_items + range.end;
        while (true) {
            while (true) {
                if (first == last) return;
                if (isLeft(*first)) {
                    if (leftBinning) addToBin(leftBins, *leftBinning, *first);
                    ++first;
                } else {
                    if (rightBinning) addToBin(rightBins, *rightBinning, *first);
                    break;
                }
            }
            --last;
            while (true) {
                if (first == last) return;
                if (!isLeft(*last)) {
                    if (rightBinning) addToBin(rightBins, *rightBinning, *last);
                    --last;
                } else {
                    if (leftBinning) addToBin(leftBins, *leftBinning, *last);
                    break;
                }
            }
            std::swap(*first, *last);
            ++first;
        }
    }

    void medianSplit(const tRange& range, uint32_t axis, tTask& first, tTask& second) const {
        const uint32_t middle = range.begin + (range.end - range.begin) / 2;
        // NaN centroids compare as neither less nor greater; the comparator
        // is kept a strict weak order by ranking them after every number.
        std::nth_element(m_items + range.begin, m_items + middle, m_items + range.end,
                         [axis](const tItem& a, const tItem& b) {
                             const float ca = a.centroid[axis];
                             const float cb = b.centroid[axis];
                             if (std::isnan(ca)) return false;
                             if (std::isnan(cb)) return true;
                             return ca < cb;
                         });
        first.range = boundRange(range.begin, middle);
        second.range = boundRange(middle, range.end);
        first.binned = second.binned = false;
    }

    tItem* m_items;
    uint32_t m_maxLeafSize;
    qeLinearGenericBVHBuilder::SplitMethod m_method;
};

// Builds the subtree of root depth first into nodes (empty on entry), which
// numbers it from 0: a node, then its first child's subtree, then its second
// child's. rootBins are the root's bins when root.binned. Leaves name
// positions of the whole item list. False when cancelled.
bool buildDepthFirst(const tSplitter& splitter, const tTask& root, const tBins* rootBins, std::vector<qeBVHNode>& nodes,
                     const qeCancelInterfaceReadOnly* cancel) {
    // The stack holds at most two tasks per level; the bins of the task in
    // stack slot i live in bins[i].
    std::vector<tTask> stack;
    stack.reserve(2 * (kMaxHeuristicDepth + 40));
    std::vector<tBins> bins(2);
    if (root.binned && rootBins) bins[0] = *rootBins;
    stack.push_back(root);
    stack.back().parent = kNoParent;
    uint32_t sincePoll = 0;
    while (!stack.empty()) {
        if (cancel && ++sincePoll == kCancelPollInterval) {
            sincePoll = 0;
            if (cancel->isCancelled()) return false;
        }
        const size_t slot = stack.size() - 1;
        const tTask task = stack.back();
        stack.pop_back();
        const uint32_t index = static_cast<uint32_t>(nodes.size());
        nodes.emplace_back();
        if (task.parent != kNoParent) {
            if (task.secondChild)
                nodes[task.parent].word1 = index;
            else
                nodes[task.parent].word0 |= index;
        }
        nodes[index].box = task.range.box;

        tTask first, second;
        uint32_t axis = 0;
        if (bins.size() < slot + 2) bins.resize(slot + 2);
        if (!splitter.split(task, bins[slot], bins[slot + 1], first, second, axis)) {
            nodes[index].word0 = qeBVHNode::kLeafFlag | task.range.begin;
            nodes[index].word1 = task.range.end - task.range.begin;
            continue;
        }
        nodes[index].word0 = axis << 30;
        first.parent = second.parent = index;
        first.secondChild = false;
        second.secondChild = true;
        first.depth = second.depth = task.depth + 1;
        // Second child pushed first (into the parent's slot) so that the
        // first child directly follows its parent in the array.
        stack.push_back(second);
        stack.push_back(first);
    }
    return true;
}

// The item list, allocated once and written once per item (no fill first).
struct tItemStore {
    static_assert(std::is_trivially_destructible<tItem>::value, "items are dropped without destruction");
    explicit tItemStore(uint32_t quantity) : items(std::max<size_t>(quantity, 1)) {}
    qeLargeArray<tItem> items;
};

// Work is cut into pieces that depend on the primitive count alone.
constexpr uint32_t kItemChunk = 1u << 16;
// With a parallel hook, no smaller input is worth the bookkeeping.
constexpr uint32_t kMinParallelPrimitives = 1u << 13;
// Ranges up to this share of the primitives, or this size, become subtrees
// built by one thread; larger ones are split by the waves above them.
constexpr uint32_t kSubtreeShare = 128;
constexpr uint32_t kMinSubtreeSize = 1u << 11;
constexpr uint32_t kSubtreeFlag = 0x80000000u;

class tBuilder {
public:
    tBuilder(const qeBVHPrimitiveContainer& container, qeGenericBVH& bvh, uint32_t maxLeafSize,
             qeLinearGenericBVHBuilder::SplitMethod method, const qeLinearGenericBVHBuilder::ParallelFor& parallelFor)
        : m_container(container),
          m_nodes(bvh.getNodes()),
          m_primitives(bvh.getPrimitives()),
          m_store(container.size()),
          m_splitter(m_store.items.get(), maxLeafSize, method),
          m_parallelFor(container.size() >= kMinParallelPrimitives ? parallelFor
                                                                   : qeLinearGenericBVHBuilder::ParallelFor()) {}

    bool run(const qeCancelInterfaceReadOnly* cancel) {
        const uint32_t quantity = m_container.size();
        tItem* items = m_store.items.get();
        const size_t chunks = (static_cast<size_t>(quantity) + kItemChunk - 1) / kItemChunk;
        forEach(chunks, [&](size_t chunk) {
            const uint32_t begin = static_cast<uint32_t>(chunk) * kItemChunk;
            const uint32_t end = std::min(quantity, begin + kItemChunk);
            for (uint32_t i = begin; i < end; ++i)
                new (items + i) tItem{m_container.getBBox(i), m_container.getCentroid(i), i};
        });

        tTask root;
        root.parent = kNoParent;
        root.secondChild = false;
        root.depth = 0;
        root.binned = false;
        bool built;
        if (!m_parallelFor) {
            root.range = m_splitter.boundRange(0, quantity);
            // The node list gets the bound of a binary tree whose leaves hold
            // at least one primitive, so that it never moves while it grows.
            // Untouched reserve costs address space only.
            qeReserveLarge(m_nodes, 2 * static_cast<size_t>(quantity) - 1);
            built = buildDepthFirst(m_splitter, root, nullptr, m_nodes, cancel);
        } else {
            built = buildInParallel(root, cancel);
        }
        if (!built || (cancel && cancel->isCancelled())) return false;
        qeReserveLarge(m_primitives, quantity);
        m_primitives.resize(quantity);
        forEach(chunks, [&](size_t chunk) {
            const uint32_t begin = static_cast<uint32_t>(chunk) * kItemChunk;
            const uint32_t end = std::min(quantity, begin + kItemChunk);
            for (uint32_t i = begin; i < end; ++i) m_primitives[i] = items[i].primitive;
        });
        return true;
    }

private:
    template <typename Task>
    void forEach(size_t count, const Task& task) {
        if (!m_parallelFor || count < 2) {
            for (size_t i = 0; i < count; ++i) task(i);
            return;
        }
        m_parallelFor(count, task);
    }

    // A task waiting for a wave, with its bins and the place its node hangs
    // from: a node of the top tree and which of its children it is.
    struct tPending {
        tTask task;
        tBins bins;
        uint32_t parent = kNoParent;
        uint32_t childSlot = 0;
        bool valid = false;
    };
    // A node split by the waves; a child is the index of another such node
    // or, flagged, of a subtree.
    struct tTopNode {
        qeBVHNode node;
        uint32_t child[2] = {0, 0};
        uint32_t size = 1;
        uint32_t index = 0;
    };
    struct tSubtree {
        tTask task;
        tBins bins;
        std::vector<qeBVHNode> nodes;
        uint32_t index = 0;
        bool built = false;
    };

    // The result of the depth-first build, found in pieces: the top of the
    // tree is split in waves, every range of a wave split on its own thread,
    // until the ranges are small enough to be subtrees, which are then built
    // depth first, each on one thread. Each split is that of the depth-first
    // build (same range, same bins, same partition code), so only the node
    // numbers differ: the top nodes and subtrees are finally laid out in the
    // depth-first order, whose subtrees are contiguous runs of numbers.
    bool buildInParallel(tTask root, const qeCancelInterfaceReadOnly* cancel) {
        const uint32_t quantity = m_container.size();
        const uint32_t chunks = (quantity + kItemChunk - 1) / kItemChunk;
        // Boxes and bins over the chunks, joined in chunk order: a union
        // keeps the first of equal bounds (as between -0 and +0) either way,
        // so the joined result is bit for bit the one-pass result.
        std::vector<tRange> partial(chunks);
        forEach(chunks, [&](size_t chunk) {
            const uint32_t begin = static_cast<uint32_t>(chunk) * kItemChunk;
            partial[chunk] = m_splitter.boundRange(begin, std::min(quantity, begin + kItemChunk));
        });
        root.range.begin = 0;
        root.range.end = quantity;
        for (const tRange& range : partial) {
            root.range.box.include(range.box);
            root.range.centroids.include(range.centroids);
        }
        std::vector<tPending> wave(1);
        wave[0].task = root;
        wave[0].valid = true;
        tBinning binning;
        if (m_splitter.usesBins(root.range, 0, binning)) {
            std::vector<tBins> chunkBins(chunks);
            forEach(chunks, [&](size_t chunk) {
                const uint32_t begin = static_cast<uint32_t>(chunk) * kItemChunk;
                m_splitter.binItems(begin, std::min(quantity, begin + kItemChunk), binning, chunkBins[chunk]);
            });
            tBins& bins = wave[0].bins;
            clearBins(bins);
            for (const tBins& part : chunkBins)
                for (uint32_t b = 0; b < kBinQuantity; ++b) {
                    if (!part[b].count) continue;
                    if (bins[b].count == 0) bins[b].makeEmpty();
                    bins[b].count += part[b].count;
                    bins[b].include(part[b]);
                }
            wave[0].task.binned = true;
        }

        const uint32_t subtreeSize = std::max(kMinSubtreeSize, quantity / kSubtreeShare);
        std::vector<tTopNode> top;
        std::vector<tSubtree> subtrees;
        std::vector<tPending> next;
        std::vector<uint32_t> toSplit;
        while (!wave.empty()) {
            if (cancel && cancel->isCancelled()) return false;
            toSplit.clear();
            for (tPending& pending : wave) {
                if (!pending.valid) continue;
                uint32_t reference;
                if (pending.task.range.end - pending.task.range.begin > subtreeSize) {
                    reference = static_cast<uint32_t>(top.size());
                    top.emplace_back();
                    top.back().node.box = pending.task.range.box;
                    toSplit.push_back(static_cast<uint32_t>(&pending - wave.data()));
                } else {
                    reference = kSubtreeFlag | static_cast<uint32_t>(subtrees.size());
                    subtrees.emplace_back();
                    subtrees.back().task = pending.task;
                    subtrees.back().bins = pending.bins;
                }
                if (pending.parent != kNoParent) top[pending.parent].child[pending.childSlot] = reference;
                pending.parent = reference;  // from here on: its own reference
            }
            next.assign(2 * toSplit.size(), tPending());
            forEach(toSplit.size(), [&](size_t k) {
                tPending& pending = wave[toSplit[k]];
                tTopNode& node = top[pending.parent];
                tPending& first = next[2 * k];
                tPending& second = next[2 * k + 1];
                uint32_t axis = 0;
                if (!m_splitter.split(pending.task, pending.bins, first.bins, first.task, second.task, axis)) {
                    node.node.word0 = qeBVHNode::kLeafFlag | pending.task.range.begin;
                    node.node.word1 = pending.task.range.end - pending.task.range.begin;
                    return;
                }
                node.node.word0 = axis << 30;
                second.bins = pending.bins;
                for (uint32_t side = 0; side < 2; ++side) {
                    tPending& child = side ? second : first;
                    child.task.depth = pending.task.depth + 1;
                    child.parent = pending.parent;
                    child.childSlot = side;
                    child.valid = true;
                }
            });
            wave.swap(next);
        }

        // The largest subtrees first, so that no thread is left with a big
        // one at the end.
        std::vector<uint32_t> order(subtrees.size());
        for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
        std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
            return subtrees[a].task.range.end - subtrees[a].task.range.begin >
                   subtrees[b].task.range.end - subtrees[b].task.range.begin;
        });
        forEach(order.size(), [&](size_t k) {
            tSubtree& subtree = subtrees[order[k]];
            subtree.nodes.reserve(2 * static_cast<size_t>(subtree.task.range.end - subtree.task.range.begin) - 1);
            subtree.built = buildDepthFirst(m_splitter, subtree.task, &subtree.bins, subtree.nodes, cancel);
        });
        for (const tSubtree& subtree : subtrees)
            if (!subtree.built) return false;

        // Depth-first numbers: sizes from the leaves up (every top node was
        // made after its parent), then numbers from the root down.
        const auto sizeOf = [&](uint32_t reference) {
            return reference & kSubtreeFlag ? static_cast<uint32_t>(subtrees[reference & ~kSubtreeFlag].nodes.size())
                                            : top[reference].size;
        };
        const auto setIndex = [&](uint32_t reference, uint32_t index) {
            if (reference & kSubtreeFlag)
                subtrees[reference & ~kSubtreeFlag].index = index;
            else
                top[reference].index = index;
        };
        for (size_t i = top.size(); i-- > 0;)
            if (!top[i].node.isLeaf()) top[i].size = 1 + sizeOf(top[i].child[0]) + sizeOf(top[i].child[1]);
        const uint32_t rootReference = top.empty() ? kSubtreeFlag : 0u;
        setIndex(rootReference, 0);
        for (tTopNode& node : top) {
            if (node.node.isLeaf()) continue;
            setIndex(node.child[0], node.index + 1);
            setIndex(node.child[1], node.index + 1 + sizeOf(node.child[0]));
        }
        const auto indexOf = [&](uint32_t reference) {
            return reference & kSubtreeFlag ? subtrees[reference & ~kSubtreeFlag].index : top[reference].index;
        };

        qeReserveLarge(m_nodes, sizeOf(rootReference));
        m_nodes.resize(sizeOf(rootReference));
        for (tTopNode& node : top) {
            if (!node.node.isLeaf()) {
                node.node.word0 |= indexOf(node.child[0]);
                node.node.word1 = indexOf(node.child[1]);
            }
            m_nodes[node.index] = node.node;
        }
        forEach(subtrees.size(), [&](size_t s) {
            const tSubtree& subtree = subtrees[s];
            const uint32_t offset = subtree.index;
            qeBVHNode* out = m_nodes.data() + offset;
            for (const qeBVHNode& node : subtree.nodes) {
                *out = node;
                if (!node.isLeaf()) {
                    out->word0 =
                        (node.word0 & ~qeBVHNode::kIndexMask) | ((node.word0 & qeBVHNode::kIndexMask) + offset);
                    out->word1 = node.word1 + offset;
                }
                ++out;
            }
        });
        return true;
    }

    const qeBVHPrimitiveContainer& m_container;
    std::vector<qeBVHNode>& m_nodes;
    std::vector<uint32_t>& m_primitives;
    tItemStore m_store;
    tSplitter m_splitter;
    qeLinearGenericBVHBuilder::ParallelFor m_parallelFor;
};

}  // namespace

bool qeLinearGenericBVHBuilder::build(const qeBVHPrimitiveContainer& container, qeGenericBVH& bvh,
                                      const qeCancelInterfaceReadOnly* cancel, uint32_t maxLeafSize, SplitMethod method,
                                      const ParallelFor& parallelFor) {
    bvh.clear();
    if (container.size() == 0 || container.size() > kMaxPrimitives) return false;
    tBuilder builder(container, bvh, maxLeafSize, method, parallelFor);
    if (!builder.run(cancel)) {
        bvh.clear();
        return false;
    }
    return true;
}

}  // namespace qe
