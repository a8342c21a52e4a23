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
class CTR_API FittingSystem {
public:
    FittingSystem();
    void reset();

    // Adds the segment a -> b, a being the chain's current start (atStart) or
    // end, b the new point beyond it. False, with nothing changed, for a
    // segment of zero length.
    bool addToSystem(const Wm4::Vector3<float>& a, const Wm4::Vector3<float>& b, bool atStart, bool circleMode);

    bool fitLine() const;
    bool couldFitCircle() const;
    // Writes the spanned angle in radians when angle is non-null.
    bool fitCircle(float* angle) const;

    bool fitCircleFrame(Wm4::Vector3<double>& axisV, Wm4::Vector3<double>& axisU, Wm4::Vector3<double>& normal) const;
    bool fitCircleCenter(const Wm4::Vector3<float>& point, const Wm4::Vector3<double>& axisV,
                         const Wm4::Vector3<double>& axisU, Wm4::Vector3<double>& center) const;
    bool fitCircleSurface(const Wm4::Vector3<double>& axisV, const Wm4::Vector3<double>& axisU, float* angle) const;
    bool computeCircleNormalCenter(const Wm4::Vector3<float>& point, Wm4::Vector3<double>& normal,
                                   Wm4::Vector3<double>& center) const;
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
