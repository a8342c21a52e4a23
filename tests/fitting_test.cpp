// The line and arc tests of the running fitting system, fed the way the
// polyline builder feeds it: one segment at a time at either end of a chain.
#include <limits>

#include "TestSupport.h"
#include "ctr/FittingSystem.h"

namespace {

using V3 = Wm4::Vector3<float>;
using V3d = Wm4::Vector3<double>;
using ctr::FittingSystem;

const double kPi = 3.14159265358979323846;

// count + 1 points on a circle from angle 0 to sweep, in the plane spanned by
// the unit vectors u and v; a full sweep repeats the first point exactly.
std::vector<V3> ArcPoints(int count, double sweep, double radius = 1.0, const V3d& center = V3d(),
                          const V3d& u = V3d(1, 0, 0), const V3d& v = V3d(0, 1, 0)) {
    std::vector<V3> points;
    for (int i = 0; i <= count; ++i) {
        const double t = sweep * i / count;
        const V3d p = center + u * (radius * std::cos(t)) + v * (radius * std::sin(t));
        points.emplace_back(static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2]));
    }
    if (sweep == 2.0 * kPi) points.back() = points.front();
    return points;
}

void AddAtEnd(FittingSystem& system, const std::vector<V3>& points, bool circleMode) {
    for (size_t i = 1; i < points.size(); ++i)
        ASSERT_TRUE(system.addToSystem(points[i - 1], points[i], false, circleMode));
}

bool FitsCircle(const std::vector<V3>& points, float* angle = nullptr) {
    FittingSystem system;
    AddAtEnd(system, points, true);
    return system.fitCircle(angle);
}

TEST(FittingSystem, LineModeNeedsParallelSegmentsWalkingOneWay) {
    FittingSystem system;
    AddAtEnd(system, {V3(0, 0, 0), V3(1, 0, 0), V3(2, 0, 0), V3(3.5f, 0, 0)}, false);
    EXPECT_TRUE(system.fitLine());
    // Growing at the start means walking backwards.
    system.addToSystem(V3(0, 0, 0), V3(-1, 0, 0), true, false);
    EXPECT_TRUE(system.fitLine());
    // A start segment pointing forward folds the chain back on itself; that
    // sticks even after proper segments follow.
    system.addToSystem(V3(-1, 0, 0), V3(-0.5f, 0, 0), true, false);
    EXPECT_FALSE(system.fitLine());
    system.addToSystem(V3(3.5f, 0, 0), V3(4, 0, 0), false, false);
    EXPECT_FALSE(system.fitLine());

    // A kink of one degree is well beyond the tolerance.
    FittingSystem bent;
    const float c = static_cast<float>(std::cos(kPi / 180)), s = static_cast<float>(std::sin(kPi / 180));
    AddAtEnd(bent, {V3(0, 0, 0), V3(1, 0, 0), V3(1 + c, s, 0)}, false);
    EXPECT_FALSE(bent.fitLine());
    EXPECT_FALSE(FittingSystem().fitLine());
}

TEST(FittingSystem, ClosedLoopsSpanAFullTurnAndNeedEnoughChords) {
    float angle = 0;
    EXPECT_TRUE(FitsCircle(ArcPoints(12, 2 * kPi, 5.0), &angle));
    EXPECT_FLOAT_EQ(angle, static_cast<float>(2 * kPi));
    EXPECT_TRUE(FitsCircle(ArcPoints(6, 2 * kPi)));
    // The chords of a pentagon cut off too much of the disc.
    EXPECT_FALSE(FitsCircle(ArcPoints(5, 2 * kPi)));
}

}  // namespace
