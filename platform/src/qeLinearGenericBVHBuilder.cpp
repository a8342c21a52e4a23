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

struct tTask {
    uint32_t begin;
    uint32_t end;
    uint32_t parent;
    bool secondChild;
    uint32_t depth;
};

struct tBin {
    qeBBox box;
    uint32_t count = 0;
};

struct tSplit {
    bool found = false;
    uint32_t axis = 0;
    uint32_t lastLeftBin = 0;
    float cost = 0.0f;
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
        m_primitives.resize(quantity);
        for (uint32_t i = 0; i < quantity; ++i) m_primitives[i] = i;

        std::vector<tTask> stack;
        stack.push_back({0, quantity, kNoParent, false, 0});
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

            qeBBox centroidBox;
            qeBVHNode& node = m_nodes[index];
            for (uint32_t k = task.begin; k < task.end; ++k) {
                node.box.include(m_container.getBBox(m_primitives[k]));
                centroidBox.include(m_container.getCentroid(m_primitives[k]));
            }

            uint32_t axis = 0;
            const uint32_t middle = chooseSplit(task, node.box, centroidBox, axis);
            if (middle == task.begin) {
                node.word0 = qeBVHNode::kLeafFlag | task.begin;
                node.word1 = task.end - task.begin;
                continue;
            }
            node.word0 = axis << 30;
            // Second child pushed first so that the first child directly
            // follows its parent in the array.
            stack.push_back({middle, task.end, index, true, task.depth + 1});
            stack.push_back({task.begin, middle, index, false, task.depth + 1});
        }
        return !(cancel && cancel->isCancelled());
    }

   private:
    // Partitions the task's range and returns the first position of the
    // second half, or task.begin when the node stays a leaf.
    uint32_t chooseSplit(const tTask& task, const qeBBox& nodeBox, const qeBBox& centroidBox, uint32_t& axis) {
        const uint32_t count = task.end - task.begin;
        if (count <= 1) return task.begin;
        const bool mustSplit = count > m_maxLeafSize;
        if (m_method == qeLinearGenericBVHBuilder::SPLIT_MEDIAN || task.depth >= kMaxHeuristicDepth)
            return mustSplit ? medianSplit(task, centroidBox, axis) : task.begin;

        const float parentArea = nodeBox.halfArea();
        if (!isFinitePositive(parentArea)) return mustSplit ? medianSplit(task, centroidBox, axis) : task.begin;

        const tSplit split = bestBinnedSplit(task, centroidBox, parentArea);
        if (!split.found) return mustSplit ? medianSplit(task, centroidBox, axis) : task.begin;
        if (!mustSplit && !(split.cost < static_cast<float>(count))) return task.begin;

        axis = split.axis;
        const float lower = centroidBox.Min[split.axis];
        const float scale = static_cast<float>(kBinQuantity) / (centroidBox.Max[split.axis] - lower);
        uint32_t* first = m_primitives.data() + task.begin;
        uint32_t* last = m_primitives.data() + task.end;
        uint32_t* middle = std::partition(first, last, [&](uint32_t primitive) {
            return binOf(m_container.getCentroid(primitive)[split.axis], lower, scale) <= split.lastLeftBin;
        });
        return task.begin + static_cast<uint32_t>(middle - first);
    }

    tSplit bestBinnedSplit(const tTask& task, const qeBBox& centroidBox, float parentArea) const {
        tSplit best;
        for (uint32_t axis = 0; axis < 3; ++axis) {
            const float lower = centroidBox.Min[axis];
            const float extent = centroidBox.Max[axis] - lower;
            if (!isFinitePositive(extent)) continue;
            const float scale = static_cast<float>(kBinQuantity) / extent;

            std::array<tBin, kBinQuantity> bins;
            for (uint32_t k = task.begin; k < task.end; ++k) {
                const uint32_t primitive = m_primitives[k];
                tBin& bin = bins[binOf(m_container.getCentroid(primitive)[axis], lower, scale)];
                ++bin.count;
                bin.box.include(m_container.getBBox(primitive));
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
            const uint32_t total = task.end - task.begin;
            for (uint32_t b = 0; b + 1 < kBinQuantity; ++b) {
                leftBox.include(bins[b].box);
                leftCount += bins[b].count;
                if (leftCount == 0 || leftCount == total) continue;
                const float cost =
                    kTraversalCost + (leftBox.halfArea() * static_cast<float>(leftCount) + rightCost[b]) / parentArea;
                if (!best.found || cost < best.cost) {
                    best.found = true;
                    best.axis = axis;
                    best.lastLeftBin = b;
                    best.cost = cost;
                }
            }
        }
        return best;
    }

    uint32_t medianSplit(const tTask& task, const qeBBox& centroidBox, uint32_t& axis) {
        axis = 0;
        float widest = -1.0f;
        for (uint32_t a = 0; a < 3; ++a) {
            const float extent = centroidBox.Max[a] - centroidBox.Min[a];
            if (extent > widest) {
                widest = extent;
                axis = a;
            }
        }
        const uint32_t middle = task.begin + (task.end - task.begin) / 2;
        const uint32_t splitAxis = axis;
        // NaN centroids compare as neither less nor greater; the comparator
        // is kept a strict weak order by ranking them after every number.
        std::nth_element(m_primitives.data() + task.begin, m_primitives.data() + middle, m_primitives.data() + task.end,
                         [&](uint32_t a, uint32_t b) {
                             const float ca = m_container.getCentroid(a)[splitAxis];
                             const float cb = m_container.getCentroid(b)[splitAxis];
                             if (std::isnan(ca)) return false;
                             if (std::isnan(cb)) return true;
                             return ca < cb;
                         });
        return middle;
    }

    const qeBVHPrimitiveContainer& m_container;
    std::vector<qeBVHNode>& m_nodes;
    std::vector<uint32_t>& m_primitives;
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
