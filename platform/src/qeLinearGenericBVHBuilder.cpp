// Top-down builder. The binned surface-area heuristic follows Wald, "On fast
// Construction of SAH-based Bounding Volume Hierarchies" (IEEE RT 2007): the
// centroids of a node are dropped into a fixed number of bins per axis and
// only the bin boundaries are tried as split planes, which keeps every level
// linear in the primitive count.

#include "qe/qeLinearGenericBVHBuilder.h"

#include <algorithm>
#include <array>
#include <cmath>

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

// A bin's boxes are valid only once it counts a primitive: an empty box
// adds nothing to a union, so empty bins are skipped instead of being
// cleared, and a node clears only the sixteen counts.
struct tBin {
    qeBBox box;
    qeBBox centroids;
    uint32_t count = 0;
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
    uint32_t parent;
    bool secondChild;
    uint32_t depth;
    // Whether the bins of the task's stack slot are filled already: the
    // parent's partition reads every primitive anyway, so binning the
    // children there saves each of them a pass over memory.
    bool binned;
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

// The minimum and maximum as qeBBox::include takes them (a NaN coordinate
// never replaces a bound), with every input read before anything is
// written: the compiler cannot tell that a bin and an item never overlap,
// and would otherwise reload after each store.
inline void includeInto(float* lower, float* upper, const float* low, const float* high) {
    const float l0 = low[0], l1 = low[1], l2 = low[2], h0 = high[0], h1 = high[1], h2 = high[2];
    const float m0 = lower[0], m1 = lower[1], m2 = lower[2], n0 = upper[0], n1 = upper[1], n2 = upper[2];
    lower[0] = l0 < m0 ? l0 : m0;
    lower[1] = l1 < m1 ? l1 : m1;
    lower[2] = l2 < m2 ? l2 : m2;
    upper[0] = h0 > n0 ? h0 : n0;
    upper[1] = h1 > n1 ? h1 : n1;
    upper[2] = h2 > n2 ? h2 : n2;
}

inline void addToBin(tBins& bins, const tBinning& binning, const tItem& item) {
    tBin& bin = bins[binOf(item.centroid[binning.axis], binning.lower, binning.scale)];
    if (bin.count++ == 0) {
        bin.box.makeEmpty();
        bin.centroids.makeEmpty();
    }
    includeInto(&bin.box.Min[0], &bin.box.Max[0], static_cast<const float*>(item.box.Min),
                static_cast<const float*>(item.box.Max));
    includeInto(&bin.centroids.Min[0], &bin.centroids.Max[0], static_cast<const float*>(item.centroid),
                static_cast<const float*>(item.centroid));
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

class tBuilder {
public:
    tBuilder(const qeBVHPrimitiveContainer& container, qeGenericBVH& bvh, uint32_t maxLeafSize,
             qeLinearGenericBVHBuilder::SplitMethod method)
        : m_container(container),
          m_nodes(bvh.getNodes()),
          m_primitives(bvh.getPrimitives()),
          m_maxLeafSize(std::max<uint32_t>(1, maxLeafSize)),
          m_method(method) {}

    bool run(const qeCancelInterfaceReadOnly* cancel) {
        const uint32_t quantity = m_container.size();
        // Every list is allocated once: the items are written once each (no
        // zero fill first), and the node list gets the bound of a binary tree
        // whose leaves hold at least one primitive, so that it never moves
        // while it grows. Untouched reserve costs address space only.
        m_items.reserve(quantity);
        for (uint32_t i = 0; i < quantity; ++i)
            m_items.push_back(tItem{m_container.getBBox(i), m_container.getCentroid(i), i});
        m_nodes.reserve(2 * static_cast<size_t>(quantity) - 1);

        // Depth first, so the stack holds at most two tasks per level. The
        // bins of the task in stack slot i live in m_bins[i].
        std::vector<tTask> stack;
        stack.reserve(2 * (kMaxHeuristicDepth + 40));
        stack.push_back({boundRange(0, quantity), kNoParent, false, 0, false});
        uint32_t sincePoll = 0;
        while (!stack.empty()) {
            if (cancel && ++sincePoll == kCancelPollInterval) {
                sincePoll = 0;
                if (cancel->isCancelled()) return false;
            }
            const size_t slot = stack.size() - 1;
            const tTask task = stack.back();
            stack.pop_back();
            const uint32_t index = static_cast<uint32_t>(m_nodes.size());
            m_nodes.emplace_back();
            if (task.parent != kNoParent) {
                if (task.secondChild)
                    m_nodes[task.parent].word1 = index;
                else
                    m_nodes[task.parent].word0 |= index;
            }
            m_nodes[index].box = task.range.box;

            tTask first, second;
            uint32_t axis = 0;
            if (!split(task, slot, first, second, axis)) {
                m_nodes[index].word0 = qeBVHNode::kLeafFlag | task.range.begin;
                m_nodes[index].word1 = task.range.end - task.range.begin;
                continue;
            }
            m_nodes[index].word0 = axis << 30;
            first.parent = second.parent = index;
            first.secondChild = false;
            second.secondChild = true;
            first.depth = second.depth = task.depth + 1;
            // Second child pushed first (into the parent's slot) so that the
            // first child directly follows its parent in the array.
            stack.push_back(second);
            stack.push_back(first);
        }
        if (cancel && cancel->isCancelled()) return false;
        m_primitives.resize(quantity);
        for (uint32_t i = 0; i < quantity; ++i) m_primitives[i] = m_items[i].primitive;
        return true;
    }

private:
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

    tBins& binsOfSlot(size_t slot) {
        if (m_bins.size() <= slot) m_bins.resize(slot + 1);
        return m_bins[slot];
    }

    // Splits the task's range in two, partitioning the primitive list, or
    // returns false when the node stays a leaf. The children's ranges and
    // bins are those of the stack slots slot (second) and slot + 1 (first).
    bool split(const tTask& task, size_t slot, tTask& first, tTask& second, uint32_t& axis) {
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
        binsOfSlot(slot + 1);
        tBins& bins = binsOfSlot(slot);
        if (!task.binned) {
            clearBins(bins);
            for (uint32_t k = range.begin; k < range.end; ++k) addToBin(bins, binning, m_items[k]);
        }
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
            rightBox.include(bins[used[i]].box);
            rightCount += bins[used[i]].count;
            rightCost[i - 1] = rightBox.halfArea() * static_cast<float>(rightCount);
        }
        qeBBox leftBox;
        uint32_t leftCount = 0;
        bool found = false;
        uint32_t lastLeftBin = 0;
        float bestCost = 0.0f;
        for (uint32_t i = 0; i + 1 < usedQuantity; ++i) {
            leftBox.include(bins[used[i]].box);
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
            side.box.include(bins[b].box);
            side.centroids.include(bins[b].centroids);
            if (b <= lastLeftBin) firstCount += bins[b].count;
        }
        // Counts and bounds of both sides are known before the partition, so
        // it can bin them for their own splits as it goes. The parent's bins
        // are spent: its slot now holds the second child's.
        left.begin = range.begin;
        left.end = right.begin = range.begin + firstCount;
        right.end = range.end;
        const uint32_t depth = task.depth + 1;
        tBinning leftBinning, rightBinning;
        first.binned = usesBins(left, depth, leftBinning);
        second.binned = usesBins(right, depth, rightBinning);
        tBins& leftBins = m_bins[slot + 1];
        tBins& rightBins = m_bins[slot];
        clearBins(leftBins);
        clearBins(rightBins);
        partition(range, binning, lastLeftBin, first.binned ? &leftBinning : nullptr, leftBins,
                  second.binned ? &rightBinning : nullptr, rightBins);
        return true;
    }

    // The two-sided exchange partition (the classic one of the C++ library:
    // scan from the front for an item that belongs right, from the back for
    // one that belongs left, swap them), so the primitive order is fixed by
    // this code alone. Each item is classified exactly once and is binned
    // into its side's bins then, when that side bins.
    void partition(const tRange& range, const tBinning& binning, uint32_t lastLeftBin, const tBinning* leftBinning,
                   tBins& leftBins, const tBinning* rightBinning, tBins& rightBins) {
        const auto isLeft = [&](const tItem& item) {
            return binOf(item.centroid[binning.axis], binning.lower, binning.scale) <= lastLeftBin;
        };
        tItem* first = m_items.data() + range.begin;
        tItem* last = m_items.data() + range.end;
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

    void medianSplit(const tRange& range, uint32_t axis, tTask& first, tTask& second) {
        const uint32_t middle = range.begin + (range.end - range.begin) / 2;
        // NaN centroids compare as neither less nor greater; the comparator
        // is kept a strict weak order by ranking them after every number.
        std::nth_element(m_items.data() + range.begin, m_items.data() + middle, m_items.data() + range.end,
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

    const qeBVHPrimitiveContainer& m_container;
    std::vector<qeBVHNode>& m_nodes;
    std::vector<uint32_t>& m_primitives;
    std::vector<tItem> m_items;
    std::vector<tBins> m_bins;
    uint32_t m_maxLeafSize;
    qeLinearGenericBVHBuilder::SplitMethod m_method;
};

}  // namespace

bool qeLinearGenericBVHBuilder::build(const qeBVHPrimitiveContainer& container, qeGenericBVH& bvh,
                                      const qeCancelInterfaceReadOnly* cancel, uint32_t maxLeafSize,
                                      SplitMethod method) {
    bvh.clear();
    if (container.size() == 0 || container.size() > kMaxPrimitives) return false;
    tBuilder builder(container, bvh, maxLeafSize, method);
    if (!builder.run(cancel)) {
        bvh.clear();
        return false;
    }
    return true;
}

}  // namespace qe
