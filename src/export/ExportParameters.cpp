#include "ctr/ExportParameters.h"

#include "Wm4Math.h"
#include "Wm4Vector3.h"
#include "Wm4Vector4.h"

namespace ctr {

namespace {

// A4 portrait.
constexpr float kDefaultPageWidthMM = 210.0f;
constexpr float kDefaultPageHeightMM = 297.0f;

// A device point on the near plane taken back to world space. A point at
// infinity (w exactly 0) is pushed to the largest float instead of dividing.
Wm4::Vector3<float> UnprojectNear(const Wm4::Matrix4<float>& clipToWorld, float x, float y) {
    const Wm4::Vector4<float> h = Wm4::Vector4<float>(x, y, -1.0f, 1.0f) * clipToWorld;
    if (h[3] == 0.0f)
        return Wm4::Vector3<float>(Wm4::Math<float>::MAX_REAL, Wm4::Math<float>::MAX_REAL, Wm4::Math<float>::MAX_REAL);
    return Wm4::Vector3<float>(h[0] / h[3], h[1] / h[3], h[2] / h[3]);
}

}  // namespace

ExportParameters::ExportParameters(const DiscreteProjectionSpace& space)
    : projectionSpace(space),
      pageSizeInMM(kDefaultPageWidthMM, kDefaultPageHeightMM),
      bestFitTransform(true),
      pageOffset() {
    computeBestFitTransform();
}

void ExportParameters::setPageSizeInMM(const Wm4::Vector2<float>& size) { pageSizeInMM = size; }

void ExportParameters::computeBestFitTransform() {
    const Wm4::Vector2<float> frustum = projectionSpace.computeFrustumSizeXY();
    const float sx = frustum[0];
    const float sy = frustum[1];
    const float halfWidth = pageSizeInMM[0] * 0.5f;
    const float halfHeight = pageSizeInMM[1] * 0.5f;
    // Written as "height limits unless the width does" so that a NaN quotient
    // (unordered comparison) falls to the height-limited branch.
    if (pageSizeInMM[1] / sy >= pageSizeInMM[0] / sx) {
        bestFitTransform = Wm4::Matrix2<float>(halfWidth, 0.0f, 0.0f, (sy / sx) * halfWidth);
    } else {
        bestFitTransform = Wm4::Matrix2<float>((sx / sy) * halfHeight, 0.0f, 0.0f, halfHeight);
    }
    pageOffset = Wm4::Vector2<float>(halfWidth, halfHeight);
}

void ExportParameters::setTransform(const Wm4::Matrix2<float>& transform, const Wm4::Vector2<float>& offset) {
    bestFitTransform = transform;
    pageOffset = offset;
}

Wm4::Vector2<float> ExportParameters::worldToSheet(const Wm4::Vector3<float>& world) const {
    const Wm4::Vector4<float> clip =
        Wm4::Vector4<float>(world[0], world[1], world[2], 1.0f) * projectionSpace.getWorldToClip();
    const float u = clip[0] / clip[3];
    const float v = clip[1] / clip[3];
    const float x = bestFitTransform[0][0] * u + bestFitTransform[0][1] * v + pageOffset[0];
    const float y = bestFitTransform[1][0] * u + bestFitTransform[1][1] * v + pageOffset[1];
    return Wm4::Vector2<float>(x, pageSizeInMM[1] - y);
}

float ExportParameters::getWorldUnitsPerMM() const {
    const float width = pageSizeInMM[0];
    // A width on the sheet is a direction, so the page offset plays no part.
    const Wm4::Vector2<float> device = bestFitTransform.Inverse() * Wm4::Vector2<float>(width, 0.0f);
    const Wm4::Matrix4<float>& clipToWorld = projectionSpace.getClipToWorld();
    const Wm4::Vector3<float> origin = UnprojectNear(clipToWorld, 0.0f, 0.0f);
    const Wm4::Vector3<float> end = UnprojectNear(clipToWorld, device[0], device[1]);
    return (end - origin).Length() / width;
}

}  // namespace ctr
