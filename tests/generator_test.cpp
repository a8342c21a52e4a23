// The feature computation as a host drives it: the order of its steps, its
// cancellation checks and the work it announces.

#include "TestSupport.h"

namespace {

using V3 = Wm4::Vector3<float>;
using SetPointer = qe::qePointer<ctr::LineSegmentSet>;

// A tilted square of two triangles with flat normals, seen from the front:
// its four borders are creases and silhouettes alike, its diagonal neither.
qe::qePointer<qe::qeTriMesh> Square(float z) {
    const V3 n(0, 0, 1);
    return ctr_test::MakeMesh({V3(-1, -1, z), V3(1, -1, z), V3(1, 1, z), V3(-1, 1, z)}, {0, 1, 2, 0, 2, 3},
                              {n, n, n, n});
}

void Camera(ctr::GeometricFeaturesGenerator& generator) {
    ctr::DiscreteProjectionSpace space;
    ctr_test::PerspectiveCamera(space, V3(0.3f, 0.2f, 6), V3(0, 0, 0));
    generator.setProjectionSpace(space);
}

int Segments(const SetPointer& set) { return set ? set->getSegmentQuantity() : -1; }

TEST(FeatureComputation, StepsAndCommonSegments) {
    const auto square = Square(0.0f);
    ctr::GeometricFeaturesGenerator generator;
    Camera(generator);
    ctr::GeometricFeatures features;
    // No cluster yet: every step finds nothing.
    generator.computeGeometricFeatures(features, 0, true);
    EXPECT_EQ(features.creaseEdges, nullptr);
    EXPECT_EQ(features.silhouetteEdges, nullptr);
    EXPECT_EQ(features.intersectionEdges, nullptr);

    generator.setSingleExportCluster({square}, nullptr);
    generator.computeGeometricFeatures(features, 0, false);
    EXPECT_EQ(Segments(features.creaseEdges), 4);
    EXPECT_EQ(Segments(features.silhouetteEdges), 4);
    EXPECT_EQ(features.creaseEdges->occlusionIntervals.size(), 4u);
    EXPECT_EQ(features.silhouetteEdges->segmentClips.size(), 4u);
    EXPECT_EQ(features.intersectionEdges, nullptr);
    // Every crease is a silhouette too: removing them leaves no crease set.
    generator.computeGeometricFeatures(features, 0, true);
    EXPECT_EQ(features.creaseEdges, nullptr);
    EXPECT_EQ(Segments(features.silhouetteEdges), 4);
}

}  // namespace
