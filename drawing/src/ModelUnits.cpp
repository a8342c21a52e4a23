#include "ctr/drawing/ModelUnits.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace contour {

LengthUnit SettleUnits(const std::vector<ImportedModel*>& models, std::optional<LengthUnit> forced) {
    if (forced) return *forced;
    const LengthUnit unit =
        !models.empty() && models[0]->statedUnit ? *models[0]->statedUnit : LengthUnit::kMillimetre;
    for (ImportedModel* model : models)
        if (model->statedUnit && *model->statedUnit != unit)
            ScaleModel(*model, MillimetresPer(*model->statedUnit) / MillimetresPer(unit));
    return unit;
}

void ScaleModel(ImportedModel& model, double factor) {
    for (qe::qePointer<qe::qeTriMesh>& mesh : model.meshes) {
        // Row vectors: scaling after the placement scales the first three
        // columns, the translation included.
        Wm4::Matrix4<float> rows = mesh->Local.GetMatrix();
        for (int row = 0; row < 4; ++row)
            for (int column = 0; column < 3; ++column)
                rows[row][column] = static_cast<float>(static_cast<double>(rows[row][column]) * factor);
        // A new instance of the same buffers: a host that lent the model
        // keeps its meshes as they were.
        qe::qePointer<qe::qeTriMesh> scaled = new qe::qeTriMesh(mesh->VBuffer, mesh->IBuffer);
        // The outline of a CAD part indexes the same vertices.
        for (int i = 0; i < mesh->GetMetadataQuantity(); ++i) scaled->AttachMetadata(mesh->GetMetadata(i));
        scaled->Local = qe::qeGenericTransformation<float>(rows);
        scaled->World = scaled->Local;
        scaled->WorldIsCurrent = true;
        scaled->UpdateMS(true, false, 0);
        scaled->UpdateGS();
        mesh = scaled;
    }
}

void MeasurePart(const std::vector<const qe::qeTriMesh*>& meshes, RunStats& run) {
    run.extentMM = LargestExtent(meshes) * MillimetresPer(run.unit);
    run.unitWarning = UnitWarning(run.extentMM, run.unit);
}

double LargestExtent(const std::vector<const qe::qeTriMesh*>& meshes) {
    double low[3], high[3];
    std::fill(low, low + 3, std::numeric_limits<double>::infinity());
    std::fill(high, high + 3, -std::numeric_limits<double>::infinity());
    for (const qe::qeTriMesh* mesh : meshes) {
        if (!mesh || !mesh->VBuffer) continue;
        const qe::qeVertexBuffer& vertices = *mesh->VBuffer;
        for (int i = 0; i < vertices.GetVertexQuantity(); ++i) {
            const Wm4::Vector3<float> p = mesh->World.ApplyForward(vertices.Position3(i), true);
            for (int axis = 0; axis < 3; ++axis) {
                low[axis] = std::min(low[axis], static_cast<double>(p[axis]));
                high[axis] = std::max(high[axis], static_cast<double>(p[axis]));
            }
        }
    }
    double extent = 0.0;
    for (int axis = 0; axis < 3; ++axis)
        if (low[axis] <= high[axis]) extent = std::max(extent, high[axis] - low[axis]);
    return extent;
}

std::string UnitWarning(double extentMM, LengthUnit unit) {
    const bool small = extentMM < kSmallestLikelyPartMM;
    if (!(extentMM > 0.0) || !(small || extentMM > kLargestLikelyPartMM)) return std::string();
    char text[160];
    std::snprintf(text, sizeof text, "part is %g mm across", extentMM);
    std::string warning = text;
    // The number as the file holds it, read in another unit. Small parts
    // are most often metres (glTF habits, scanners) or inches; huge ones
    // millimetres in a format taken for metres.
    const double number = extentMM / MillimetresPer(unit);
    const LengthUnit smaller[] = {LengthUnit::kMetre, LengthUnit::kInch, LengthUnit::kFoot, LengthUnit::kCentimetre};
    const LengthUnit larger[] = {LengthUnit::kMillimetre, LengthUnit::kCentimetre, LengthUnit::kInch,
                                 LengthUnit::kMicrometre};
    for (const LengthUnit candidate : small ? smaller : larger) {
        const double size = number * MillimetresPer(candidate);
        if (candidate != unit && size >= kSmallestLikelyPartMM && size <= kLargestLikelyPartMM)
            return warning + "; if it is in " + LengthUnitWords(candidate) + ", add --units " +
                   LengthUnitName(candidate);
    }
    return warning + (small ? ", smaller than any likely unit makes it" : ", larger than any likely unit makes it");
}

}  // namespace contour
