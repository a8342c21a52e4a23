// The validators run wherever the suite builds a hierarchy or merges hidden
// intervals (test_main.cpp switches them on); that is worth something only if
// they notice broken structures, and only if the checks are compiled in.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "check/Check.h"
#include "check/Validate.h"
#include "ctr/BakedTriangles.h"

namespace {

using V3 = Wm4::Vector3<float>;
using RI = ctr::RationalInterval;

TEST(Validators, NoticeABrokenHierarchy) {
    ctr::DiscreteProjectionSpace space;
    ctr_test::PerspectiveCamera(space, V3(3, 2, 4), V3(0, 0, 0));
    // Twelve triangles: more than a leaf holds, so the root has children.
    const auto box = ctr_test::MakeSplitBox(V3(-1, -1, -1), V3(1, 1, 1));
    ctr::BakedTriangles baked;
    baked.setProjectionSpace(&space);
    baked.setMeshes({box});
    baked.initialize();
    const std::vector<uint32_t>& triangles = baked.getTriangles();
    const auto valid = [&](const qe::qeGenericBVH& h, const std::vector<uint32_t>& t) {
        return ctr::check::ValidateHierarchy(h, baked.getVertices(), t, nullptr);
    };
    const qe::qeGenericBVH& built = baked.getHierarchy();
    ASSERT_TRUE(valid(built, triangles));
    ASSERT_FALSE(built.getNodes()[0].isLeaf());

    qe::qeGenericBVH leafShort = built, rootShort = built, listedTwice = built;
    for (qe::qeBVHNode& node : leafShort.getNodes())
        if (node.isLeaf() && node.primitiveCount() > 0) node.box.Max[0] -= 1.0f;  // one grid step
    rootShort.getNodes()[0].box.Max[1] -= 1.0f;
    listedTwice.getPrimitives()[0] = listedTwice.getPrimitives()[1];
    std::vector<uint32_t> cornerOff = triangles;
    cornerOff[4] = static_cast<uint32_t>(baked.getVertices().size());
    EXPECT_FALSE(valid(leafShort, triangles));
    EXPECT_FALSE(valid(rootShort, triangles));
    EXPECT_FALSE(valid(listedTwice, triangles));
    EXPECT_FALSE(valid(built, cornerOff));
    EXPECT_FALSE(valid(qe::qeGenericBVH(), triangles));
}

TEST(Validators, NoticeABrokenIntervalList) {
    EXPECT_TRUE(ctr::check::ValidateIntervals({}, nullptr));
    EXPECT_TRUE(ctr::check::ValidateIntervals({RI{0, 1, 1, 4}, RI{1, 2, 3, 3}}, nullptr));
    const std::vector<std::vector<RI>> broken = {
        {RI{1, 2, 3, 4}, RI{0, 1, 1, 4}},  // unsorted
        {RI{0, 1, 1, 2}, RI{2, 4, 3, 4}},  // touching, 1/2 = 2/4: the merge joins these
        {RI{0, 1, 3, 5}, RI{1, 2, 3, 4}},  // overlapping
        {RI{-1, 4, 1, 4}},                 // starts before 0
        {RI{1, 2, 5, 4}},                  // ends after 1
        {RI{1, 2, 2, 4}},                  // empty
        {RI{0, 0, 1, 1}},                  // zero denominator
        {RI{0, 1, -1, -1}},                // 1 written with a negative denominator
    };
    for (const std::vector<RI>& list : broken) {
        std::string why;
        EXPECT_FALSE(ctr::check::ValidateIntervals(list, &why));
        EXPECT_FALSE(why.empty());
    }
}

// The suite's checks are compiled in and switched on: asserts must survive
// the optimised build with debug information that the tests run in. Only a
// Release build (NDEBUG) compiles them out.
TEST(ValidatorsDeathTest, ChecksAreOnInTheTestBuild) {
#ifdef NDEBUG
    GTEST_SKIP() << "checks are compiled out in a Release build";
#endif
    EXPECT_TRUE(ctr::check::IsValidating());
    EXPECT_DEATH(CTR_ASSERT_MSG(sizeof(int) == 0, "reason"), "check failed: sizeof\\(int\\) == 0: reason");
}

}  // namespace
