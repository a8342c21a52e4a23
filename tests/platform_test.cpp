// The host-framework layer: reference counting, the math conventions the
// library's bit-exact results depend on, and the hierarchy builder.
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "Wm4Matrix4.h"
#include "qe/qeBVHPrimitiveContainer.h"
#include "qe/qeGenericTransformation.h"
#include "qe/qeLinearGenericBVHBuilder.h"
#include "qe/qeMemory.h"
#include "qe/qeTriMesh.h"

namespace {

using V3 = Wm4::Vector3<float>;

// Counts destructions, to observe ownership.
class Tracked : public qe::qeObject {
public:
    explicit Tracked(int& destroyed) : m_destroyed(destroyed) {}
    ~Tracked() override { ++m_destroyed; }

private:
    int& m_destroyed;
};

TEST(Platform, PointersShareOwnershipOfObjectsBornUnowned) {
    int destroyed = 0;
    Tracked* raw = new Tracked(destroyed);
    EXPECT_EQ(raw->GetReferences(), 0);
    {
        qe::qePointer<Tracked> first = raw;
        qe::qePointer<Tracked> second = first;
        EXPECT_EQ(raw->GetReferences(), 2);
        second = raw;  // the same object: nothing changes
        EXPECT_EQ(raw->GetReferences(), 2);
        second = nullptr;
        EXPECT_EQ(raw->GetReferences(), 1);
        // Reassigning to an object that only the old one keeps alive must
        // not free it first.
        first = first.get();
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

// Boxes from a fixed integer recurrence, so the input is the same on every
// platform: clusters of small boxes, some repeated, a few long ones.
std::vector<qe::qeBBox> PinnedBoxes() {
    uint32_t state = 12345u;
    const auto next = [&state]() {
        state = state * 1664525u + 1013904223u;
        return static_cast<float>(state >> 8) / 16777216.0f;
    };
    std::vector<qe::qeBBox> boxes;
    for (int i = 0; i < 6000; ++i) {
        const float cluster = static_cast<float>(i % 7);
        V3 low(cluster + next(), 2.0f * next() - cluster, next() * next());
        V3 size(0.05f * next(), 0.05f * next(), i % 97 == 0 ? 3.0f : 0.05f * next());
        if (i % 11 == 0 && !boxes.empty()) {
            boxes.push_back(boxes.back());
            continue;
        }
        boxes.push_back(qe::qeBBox(low, low + size));
    }
    return boxes;
}

// FNV-1a over the node array and the primitive order.
uint64_t TreeFingerprint(const qe::qeGenericBVH& bvh) {
    uint64_t hash = 14695981039346656037ull;
    const auto mix = [&hash](const void* data, size_t size) {
        const unsigned char* bytes = static_cast<const unsigned char*>(data);
        for (size_t i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * 1099511628211ull;
    };
    for (const qe::qeBVHNode& node : bvh.getNodes()) {
        for (int axis = 0; axis < 3; ++axis) {
            const float bounds[2] = {node.box.Min[axis], node.box.Max[axis]};
            mix(bounds, sizeof(bounds));
        }
        mix(&node.word0, sizeof(node.word0));
        mix(&node.word1, sizeof(node.word1));
    }
    for (const uint32_t primitive : bvh.getPrimitives()) mix(&primitive, sizeof(primitive));
    return hash;
}

// The intersection search meets partners in the order of the tree, so the
// drawings depend on the exact tree the builder makes: node order, boxes,
// leaves and primitive order. The fingerprints pin that tree; a change in
// them is a change in the drawings, never a mere speed-up.
TEST(Platform, BuilderMakesTheSameTreeAsEver) {
    qe::qeBVHPrimitiveContainer container;
    for (const qe::qeBBox& box : PinnedBoxes()) container.add(box);
    qe::qeGenericBVH bvh;
    ASSERT_TRUE(qe::qeLinearGenericBVHBuilder::build(container, bvh, nullptr, 10));
    EXPECT_EQ(bvh.getNodes().size(), 10859u);
    EXPECT_EQ(TreeFingerprint(bvh), 0x2f733deba9b37b02ull);
    ASSERT_TRUE(
        qe::qeLinearGenericBVHBuilder::build(container, bvh, nullptr, 10, qe::qeLinearGenericBVHBuilder::SPLIT_MEDIAN));
    EXPECT_EQ(bvh.getNodes().size(), 2047u);
    EXPECT_EQ(TreeFingerprint(bvh), 0x734e878301c123e9ull);
}

// Lists from a large page on start on a large-page boundary, so that only
// their last partial page takes small pages; they keep their contents as
// they grow through those sizes, and smaller lists are plain allocations.
TEST(Platform, LargeListsStartOnALargePage) {
    constexpr size_t kLargePage = size_t(1) << 21;
    for (const size_t bytes : {kLargePage, 3 * kLargePage + 12345}) {
        const qe::qeLargeArray<unsigned char> array(bytes);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(array.get()) % kLargePage, 0u) << bytes;
        array[0] = 1;
        array[bytes - 1] = 2;
        EXPECT_EQ(array[0] + array[bytes - 1], 3);
    }
    qe::qeLargeVector<uint32_t> list;
    for (uint32_t i = 0; i < 3 * kLargePage / sizeof(uint32_t); ++i) list.push_back(i * 7u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(list.data()) % kLargePage, 0u);
    for (uint32_t i = 0; i < list.size(); i += 4099) ASSERT_EQ(list[i], i * 7u) << i;
    const qe::qeLargeArray<double> small(10);
    small[9] = 0.5;
    EXPECT_EQ(small[9], 0.5);
}

}  // namespace
