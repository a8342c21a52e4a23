// The line and arc tests of the running fitting system, fed the way the
// polyline builder feeds it: one segment at a time at either end of a chain.
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

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

TEST(FittingSystem, OpenArcsGrownAtEitherEnd) {
    FittingSystem system;
    const std::vector<V3> quarter = ArcPoints(4, kPi / 2);
    system.addToSystem(quarter[0], quarter[1], false, true);
    EXPECT_FALSE(system.couldFitCircle());
    EXPECT_FALSE(system.fitCircle(nullptr));
    for (size_t i = 2; i < quarter.size(); ++i) system.addToSystem(quarter[i - 1], quarter[i], false, true);
    EXPECT_TRUE(system.couldFitCircle());
    float angle = 0;
    EXPECT_TRUE(system.fitCircle(&angle));
    EXPECT_NEAR(angle, kPi / 2, 1e-4);

    // The same arc, clockwise about the other axis, started in the middle.
    const std::vector<V3> arc = ArcPoints(6, -kPi / 2, 3.0);
    FittingSystem middle;
    middle.addToSystem(arc[3], arc[4], false, true);
    for (size_t k = 1; k <= 3; ++k) {
        EXPECT_TRUE(middle.fitCircle(nullptr) || k == 1);
        middle.addToSystem(arc[4 - k], arc[3 - k], true, true);
        if (k < 3) middle.addToSystem(arc[3 + k], arc[4 + k], false, true);
    }
    EXPECT_TRUE(middle.fitCircle(&angle));
    EXPECT_NEAR(angle, kPi / 2, 1e-4);
}

TEST(FittingSystem, ClosedLoopsSpanAFullTurnAndNeedEnoughChords) {
    float angle = 0;
    EXPECT_TRUE(FitsCircle(ArcPoints(12, 2 * kPi, 5.0), &angle));
    EXPECT_FLOAT_EQ(angle, static_cast<float>(2 * kPi));
    EXPECT_TRUE(FitsCircle(ArcPoints(6, 2 * kPi)));
    // The chords of a pentagon cut off too much of the disc.
    EXPECT_FALSE(FitsCircle(ArcPoints(5, 2 * kPi)));
}

TEST(FittingSystem, SegmentsThatCannotContinueTheArcMarkItForGood) {
    const auto point = [](double degrees) {
        const double t = degrees * kPi / 180;
        return V3(static_cast<float>(std::cos(t)), static_cast<float>(std::sin(t)), 0);
    };
    // Chords of 10 then 35 degrees are 3.45 times apart; 10 then 25 about
    // 2.5 times, which is still accepted.
    EXPECT_TRUE(FitsCircle({point(0), point(10), point(35)}));
    EXPECT_FALSE(FitsCircle({point(0), point(10), point(45), point(55), point(65)}));

    // One ulp off the chain end is not attached. The stray chord is short
    // and on the circle, so only the attachment can reject it.
    FittingSystem system;
    const std::vector<V3> quarter = ArcPoints(4, kPi / 2);
    AddAtEnd(system, quarter, true);
    ASSERT_TRUE(system.fitCircle(nullptr));
    V3 detached = quarter.back();
    detached[0] = std::nextafter(detached[0], 1.0f);
    system.addToSystem(detached, point(90.01), false, true);
    EXPECT_FALSE(system.fitCircle(nullptr));
    system.addToSystem(point(90.01), point(112.5), false, true);
    EXPECT_FALSE(system.fitCircle(nullptr));

    // A short step back along the circle reverses the sense of travel.
    FittingSystem back;
    AddAtEnd(back, quarter, true);
    back.addToSystem(quarter.back(), point(89.99), false, true);
    EXPECT_FALSE(back.fitCircle(nullptr));
}

TEST(FittingSystem, DegenerateSegmentsChangeNothingOrFailQuietly) {
    FittingSystem system;
    EXPECT_FALSE(system.addToSystem(V3(1, 2, 3), V3(1, 2, 3), false, true));
    EXPECT_FALSE(system.couldFitCircle());
    const std::vector<V3> quarter = ArcPoints(4, kPi / 2, 2.0);
    AddAtEnd(system, quarter, true);
    float before = 0, after = 0;
    ASSERT_TRUE(system.fitCircle(&before));
    EXPECT_FALSE(system.addToSystem(quarter.back(), quarter.back(), false, true));
    EXPECT_TRUE(system.fitCircle(&after));
    EXPECT_EQ(before, after);

    // NaN input must end in a refusal, not in anything undefined.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    system.addToSystem(quarter.back(), V3(nan, 0, 0), false, true);
    EXPECT_FALSE(system.fitCircle(&after));
    EXPECT_FALSE(system.fitLine());
    system.reset();
    EXPECT_FALSE(system.couldFitCircle());
    AddAtEnd(system, {V3(0, 0, 0), V3(1, 0, 0), V3(2, 0, 0)}, true);
    EXPECT_FALSE(system.fitCircle(&after));
}

TEST(FittingSystem, TiltedOffsetArcRecoversCentreAndNormal) {
    const V3d normal = V3d(1, 2, 2) / 3.0;
    const V3d u = V3d(2, -1, 0) / std::sqrt(5.0);
    const V3d v = normal.Cross(u);
    const V3d centre(5, -3, 2);
    const std::vector<V3> arc = ArcPoints(6, kPi / 2, 2.0, centre, u, v);
    FittingSystem system;
    V3 normalF(9, 9, 9), centreF(9, 9, 9);
    system.addToSystem(arc[0], arc[1], false, true);
    EXPECT_FALSE(system.computeCircleNormalCenter(arc[0], normalF, centreF));
    EXPECT_EQ(normalF, V3(9, 9, 9));
    EXPECT_EQ(centreF, V3(9, 9, 9));
    for (size_t i = 2; i < arc.size(); ++i) system.addToSystem(arc[i - 1], arc[i], false, true);

    float angle = 0;
    EXPECT_TRUE(system.fitCircle(&angle));
    EXPECT_NEAR(angle, kPi / 2, 1e-4);
    V3d fittedNormal, fittedCentre;
    ASSERT_TRUE(system.computeCircleNormalCenter(arc[2], fittedNormal, fittedCentre));
    EXPECT_NEAR(std::fabs(fittedNormal.Dot(normal)), 1.0, 1e-9);
    EXPECT_NEAR((fittedCentre - centre).Length(), 0.0, 1e-4);
    ASSERT_TRUE(system.computeCircleNormalCenter(arc[2], normalF, centreF));
    for (int k = 0; k < 3; ++k) EXPECT_EQ(centreF[k], static_cast<float>(fittedCentre[k]));
}

}  // namespace
