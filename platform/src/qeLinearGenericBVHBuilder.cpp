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

struct tTask {
    tRange range;
    uint32_t parent;
    bool secondChild;
    uint32_t depth;
};

// A primitive's box and centre travel with its number while the list is
// partitioned, so that every pass over a node reads memory in order.
struct tItem {
    qeBBox box;
    Wm4::Vector3<float> centroid;
    uint32_t primitive;
};

struct tBin {
    qeBBox box;
    qeBBox centroids;
    uint32_t count = 0;
};

// Bin of a centroid coordinate; NaN and values below the range go to bin 0,
// values at or past its top to the last bin, so no float reaches an integer
// conversion outside its range.
uint32_t binOf(float coordinate, float lower, float scale) {
    const float position = (coordinate - lower) * scale;
    if (!(position > 0.0f)) return 0;
    if (position >= static_cast<float>(kBinQuantity)) return kBinQuantity - 1;
    return static_cast<uint32_t>(position);
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
        m_items.resize(quantity);
        for (uint32_t i = 0; i < quantity; ++i)
            m_items[i] = tItem{m_container.getBBox(i), m_container.getCentroid(i), i};

        std::vector<tTask> stack;
        stack.push_back({boundRange(0, quantity), kNoParent, false, 0});
        uint32_t sincePoll = 0;
        while (!stack.empty()) {
            if (cancel && ++sincePoll == kCancelPollInterval) {
                sincePoll = 0;
                if (cancel->isCancelled()) return false;
            }
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

            tRange first, second;
            uint32_t axis = 0;
            if (!split(task, first, second, axis)) {
                m_nodes[index].word0 = qeBVHNode::kLeafFlag | task.range.begin;
                m_nodes[index].word1 = task.range.end - task.range.begin;
                continue;
            }
            m_nodes[index].word0 = axis << 30;
            // Second child pushed first so that the first child directly
            // follows its parent in the array.
            stack.push_back({second, index, true, task.depth + 1});
            stack.push_back({first, index, false, task.depth + 1});
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

    // Splits the task's range in two, partitioning the primitive list, or
    // returns false when the node stays a leaf.
    bool split(const tTask& task, tRange& first, tRange& second, uint32_t& axis) {
        const tRange& range = task.range;
        const uint32_t count = range.end - range.begin;
        if (count <= 1) return false;
        const bool mustSplit = count > m_maxLeafSize;
        const bool heuristic = m_method == qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH &&
                               task.depth < kMaxHeuristicDepth && isFinitePositive(range.box.halfArea());
        axis = widestAxis(range.centroids);
        const float lower = range.centroids.Min[axis];
        const float extent = range.centroids.Max[axis] - lower;
        if (!heuristic || !isFinitePositive(extent)) {
            if (!mustSplit) return false;
            medianSplit(range, axis, first, second);
            return true;
        }

        // Bin the centres along the widest axis and sweep the bin borders.
        const float scale = static_cast<float>(kBinQuantity) / extent;
        std::array<tBin, kBinQuantity> bins;
        for (uint32_t k = range.begin; k < range.end; ++k) {
            const tItem& item = m_items[k];
            tBin& bin = bins[binOf(item.centroid[axis], lower, scale)];
            ++bin.count;
            bin.box.include(item.box);
            bin.centroids.include(item.centroid);
        }
        // rightCost[b]: area times count of the bins after b.
        std::array<float, kBinQuantity> rightCost{};
        qeBBox rightBox;
        uint32_t rightCount = 0;
        for (uint32_t b = kBinQuantity - 1; b > 0; --b) {
            rightBox.include(bins[b].box);
            rightCount += bins[b].count;
            rightCost[b - 1] = rightBox.halfArea() * static_cast<float>(rightCount);
        }
        qeBBox leftBox;
        uint32_t leftCount = 0;
        bool found = false;
        uint32_t lastLeftBin = 0;
        float bestCost = 0.0f;
        for (uint32_t b = 0; b + 1 < kBinQuantity; ++b) {
            leftBox.include(bins[b].box);
            leftCount += bins[b].count;
            if (leftCount == 0 || leftCount == count) continue;
            const float cost = kTraversalCost + (leftBox.halfArea() * static_cast<float>(leftCount) + rightCost[b]) /
                                                    range.box.halfArea();
            if (!found || cost < bestCost) {
                found = true;
                lastLeftBin = b;
                bestCost = cost;
            }
        }
        if (!found || (!mustSplit && !(bestCost < static_cast<float>(count)))) {
            if (!mustSplit) return false;
            medianSplit(range, axis, first, second);
            return true;
        }

        tItem* begin = m_items.data() + range.begin;
        tItem* middle = std::partition(begin, m_items.data() + range.end, [&](const tItem& item) {
            return binOf(item.centroid[axis], lower, scale) <= lastLeftBin;
        });
        first.begin = range.begin;
        first.end = second.begin = range.begin + static_cast<uint32_t>(middle - begin);
        second.end = range.end;
        for (uint32_t b = 0; b < kBinQuantity; ++b) {
            tRange& side = b <= lastLeftBin ? first : second;
            side.box.include(bins[b].box);
            side.centroids.include(bins[b].centroids);
        }
        return true;
    }

    void medianSplit(const tRange& range, uint32_t axis, tRange& first, tRange& second) {
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
        first = boundRange(range.begin, middle);
        second = boundRange(middle, range.end);
    }

    const qeBVHPrimitiveContainer& m_container;
    std::vector<qeBVHNode>& m_nodes;
    std::vector<uint32_t>& m_primitives;
    std::vector<tItem> m_items;
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
