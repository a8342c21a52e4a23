// The host-framework layer: reference counting, the math conventions the
// library's bit-exact results depend on, and the hierarchy builder.
#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "Wm4Matrix4.h"
#include "qe/qeBVHPrimitiveContainer.h"
#include "qe/qeGenericTransformation.h"
#include "qe/qeLinearGenericBVHBuilder.h"
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

TEST(Platform, RowVectorConventionAndExactIdentity) {
    // Translation sits in row 3 and applies to points, not to directions.
    Wm4::Matrix4<float> m(false);
    m[0][1] = 2.0f;  // x contributes to y
    m[3][0] = 10.0f;
    const Wm4::Vector4<float> p = Wm4::Vector4<float>(1, 1, 1, 1) * m;
    EXPECT_EQ(p, Wm4::Vector4<float>(11, 3, 1, 1));
    qe::qeGenericTransformation<float> transform(m);
    EXPECT_EQ(transform.ApplyForward(V3(1, 1, 1), true), V3(11, 3, 1));
    EXPECT_EQ(transform.ApplyForward(V3(1, 1, 1), false), V3(1, 3, 1));
    // The identity hands back its input bit for bit, signed zeros and NaN
    // payloads included.
    const qe::qeGenericTransformation<float> identity;
    const V3 odd(-0.0f, std::numeric_limits<float>::quiet_NaN(), 1e-40f);
    const V3 same = identity.ApplyForward(odd, true);
    EXPECT_TRUE(std::signbit(same[0]));
    EXPECT_TRUE(std::isnan(same[1]));
    EXPECT_EQ(same[2], 1e-40f);
    // Composition: first, then second.
    Wm4::Matrix4<float> scale(false);
    scale[0][0] = 3.0f;
    qe::qeGenericTransformation<float> both;
    both.Product(transform, qe::qeGenericTransformation<float>(scale));
    EXPECT_EQ(both.ApplyForward(V3(1, 1, 1), true), V3(33, 3, 1));
}

qe::qeBBox RandomBox(std::mt19937& random) {
    std::uniform_real_distribution<float> position(-100.0f, 100.0f), size(0.0f, 3.0f);
    const V3 low(position(random), position(random), position(random));
    return qe::qeBBox(low, low + V3(size(random), size(random), size(random)));
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

TEST(Platform, BuilderMakesValidTreesForEveryInput) {
    std::mt19937 random(7);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    struct Case {
        const char* name;
        std::vector<qe::qeBBox> boxes;
    };
    std::vector<Case> cases;
    cases.push_back({"one", {RandomBox(random)}});
    cases.push_back({"random", {}});
    for (int i = 0; i < 5000; ++i) cases.back().boxes.push_back(RandomBox(random));
    // Identical boxes give the heuristic nothing to split on; the builder
    // must still bound leaves and depth.
    cases.push_back({"identical", std::vector<qe::qeBBox>(3000, qe::qeBBox(V3(1, 1, 1), V3(2, 2, 2)))});
    // A degenerate camera hands the builder non-finite boxes.
    cases.push_back({"non-finite", {}});
    for (int i = 0; i < 1000; ++i) {
        qe::qeBBox box = RandomBox(random);
        if (i % 3 == 0) box.Min[i % 2] = nan;
        if (i % 5 == 0) box.Max[2] = inf;
        if (i % 7 == 0) box = qe::qeBBox();
        cases.back().boxes.push_back(box);
    }
    for (const Case& c : cases) {
        qe::qeBVHPrimitiveContainer container;
        for (const qe::qeBBox& box : c.boxes) container.add(box);
        for (const auto method :
             {qe::qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH, qe::qeLinearGenericBVHBuilder::SPLIT_MEDIAN}) {
            qe::qeGenericBVH bvh;
            ASSERT_TRUE(qe::qeLinearGenericBVHBuilder::build(container, bvh, nullptr, 10, method)) << c.name;
            std::string why;
            EXPECT_TRUE(bvh.validate(container.size(), &why)) << c.name << ": " << why;
            for (const qe::qeBVHNode& node : bvh.getNodes()) {
                if (node.isLeaf()) {
                    EXPECT_LE(node.primitiveCount(), 10u) << c.name;
                }
            }
            EXPECT_LE(bvh.computeDepth(), 64u) << c.name;
        }
    }
    // Nothing to build, and cancellation, leave an empty tree.
    qe::qeBVHPrimitiveContainer empty;
    qe::qeGenericBVH bvh;
    EXPECT_FALSE(qe::qeLinearGenericBVHBuilder::build(empty, bvh, nullptr, 10));
    EXPECT_TRUE(bvh.isEmpty());
    bool cancelled = true;
    const qe::qeCancelInterfaceProxyReadOnly cancel(cancelled);
    qe::qeBVHPrimitiveContainer container;
    for (int i = 0; i < 5000; ++i) container.add(RandomBox(random));
    EXPECT_FALSE(qe::qeLinearGenericBVHBuilder::build(container, bvh, &cancel, 10));
    EXPECT_TRUE(bvh.isEmpty());
}

}  // namespace
