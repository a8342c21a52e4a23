// The feature computation as a host drives it: the order of its steps, its
// cancellation checks and the work it announces.
#include <cmath>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "ctr/GeometricFeaturesGenerator.h"

namespace {

using V3 = Wm4::Vector3<float>;
using SetPointer = qe::qePointer<ctr::LineSegmentSet>;

// Counts what it is told and cancels at the given query (never when 0).
class Notifier : public qe::qeProgressNotifierInterface {
public:
    explicit Notifier(int cancelAtQuery = 0) : cancelAt(cancelAtQuery) {}
    bool shouldCancel() override { return ++queries == cancelAt; }
    void setTotalProgress(double value) override {
        total = value;
        ++announcements;
    }
    void advanceProgress(double amount) override { done += amount; }
    double getRemainingProgress() const override { return total - done; }

    int cancelAt;
    int queries = 0;
    int announcements = 0;
    double total = 0.0;
    double done = 0.0;
};

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

TEST(FeatureComputation, AnnouncesItsWorkAndStopsWhenCancelled) {
    // Two squares, the second behind and smaller on screen: no intersection.
    const auto front = Square(0.0f);
    const auto back = Square(-3.0f);
    ctr::GeometricFeaturesGenerator generator;
    Camera(generator);
    generator.setSingleExportCluster({front, back}, nullptr);
    const int triangles = static_cast<int>(generator.getBakedTriangles(0).getTriangleQuantity());

    Notifier counting;
    generator.setProgressNotifier(&counting);
    ctr::GeometricFeatures features;
    generator.computeGeometricFeatures(features, 0, false);
    EXPECT_EQ(counting.announcements, 1);
    EXPECT_EQ(counting.total, 2.0 * triangles + 8 + 8);
    // One step per segment of occlusion and one per triangle searched; the
    // share announced for building intersection lines is spent only on
    // intersection edges, and there are none.
    EXPECT_EQ(counting.done, 1.0 * triangles + 8 + 8);
    EXPECT_EQ(features.intersectionEdges, nullptr);

    // Cancelled at the first check: the creases are in, the rest untouched.
    const SetPointer marker = new ctr::LineSegmentSet;
    features.silhouetteEdges = marker;
    features.intersectionEdges = marker;
    Notifier cancelling(1);
    generator.setProgressNotifier(&cancelling);
    generator.computeGeometricFeatures(features, 0, false);
    EXPECT_EQ(Segments(features.creaseEdges), 8);
    EXPECT_EQ(features.silhouetteEdges, marker);
    EXPECT_EQ(features.intersectionEdges, marker);
    EXPECT_EQ(cancelling.announcements, 0);
}

// Hosts that time or label the steps learn each one as it begins, and the
// end of the call however it ends.
TEST(FeatureComputation, TellsTheObserverEachStep) {
    struct tSteps : ctr::FeatureStepObserver {
        void stepStarted(ctr::FeatureStep step) override { seen.push_back(step); }
        std::vector<ctr::FeatureStep> seen;
    };
    using S = ctr::FeatureStep;
    const auto square = Square(0.0f);
    ctr::GeometricFeaturesGenerator generator;
    Camera(generator);
    generator.setSingleExportCluster({square}, nullptr);
    tSteps steps;
    generator.setStepObserver(&steps);
    ctr::GeometricFeatures features;
    generator.computeGeometricFeatures(features, 0, true);
    EXPECT_EQ(steps.seen, (std::vector<S>{S::kCreases, S::kSilhouettes, S::kCommonSegments, S::kOcclusion,
                                          S::kIntersections, S::kFinished}));
    steps.seen.clear();
    Notifier cancelling(1);
    generator.setProgressNotifier(&cancelling);
    generator.computeGeometricFeatures(features, 0, false);
    EXPECT_EQ(steps.seen, (std::vector<S>{S::kCreases, S::kFinished}));
}

TEST(FeatureComputation, IntersectionLinesOfCrossingSquares) {
    // A square standing across another: one line where they cut, drawn
    // without any notifier.
    const auto flat = Square(0.0f);
    const V3 n(1, 0, 0);
    const auto upright = ctr_test::MakeMesh({V3(0, -0.5f, -1), V3(0, 0.5f, -1), V3(0, 0.5f, 1), V3(0, -0.5f, 1)},
                                            {0, 1, 2, 0, 2, 3}, {n, n, n, n});
    ctr::GeometricFeaturesGenerator generator;
    Camera(generator);
    generator.setSingleExportCluster({flat, upright}, nullptr);
    Notifier counting;
    generator.setProgressNotifier(&counting);
    ctr::GeometricFeatures features;
    generator.computeGeometricFeatures(features, 0, true);
    ASSERT_NE(features.intersectionEdges, nullptr);
    // With intersection edges the announced work is used up.
    EXPECT_NEAR(counting.done, counting.total, 1e-4 * counting.total);
    EXPECT_GE(features.intersectionEdges->getSegmentQuantity(), 1);
    // The cut runs along x = 0 from y = -0.5 to 0.5 (pieces may split it
    // where the upright's diagonal crosses).
    const qe::qeVertexBuffer& vertices = *features.intersectionEdges->VBuffer;
    for (int v = 0; v < vertices.GetVertexQuantity(); ++v) {
        EXPECT_NEAR(vertices.Position3(v)[0], 0.0f, 1e-3f);
        EXPECT_NEAR(vertices.Position3(v)[2], 0.0f, 1e-3f);
        EXPECT_LE(std::fabs(vertices.Position3(v)[1]), 0.5f + 1e-3f);
    }
}

}  // namespace
