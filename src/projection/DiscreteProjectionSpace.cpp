// Clipping follows Sutherland and Hodgman, "Reentrant polygon clipping"
// (CACM 1974), in homogeneous coordinates so that points behind the viewer
// (w <= 0) are handled by the same six plane tests as all others.

#include "ctr/DiscreteProjectionSpace.h"

#include <algorithm>

#include "exact/Exact.h"

namespace ctr {

namespace {

// Planes are visited in the order min x, max x, min y, max y, min z, max z;
// plane p is on axis p / 2 and is the upper one when p is odd.
constexpr int kPlaneQuantity = 6;

bool isOutside(const Wm4::Vector4<float>& point, int axis, bool upper, float bound) {
    return upper ? point[axis] > bound * point[3] : bound * point[3] > point[axis];
}

// The crossing of segment p->q with the plane (axis, bound), computed from the
// midpoint rather than from an end, so that the result does not depend on
// which end is inside. d is q - p. Writes the point and returns its parameter
// s measured from the midpoint (the parameter along p->q is s + 0.5).
float intersectPlane(const Wm4::Vector4<float>& p, const Wm4::Vector4<float>& q, const Wm4::Vector4<float>& d, int axis,
                     float bound, Wm4::Vector4<float>& point) {
    const Wm4::Vector4<float> middle((p[0] + q[0]) * 0.5f, (p[1] + q[1]) * 0.5f, (p[2] + q[2]) * 0.5f,
                                     (p[3] + q[3]) * 0.5f);
    const float s = (middle[3] * bound - middle[axis]) / (d[axis] - d[3] * bound);
    for (int c = 0; c < 4; ++c) point[c] = middle[c] + s * d[c];
    return s;
}

// 2^bits - 1 as the unsigned 32-bit value it is, then to float through int32;
// widths beyond 31 bits cannot be held by the grid and saturate there.
float axisRange(unsigned int bits) {
    const uint32_t range = bits >= 31 ? 0x7FFFFFFFu : (1u << bits) - 1u;
    return static_cast<float>(static_cast<int32_t>(range));
}

// A grid point in homogeneous world coordinates, before the division by w.
Wm4::Vector4<float> gridToHomogeneousWorld(const DiscreteProjectionSpace& space, int32_t x, int32_t y, int32_t z) {
    const Wm4::Vector3<float>& invScale = space.getDiscreteInvScale();
    const Wm4::Vector3<float>& domainMin = space.getDomainMin();
    const Wm4::Vector4<float> ndc(static_cast<float>(x) * invScale[0] + domainMin[0],
                                  static_cast<float>(y) * invScale[1] + domainMin[1],
                                  static_cast<float>(z) * invScale[2] + domainMin[2], 1.0f);
    return ndc * space.getClipToWorld();
}

}  // namespace

DiscreteProjectionSpace::DiscreteProjectionSpace()
    : worldToClip(false),
      clipToWorld(false),
      domainMin(-1.0f, -1.0f, -1.0f),
      domainMax(1.0f, 1.0f, 1.0f),
      xyBitSize(20),
      zBitSize(20) {
    updateRatios();
}

void DiscreteProjectionSpace::setViewProjection(const Wm4::Matrix4<float>& worldToClipMatrix,
                                                const Wm4::Matrix4<float>& clipToWorldMatrix) {
    worldToClip = worldToClipMatrix;
    clipToWorld = clipToWorldMatrix;
}

void DiscreteProjectionSpace::setDomain(const Wm4::Vector3<float>& minimum, const Wm4::Vector3<float>& maximum) {
    domainMin = minimum;
    domainMax = maximum;
}

bool DiscreteProjectionSpace::setVoxelBitSize(unsigned int xyBits, unsigned int zBits) {
    // Summed in 64 bits so that huge arguments cannot wrap below the bound.
    if (xyBits <= 1 || zBits <= 1 ||
        static_cast<uint64_t>(zBits) + 2u * static_cast<uint64_t>(xyBits) > exact::kMaxBudgetBits)
        return false;
    xyBitSize = xyBits;
    zBitSize = zBits;
    updateRatios();
    return true;
}

void DiscreteProjectionSpace::updateRatios() {
    const Wm4::Vector2<float> frustum = computeFrustumSizeXY();
    const float dx = domainMax[0] - domainMin[0];
    const float dy = domainMax[1] - domainMin[1];
    const float dz = domainMax[2] - domainMin[2];
    const float rangeXY = axisRange(xyBitSize);
    const float rangeZ = axisRange(zBitSize);
    const float ex = frustum[0] * dx;
    const float ey = frustum[1] * dy;
    float sx, sy;
    // A NaN proportional range passes the lower bound of 1 unchanged.
    if (ex >= ey) {
        sx = rangeXY;
        const float proportional = ey * rangeXY / ex;
        sy = 1.0f > proportional ? 1.0f : proportional;
    } else {
        sy = rangeXY;
        const float proportional = ex * rangeXY / ey;
        sx = 1.0f > proportional ? 1.0f : proportional;
    }
    discreteScale = Wm4::Vector3<float>(sx / dx, sy / dy, rangeZ / dz);
    discreteInvScale = Wm4::Vector3<float>(dx / sx, dy / sy, dz / rangeZ);
}

Wm4::Vector2<float> DiscreteProjectionSpace::computeFrustumSizeXY() const {
    const auto toWorld = [this](float x, float y) {
        const Wm4::Vector4<float> h = Wm4::Vector4<float>(x, y, 0.0f, 1.0f) * clipToWorld;
        return Wm4::Vector3<float>(h[0] / h[3], h[1] / h[3], h[2] / h[3]);
    };
    const Wm4::Vector3<float> origin = toWorld(0.0f, 0.0f);
    return Wm4::Vector2<float>((toWorld(1.0f, 0.0f) - origin).Length(), (toWorld(0.0f, 1.0f) - origin).Length());
}

bool DiscreteProjectionSpace::clipTriangle(Wm4::Vector4<float>*& polygon, Wm4::Vector4<float>*& scratch,
                                           unsigned int& count, unsigned int& edgeCodes) const {
    unsigned int n = 3;
    unsigned int codes = 57;
    for (int plane = 0; plane < kPlaneQuantity; ++plane) {
        const int axis = plane / 2;
        const bool upper = (plane & 1) != 0;
        const float bound = upper ? domainMax[axis] : domainMin[axis];

        // Outsideness kept as flags: an equivalent loop over a bit mask was
        // miscompiled by g++ 12.2 at -O2 (it dropped one crossing; disabling
        // value-range propagation restored it, and the sanitizers saw no
        // undefined behaviour).
        bool outside[kMaxClipVertices];
        unsigned int outsideCount = 0;
        for (unsigned int i = 0; i < n; ++i) {
            outside[i] = isOutside(polygon[i], axis, upper, bound);
            outsideCount += outside[i];
        }
        if (outsideCount == n) return false;
        if (outsideCount == 0) continue;

        // A convex polygon gains at most one vertex per plane; rounding can
        // make a sliver cross a plane more than twice, and such a polygon is
        // dropped rather than allowed to overrun the buffers.
        unsigned int crossings = 0;
        for (unsigned int i = 0; i < n; ++i) crossings += outside[i] != outside[i == 0 ? n - 1 : i - 1];
        if (n - outsideCount + crossings > kMaxClipVertices) return false;

        unsigned int emitted = 0;
        unsigned int emittedCodes = 0;
        for (unsigned int i = 0; i < n; ++i) {
            const unsigned int prev = i == 0 ? n - 1 : i - 1;
            const unsigned int code = (codes >> (2 * i)) & 3u;
            if (outside[i] != outside[prev]) {
                const Wm4::Vector4<float> d = polygon[i] - polygon[prev];
                intersectPlane(polygon[prev], polygon[i], d, axis, bound, scratch[emitted]);
                emittedCodes |= (outside[i] ? code : 0u) << (2 * emitted);
                ++emitted;
            }
            if (!outside[i]) {
                scratch[emitted] = polygon[i];
                emittedCodes |= code << (2 * emitted);
                ++emitted;
            }
        }
        std::swap(polygon, scratch);
        n = emitted;
        codes = emittedCodes;
    }
    count = n;
    edgeCodes = codes;
    return true;
}

unsigned int DiscreteProjectionSpace::computeOutsidePlanes(const Wm4::Vector4<float>& clipPoint) const {
    unsigned int planes = 0;
    for (int plane = 0; plane < kPlaneQuantity; ++plane) {
        const int axis = plane / 2;
        const bool upper = (plane & 1) != 0;
        const float bound = upper ? domainMax[axis] : domainMin[axis];
        planes |= static_cast<unsigned int>(isOutside(clipPoint, axis, upper, bound)) << plane;
    }
    return planes;
}

std::pair<float, float> DiscreteProjectionSpace::clipEdgeWorld(const Wm4::Vector3<float>& a,
                                                               const Wm4::Vector3<float>& b, BakedVertex& outA,
                                                               BakedVertex& outB, float& wA, float& wB) const {
    Wm4::Vector4<float> clipA = Wm4::Vector4<float>(a[0], a[1], a[2], 1.0f) * worldToClip;
    Wm4::Vector4<float> clipB = Wm4::Vector4<float>(b[0], b[1], b[2], 1.0f) * worldToClip;
    float tA = 0.0f;
    float tB = 1.0f;
    for (int plane = 0; plane < kPlaneQuantity; ++plane) {
        const int axis = plane / 2;
        const bool upper = (plane & 1) != 0;
        const float bound = upper ? domainMax[axis] : domainMin[axis];
        const bool outsideA = isOutside(clipA, axis, upper, bound);
        const bool outsideB = isOutside(clipB, axis, upper, bound);
        if (outsideA && outsideB) return {1.0f, 0.0f};
        if (!outsideA && !outsideB) continue;
        Wm4::Vector4<float> point;
        const float s = intersectPlane(clipA, clipB, clipB - clipA, axis, bound, point);
        const float t = (s + 0.5f) * (tB - tA) + tA;
        if (outsideA) {
            clipA = point;
            tA = t;
        } else {
            clipB = point;
            tB = t;
        }
    }
    outA = quantizeClipPoint(clipA);
    outB = quantizeClipPoint(clipB);
    wA = clipA[3];
    wB = clipB[3];
    return {tA, tB};
}

int32_t DiscreteProjectionSpace::getGridLimit(int axis) const {
    const unsigned int bits = axis < 2 ? xyBitSize : zBitSize;
    return bits >= 31 ? std::numeric_limits<int32_t>::max() : static_cast<int32_t>(1u << bits);
}

int32_t DiscreteProjectionSpace::quantizeScaled(float scaled, int axis) const {
    const int32_t value = exact::FloatToInt32(scaled);
    return std::min(std::max(value, 0), getGridLimit(axis));
}

BakedVertex DiscreteProjectionSpace::quantizeClipPoint(const Wm4::Vector4<float>& clipPoint) const {
    int32_t grid[3];
    for (int axis = 0; axis < 3; ++axis) {
        float u = clipPoint[axis] / clipPoint[3];
        if (u > domainMax[axis]) u = domainMax[axis];
        if (u < domainMin[axis]) u = domainMin[axis];
        grid[axis] = quantizeScaled((u - domainMin[axis]) * discreteScale[axis], axis);
    }
    return BakedVertex{grid[0], grid[1], grid[2]};
}

Wm4::Vector3<float> DiscreteProjectionSpace::discreteToWorld(int32_t x, int32_t y, int32_t z) const {
    const Wm4::Vector4<float> h = gridToHomogeneousWorld(*this, x, y, z);
    return Wm4::Vector3<float>(h[0] / h[3], h[1] / h[3], h[2] / h[3]);
}

Wm4::Vector3<float> DiscreteProjectionSpace::gridToWorld(const BakedVertex& point) const {
    const Wm4::Vector4<float> h = gridToHomogeneousWorld(*this, point.x, point.y, point.z);
    const float inverseW = 1.0f / h[3];
    return Wm4::Vector3<float>(h[0] * inverseW, h[1] * inverseW, h[2] * inverseW);
}

}  // namespace ctr
