// The circle test rests on the fact that the perpendicular bisector plane of
// every chord passes through the circle's centre, and that the chords of a
// planar arc are all orthogonal to its plane normal. Both facts turn into
// running sums, so the tests below never revisit earlier segments.

#include "ctr/FittingSystem.h"

#include <cmath>
#include <limits>

namespace ctr {

namespace {

using Vec3d = Wm4::Vector3<double>;
using Vec3f = Wm4::Vector3<float>;

// sin(0.1 degree) squared, rounded: the tolerated mean squared sine between
// segment directions and the fitted line, or the fitted plane.
constexpr double kAngularTolerance = 3.04617e-6;
// Chords cut off part of the sector they span; a closed hexagon (ratio about
// 0.827) must still count as a circle, a closed pentagon (about 0.757) not.
constexpr double kMinAreaRatio = 0.825263276564015;
// The float 1.005 widened, not the double 1.005: results near the bound
// depend on the exact value.
constexpr double kMaxAreaRatio = static_cast<double>(1.005f);
constexpr double kFullTurn = 6.283185307179586;

Vec3d widen(const Vec3f& v) { return Vec3d(v[0], v[1], v[2]); }

struct Matrix3 {
    double m[3][3];
};

Matrix3 expand(const double* upper) {
    Matrix3 out;
    out.m[0][0] = upper[0];
    out.m[0][1] = out.m[1][0] = upper[1];
    out.m[0][2] = out.m[2][0] = upper[2];
    out.m[1][1] = upper[3];
    out.m[1][2] = out.m[2][1] = upper[4];
    out.m[2][2] = upper[5];
    return out;
}

// For a symmetric input the product is symmetric bit for bit, since every
// mirrored entry sums the same products in the same order.
Matrix3 multiply(const Matrix3& a, const Matrix3& b) {
    Matrix3 out;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) out.m[i][j] = a.m[i][0] * b.m[0][j] + a.m[i][1] * b.m[1][j] + a.m[i][2] * b.m[2][j];
    return out;
}

Matrix3 adjugate(const Matrix3& a) {
    const double(&m)[3][3] = a.m;
    Matrix3 out;
    out.m[0][0] = m[1][1] * m[2][2] - m[1][2] * m[2][1];
    out.m[0][1] = m[0][2] * m[2][1] - m[0][1] * m[2][2];
    out.m[0][2] = m[0][1] * m[1][2] - m[0][2] * m[1][1];
    out.m[1][0] = m[1][2] * m[2][0] - m[1][0] * m[2][2];
    out.m[1][1] = m[0][0] * m[2][2] - m[0][2] * m[2][0];
    out.m[1][2] = m[0][2] * m[1][0] - m[0][0] * m[1][2];
    out.m[2][0] = m[1][0] * m[2][1] - m[1][1] * m[2][0];
    out.m[2][1] = m[0][1] * m[2][0] - m[0][0] * m[2][1];
    out.m[2][2] = m[0][0] * m[1][1] - m[0][1] * m[1][0];
    return out;
}

void divideByLargestDiagonal(Matrix3& b) {
    double largest = b.m[0][0];
    if (b.m[1][1] > largest) largest = b.m[1][1];
    if (b.m[2][2] > largest) largest = b.m[2][2];
    for (auto& row : b.m)
        for (double& entry : row) entry /= largest;
}

// Plain division rather than Vector3::Normalize: a degenerate input must
// turn into NaNs that the final tests reject, not into a silent zero vector.
Vec3d normalized(const Vec3d& v) { return v / v.Length(); }

Vec3d apply(const double* upper, const Vec3d& v) {
    return Vec3d(upper[0] * v[0] + upper[1] * v[1] + upper[2] * v[2],
                 upper[1] * v[0] + upper[3] * v[1] + upper[4] * v[2],
                 upper[2] * v[0] + upper[4] * v[1] + upper[5] * v[2]);
}

double quadratic(const double* upper, const Vec3d& v) { return v.Dot(apply(upper, v)); }

// Power iteration by repeated squaring: a fixed amount of work, no
// convergence test. For the smallest eigenvalue the adjugate of A + sI is
// used; A's eigenvalues lie in [0, s], so it is positive definite and its
// dominant eigenvector is the one sought.
Vec3d dominantEigenvector(const double* upper, double segmentCount, bool smallest) {
    const Matrix3 a = expand(upper);
    Matrix3 b;
    if (smallest) {
        Matrix3 shifted = a;
        for (int i = 0; i < 3; ++i) shifted.m[i][i] += segmentCount;
        b = adjugate(shifted);
    } else {
        b = multiply(a, a);
    }
    divideByLargestDiagonal(b);
    for (int step = 1; step <= 8; ++step) {
        b = multiply(b, b);
        if (step == 2 || step == 4 || step == 6) divideByLargestDiagonal(b);
    }
    int column = 0;
    if (b.m[2][2] > b.m[0][0] && b.m[2][2] > b.m[1][1])
        column = 2;
    else if (b.m[1][1] > b.m[0][0])
        column = 1;
    return normalized(Vec3d(b.m[0][column], b.m[1][column], b.m[2][column]));
}

// Of the x and y axes, the one less aligned with v keeps the cross product
// well away from zero length.
Vec3d perpendicularUnit(const Vec3d& v) {
    const Vec3d axis = std::fabs(v[1]) >= std::fabs(v[0]) ? Vec3d(1.0, 0.0, 0.0) : Vec3d(0.0, 1.0, 0.0);
    return normalized(v.Cross(axis));
}

}  // namespace

FittingSystem::FittingSystem()
    : directionMatrix{},
      arcArea(0.0),
      orientation(false),
      frameReady(false),
      directionConsistent(false),
      sumSquaredOffsets(0.0),
      segmentCount(0.0) {}

void FittingSystem::reset() { *this = FittingSystem(); }

bool FittingSystem::addToSystem(const Wm4::Vector3<float>& a, const Wm4::Vector3<float>& b, bool atStart,
                                bool circleMode) {
    const Vec3d pa = widen(a);
    const Vec3d pb = widen(b);
    const Vec3d d = pb - pa;
    const double length = d.Length();
    if (length == 0.0) return false;

    const Vec3d n = d / length;
    directionMatrix[0] += n[0] * n[0];
    directionMatrix[1] += n[0] * n[1];
    directionMatrix[2] += n[0] * n[2];
    directionMatrix[3] += n[1] * n[1];
    directionMatrix[4] += n[1] * n[2];
    directionMatrix[5] += n[2] * n[2];
    segmentCount += 1.0;
    const double offset = (pa + pb).Dot(n) * 0.5;
    planeRhs += n * offset;
    sumSquaredOffsets += offset * offset;

    if (segmentCount == 1.0) {
        startPoint = a;
        endPoint = b;
        arcArea = 0.0;
        directionConsistent = true;
        firstDirection = b - a;
        return true;
    }

    if (!circleMode) {
        // Growing at the start walks against the first segment's direction,
        // growing at the end walks with it; a turn back breaks the line even
        // when all directions stay parallel.
        if (directionConsistent) directionConsistent = (((b - a).Dot(firstDirection) < 0.0f) == atStart);
        return true;
    }

    if (arcArea < 0.0) return true;
    Vec3d normal, center;
    // A failed fit may only mean too little evidence yet, so the chain is
    // left open rather than marked.
    if (!computeCircleNormalCenter(a, normal, center)) return true;

    if (!frameReady) {
        const Vec3d p0 = widen(startPoint);
        const Vec3d p1 = widen(endPoint);
        const Vec3d r0 = p0 - center;
        const Vec3d r1 = p1 - center;
        const Vec3d e = p1 - p0;
        startTangent = r0.Cross(normal);
        endTangent = normal.Cross(r1);
        orientation = endTangent.Dot(e) > 0.0;
        arcArea += r0.Cross(e).Length() / 2.0;
        frameCenter = center;
        frameNormal = normal;
        frameReady = true;
        // Arcs tessellated from one curve have chords of similar length; a
        // much longer or shorter neighbour belongs to something else.
        const double dSquared = d.SquaredLength();
        const double eSquared = e.SquaredLength();
        if (dSquared > 9.0 * eSquared || eSquared * (1.0 / 9.0) > dSquared) {
            arcArea = -1.0;
            return true;
        }
    }

    const bool turnsForward = atStart ? d.Dot(startTangent) > 0.0 : d.Dot(endTangent) > 0.0;
    if (turnsForward != orientation) {
        arcArea = -1.0;
        return true;
    }

    Vec3f& chainEnd = atStart ? startPoint : endPoint;
    if (chainEnd == a) {
        chainEnd = b;
    } else if (chainEnd == b) {
        chainEnd = a;
    } else {
        arcArea = -1.0;
        return true;
    }

    // Taken at b even when the chain end matched b and so moved to a: later
    // tangent tests, and with them which chains count as arcs, depend on it.
    const Vec3d rb = pb - center;
    if (atStart)
        startTangent = -normal.Cross(rb);
    else
        endTangent = normal.Cross(rb);
    arcArea += rb.Cross(d).Length() / 2.0;
    return true;
}

bool FittingSystem::fitLine() const {
    if (!directionConsistent) return false;
    const Vec3d e = dominantEigenvector(directionMatrix, segmentCount, false);
    const Vec3d u = perpendicularUnit(e);
    const Vec3d w = u.Cross(e);
    // The right side is the sum of squared sines between each direction and
    // the line; positions need no test for a connected chain.
    return kAngularTolerance * segmentCount > quadratic(directionMatrix, u) + quadratic(directionMatrix, w);
}

bool FittingSystem::couldFitCircle() const { return segmentCount >= 2.0; }

bool FittingSystem::fitCircle(float* angle) const {
    if (arcArea <= 0.0) return false;
    Vec3d axisV, axisU, normal;
    if (!fitCircleFrame(axisV, axisU, normal)) return false;
    return fitCircleSurface(axisV, axisU, angle);
}

bool FittingSystem::fitCircleFrame(Wm4::Vector3<double>& axisV, Wm4::Vector3<double>& axisU,
                                   Wm4::Vector3<double>& normal) const {
    if (segmentCount < 2.0) return false;
    // Before the frame exists frameCenter is the origin, so this is the start
    // point's distance from it; the tolerance below depends on that.
    const double radius = (frameCenter - widen(startPoint)).Length();
    if (radius == 0.0) return false;
    normal = dominantEigenvector(directionMatrix, segmentCount, true);
    // Scaled by a length although the sum is dimensionless: the tolerance is
    // tuned to that and must stay so.
    if (quadratic(directionMatrix, normal) > kAngularTolerance * segmentCount * radius) return false;
    axisU = perpendicularUnit(normal);
    axisV = axisU.Cross(normal);
    return true;
}

bool FittingSystem::fitCircleCenter(const Wm4::Vector3<float>& point, const Wm4::Vector3<double>& axisV,
                                    const Wm4::Vector3<double>& axisU, Wm4::Vector3<double>& center) const {
    const Vec3d p = widen(point);
    const Vec3d& x = axisV;
    const Vec3d& y = axisU;
    const Vec3d r = planeRhs - apply(directionMatrix, p);
    const Vec3d ax = apply(directionMatrix, x);
    const double xax = x.Dot(ax);
    const double yay = quadratic(directionMatrix, y);
    const double xay = y.Dot(ax);
    const double xr = x.Dot(r);
    const double yr = y.Dot(r);
    // A singular 2x2 system yields non-finite values that fail the final test.
    const double det = xax * yay - xay * xay;
    const double alpha = (yay * xr - xay * yr) / det;
    const double beta = (xax * yr - xay * xr) / det;
    const Vec3d shift = x * alpha + y * beta;
    center = p + shift;
    const double residual = quadratic(directionMatrix, center) - 2.0 * planeRhs.Dot(center) + sumSquaredOffsets;
    // Root-mean-square distance from the bisector planes below 1% of the
    // distance moved from point.
    return shift.SquaredLength() * segmentCount * 0.0001 > residual;
}

bool FittingSystem::fitCircleSurface(const Wm4::Vector3<double>& axisV, const Wm4::Vector3<double>& axisU,
                                     float* angle) const {
    Vec3d center;
    if (!fitCircleCenter(startPoint, axisV, axisU, center)) return false;
    const Vec3d start = widen(startPoint);
    const Vec3d r0 = start - center;
    const double radiusSquared = r0.SquaredLength();
    if (radiusSquared == 0.0) return false;
    // A centre that jumped past the start point describes the opposite bend.
    if ((start - frameCenter).Dot(r0) < 0.0) return false;

    double theta;
    // A NaN z alone does not rule out the closed case; NaN x or y does.
    const bool zMatches = std::isnan(startPoint[2]) || std::isnan(endPoint[2]) || startPoint[2] == endPoint[2];
    if (startPoint[0] == endPoint[0] && startPoint[1] == endPoint[1] && zMatches) {
        theta = kFullTurn;
    } else {
        const Vec3d u0 = r0 / r0.Length();
        const Vec3d r1 = widen(endPoint) - center;
        const double length1 = r1.Length();
        // A NaN length is deliberately not caught here: it stays NaN.
        Vec3d u1;
        if (!(length1 == 0.0 || 1.0 / length1 > std::numeric_limits<double>::max())) u1 = r1 / length1;
        // Unclamped: rounding beyond 1 gives NaN, which the ratio test rejects.
        theta = std::acos(u0.Dot(u1));
        if ((frameNormal.Cross(u0).Dot(u1) > 0.0) != orientation) theta = kFullTurn - theta;
    }
    if (angle != nullptr) *angle = static_cast<float>(theta);

    // The chords' triangles against the circular sector they span; written so
    // that a NaN ratio fails.
    const double sector = radiusSquared * 0.5 * theta;
    const double ratio = arcArea / sector;
    return ratio >= kMinAreaRatio && ratio < kMaxAreaRatio;
}

bool FittingSystem::computeCircleNormalCenter(const Wm4::Vector3<float>& point, Wm4::Vector3<double>& normal,
                                              Wm4::Vector3<double>& center) const {
    Vec3d axisV, axisU;
    if (!fitCircleFrame(axisV, axisU, normal)) return false;
    return fitCircleCenter(point, axisV, axisU, center);
}

bool FittingSystem::computeCircleNormalCenter(const Wm4::Vector3<float>& point, Wm4::Vector3<float>& normal,
                                              Wm4::Vector3<float>& center) const {
    Vec3d normalD, centerD;
    if (!computeCircleNormalCenter(point, normalD, centerD)) return false;
    normal = Vec3f(static_cast<float>(normalD[0]), static_cast<float>(normalD[1]), static_cast<float>(normalD[2]));
    center = Vec3f(static_cast<float>(centerD[0]), static_cast<float>(centerD[1]), static_cast<float>(centerD[2]));
    return true;
}

}  // namespace ctr
