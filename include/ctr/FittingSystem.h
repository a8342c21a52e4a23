// Running least-squares test of whether a growing chain of segments is one
// straight line or one circular arc.
#ifndef CTR_FITTINGSYSTEM_H
#define CTR_FITTINGSYSTEM_H

#include "Wm4Vector3.h"

#include "ctr/Export.h"

namespace ctr {

// Every segment's perpendicular bisector plane passes through the centre of
// the circle it is a chord of; the system accumulates the normal equations of
// those planes, so that adding a segment costs O(1) and a fit can be tested
// after every addition. Sums are kept in double; points come in as floats.
//
// A plain value: no allocation, nothing owned, copy it freely. Const members
// may run on several threads at once; addToSystem and reset may not run
// beside anything else on the same object. No member reports an error other
// than by its boolean; degenerate input (coincident or parallel chords, NaN
// or infinite points) makes the fit tests return false, never throw.
//
// Use: reset(), then one addToSystem per segment as a chain grows at either
// end, every segment of a chain in the same mode, with fitLine (line mode)
// or couldFitCircle and fitCircle (circle mode) after each addition.
class CTR_API FittingSystem {
public:
    // The empty system; reset() returns to it.
    FittingSystem();
    void reset();

    // Adds the segment a -> b: a is the chain's current start (atStart) or
    // end, b the new point beyond it. In circle mode that match is exact
    // float equality (+0 equals -0, NaN matches nothing); a chain end equal
    // to b instead is taken as a reversed segment, one equal to neither ends
    // the arc. Returns false, changing nothing, only for a segment of zero
    // length (a == b); every other segment is taken, even one that rules the
    // chain out. Ruling out is for good, until reset():
    //  - line mode: a segment walking against the chain's direction (added at
    //    the end against the first segment, or at the start along it);
    //  - circle mode: the segment whose centre fit first succeeds (it sets up
    //    the arc frame; usually the second) more than three times longer or
    //    shorter than the first, a segment turning against the arc's sense,
    //    or one attached elsewhere.
    bool addToSystem(const Wm4::Vector3<float>& a, const Wm4::Vector3<float>& b, bool atStart, bool circleMode);

    // True when the chain is straight: the mean squared sine of the angles
    // between its segments and the fitted direction is below 3.04617e-6
    // (about 0.1 degree root mean square). Positions are not tested, as the
    // segments of a chain are connected. True for one segment, false for
    // none or after a segment walked back.
    bool fitLine() const;
    // At least two segments: the least a circle test needs.
    bool couldFitCircle() const;
    // True when the chain is one circular arc: its chords lie in one plane
    // (fitCircleFrame), a centre fits their bisector planes (fitCircleCenter)
    // and the triangles of centre and chords cover between 0.8253 and 1.005
    // of the circular sector they span (a closed hexagon passes, a pentagon
    // fails). False before a circle-mode segment has set up the arc frame.
    // angle, when non-null, receives the angle spanned in radians, in
    // [0, 2 pi] (or NaN, with a false result), exactly 2 pi when the chain's
    // ends are the same point. It is written whenever the test gets as far
    // as measuring it, also when the area test that follows fails, and left
    // untouched when the result is false before that.
    bool fitCircle(float* angle) const;

    // The chain's plane: normal is the unit eigenvector of the smallest
    // eigenvalue of the summed direction products, written whenever at least
    // two segments exist and the start point is off the frame's centre (the
    // world origin before the frame is set up), even when the result is
    // false; it may then be NaN. axisU and axisV, written only on true, are
    // orthogonal unit vectors in the plane, axisV = axisU x normal. False
    // when the chords are not coplanar within 3.04617e-6 * segments * the
    // start point's distance from the frame's centre: a bound that mixes a
    // dimensionless sum with a length, kept as it is because which chains
    // count as arcs depends on it.
    bool fitCircleFrame(Wm4::Vector3<double>& axisV, Wm4::Vector3<double>& axisU, Wm4::Vector3<double>& normal) const;
    // The least-squares centre of the chords' bisector planes within the
    // plane through point spanned by the two unit axes. center is always
    // written, non-finite when the axes make the system singular. True when
    // the root-mean-square distance of the centre from the bisector planes
    // stays below 1% of its distance from point.
    bool fitCircleCenter(const Wm4::Vector3<float>& point, const Wm4::Vector3<double>& axisV,
                         const Wm4::Vector3<double>& axisU, Wm4::Vector3<double>& center) const;
    // The arc and area test of fitCircle for a frame already found; angle as
    // there (null allowed).
    bool fitCircleSurface(const Wm4::Vector3<double>& axisV, const Wm4::Vector3<double>& axisU, float* angle) const;
    // fitCircleFrame, then fitCircleCenter at point. False if either fails;
    // the outputs may then be partly written.
    bool computeCircleNormalCenter(const Wm4::Vector3<float>& point, Wm4::Vector3<double>& normal,
                                   Wm4::Vector3<double>& center) const;
    // The same, rounded to float; both outputs untouched on failure.
    bool computeCircleNormalCenter(const Wm4::Vector3<float>& point, Wm4::Vector3<float>& normal,
                                   Wm4::Vector3<float>& center) const;

private:
    // Upper triangle a00, a01, a02, a11, a12, a22 of the sum of n n^T.
    double directionMatrix[6];
    Wm4::Vector3<float> startPoint;
    Wm4::Vector3<float> endPoint;
    // -1 marks the chain as no arc for good.
    double arcArea;
    Wm4::Vector3<double> frameCenter;
    Wm4::Vector3<double> frameNormal;
    Wm4::Vector3<double> startTangent;
    Wm4::Vector3<double> endTangent;
    bool orientation;
    bool frameReady;
    Wm4::Vector3<float> firstDirection;
    bool directionConsistent;
    Wm4::Vector3<double> planeRhs;
    double sumSquaredOffsets;
    double segmentCount;
};

}  // namespace ctr

#endif
