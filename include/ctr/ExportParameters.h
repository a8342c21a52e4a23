// How the camera's view is laid on a drawing sheet measured in millimetres.
#ifndef CTR_EXPORTPARAMETERS_H
#define CTR_EXPORTPARAMETERS_H

#include "Wm4Matrix2.h"
#include "Wm4Vector2.h"

#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/Export.h"

namespace ctr {

// Maps normalised device coordinates (u, v) of the camera to sheet
// coordinates X = m00 u + m01 v + offset.x, Y = m10 u + m11 v + offset.y,
// with Y growing upwards and the view centred on the sheet.
class CTR_API ExportParameters {
public:
    // A4 portrait, with the transform already computed.
    explicit ExportParameters(const DiscreteProjectionSpace& space);

    // Stores the size only: call computeBestFitTransform() afterwards.
    void setPageSizeInMM(const Wm4::Vector2<float>& size);
    // Fits the view's aspect ratio onto the sheet, touching its limiting
    // edges, without margin.
    void computeBestFitTransform();
    // World length that one millimetre of the sheet stands for, at the near
    // plane of a perspective camera.
    float getWorldUnitsPerMM() const;
    // Places the view by a mapping of the host's instead of the best fit (a
    // view at a fixed scale, one of several on a sheet), until the best fit
    // is computed again. getBestFitTransform() then returns this transform.
    void setTransform(const Wm4::Matrix2<float>& transform, const Wm4::Vector2<float>& offset);

    const DiscreteProjectionSpace& getProjectionSpace() const { return projectionSpace; }
    const Wm4::Vector2<float>& getPageSizeInMM() const { return pageSizeInMM; }
    const Wm4::Matrix2<float>& getBestFitTransform() const { return bestFitTransform; }
    const Wm4::Vector2<float>& getPageOffset() const { return pageOffset; }

    // The place of a world point on the sheet, in millimetres with y
    // pointing down, as every writer of page coordinates computes it (in
    // float, in this order). Points are those of segments already cut to the
    // view, so w is not tested.
    Wm4::Vector2<float> worldToSheet(const Wm4::Vector3<float>& world) const;

private:
    DiscreteProjectionSpace projectionSpace;
    Wm4::Vector2<float> pageSizeInMM;
    Wm4::Matrix2<float> bestFitTransform;
    Wm4::Vector2<float> pageOffset;
};

}  // namespace ctr

#endif
