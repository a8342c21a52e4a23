// The camera of a drawing and the integer grid of all visibility decisions.
#ifndef CTR_DISCRETEPROJECTIONSPACE_H
#define CTR_DISCRETEPROJECTIONSPACE_H

#include <utility>

#include "Wm4Matrix4.h"
#include "Wm4Vector2.h"
#include "Wm4Vector3.h"
#include "Wm4Vector4.h"

#include "ctr/BakedVertex.h"
#include "ctr/Export.h"

namespace ctr {

// World points go to homogeneous clip space through worldToClip (row vectors:
// p' = (p, 1) * worldToClip), are clipped against the axis-aligned cube
// [domainMin, domainMax] of normalised device coordinates, divided by w and
// quantised to non-negative integers: xyBitSize bits for x and y, zBitSize
// bits for depth. A plain value; copy it freely.
//
// The scales depend on clipToWorld, the cube and the bit sizes, but only the
// constructor and setVoxelBitSize refresh them: after setViewProjection or
// setDomain call updateRatios() before using the space.
class CTR_API DiscreteProjectionSpace {
public:
    // The most vertices clipTriangle can produce: a triangle cut by six planes.
    static constexpr unsigned int kMaxClipVertices = 9;

    // Identity matrices, the cube [-1, 1]^3, 20 bits on every axis.
    DiscreteProjectionSpace();

    // Stores worldToClip and clipToWorld (the host passes the inverse of the
    // first; nothing is inverted here). The scales are not refreshed.
    void setViewProjection(const Wm4::Matrix4<float>& worldToClipMatrix, const Wm4::Matrix4<float>& clipToWorldMatrix);

    // Replaces the clip cube (for example z in [0, 1] for such projections).
    // The scales are not refreshed.
    void setDomain(const Wm4::Vector3<float>& minimum, const Wm4::Vector3<float>& maximum);

    // Accepted when xyBits > 1, zBits > 1 and zBits + 2 * xyBits <= 59, which
    // keeps every product of grid coordinates inside 64 bits; then the scales
    // are refreshed and the result is true. Otherwise nothing changes.
    // Depth sizes above 31 bits pass the check but a BakedVertex holds 32-bit
    // values, so their range saturates at 2^31 - 1.
    bool setVoxelBitSize(unsigned int xyBits, unsigned int zBits);

    // Recomputes discreteScale and discreteInvScale. The longer world side of
    // the view gets the whole xy range and the shorter one a proportional
    // range (at least 1), so that a grid step has the same world length in x
    // and y.
    void updateRatios();

    // World length of one NDC unit along x and along y, measured at NDC depth
    // 0. Infinite or NaN for a degenerate clipToWorld.
    Wm4::Vector2<float> computeFrustumSizeXY() const;

    // Clips the triangle in polygon[0..2] (homogeneous clip coordinates)
    // against the cube. polygon and scratch must each hold kMaxClipVertices
    // vertices; the pointers are exchanged as the clipper alternates between
    // them, so polygon always ends on the result. edgeCodes packs two bits per
    // result vertex (vertex i at bit 2i): the source edge ending at that
    // vertex, 1 for C->A, 2 for A->B, 3 for B->C, 0 for an edge on a clip
    // plane; an untouched triangle keeps 57. Returns false when the triangle
    // lies wholly outside, and also for a numerically degenerate polygon that
    // would need more than kMaxClipVertices vertices.
    bool clipTriangle(Wm4::Vector4<float>*& polygon, Wm4::Vector4<float>*& scratch, unsigned int& count,
                      unsigned int& edgeCodes) const;

    // The plane tests of clipTriangle for one point: bit p set when it lies
    // outside plane p (min x, max x, min y, max y, min z, max z). A triangle
    // whose three corners give 0 is one that clipTriangle returns untouched.
    unsigned int computeOutsidePlanes(const Wm4::Vector4<float>& clipPoint) const;

    // Transforms the world edge a->b, clips it against the cube and quantises
    // the clipped end points into outA and outB, with their clip-space w in wA
    // and wB. Returns the parameters (tA, tB) of the clipped ends on a->b.
    // An edge wholly beyond one plane returns (1, 0) and leaves all outputs
    // untouched.
    std::pair<float, float> clipEdgeWorld(const Wm4::Vector3<float>& a, const Wm4::Vector3<float>& b, BakedVertex& outA,
                                          BakedVertex& outB, float& wA, float& wB) const;

    // Quantises a homogeneous clip-space point: divides by w, clamps to the
    // cube, scales and truncates. The result always lies on the grid (see
    // getGridLimit), whatever the input, NaN included (NaN gives 0).
    BakedVertex quantizeClipPoint(const Wm4::Vector4<float>& clipPoint) const;

    // Truncates a scaled coordinate of an axis to the grid: [0, getGridLimit(axis)].
    int32_t quantizeScaled(float scaled, int axis) const;

    // Largest grid coordinate of an axis: 2^bits, the float range rounded up
    // (2^31 - 1 for depth sizes of 31 bits and more).
    int32_t getGridLimit(int axis) const;

    // Takes a grid point back to NDC (coordinate * discreteInvScale + domainMin)
    // and through clipToWorld, dividing by w.
    Wm4::Vector3<float> discreteToWorld(int32_t x, int32_t y, int32_t z) const;
    // The same mapping with the division by w made as one reciprocal and
    // three products: how the ends of visible intersection pieces are placed.
    // The two may differ in the last bit.
    Wm4::Vector3<float> gridToWorld(const BakedVertex& point) const;

    const Wm4::Matrix4<float>& getWorldToClip() const { return worldToClip; }
    const Wm4::Matrix4<float>& getClipToWorld() const { return clipToWorld; }
    const Wm4::Vector3<float>& getDomainMin() const { return domainMin; }
    const Wm4::Vector3<float>& getDomainMax() const { return domainMax; }
    const Wm4::Vector3<float>& getDiscreteScale() const { return discreteScale; }
    const Wm4::Vector3<float>& getDiscreteInvScale() const { return discreteInvScale; }
    unsigned int getXYBitSize() const { return xyBitSize; }
    unsigned int getZBitSize() const { return zBitSize; }

private:
    Wm4::Matrix4<float> worldToClip;
    Wm4::Matrix4<float> clipToWorld;
    Wm4::Vector3<float> domainMin;
    Wm4::Vector3<float> domainMax;
    Wm4::Vector3<float> discreteScale;
    Wm4::Vector3<float> discreteInvScale;
    unsigned int xyBitSize;
    unsigned int zBitSize;
};

}  // namespace ctr

#endif
