// Bringing the models of one drawing into one unit, and noticing a part
// whose size suggests that its file was read in the wrong unit.
#ifndef CTR_DRAWING_MODELUNITS_H
#define CTR_DRAWING_MODELUNITS_H

#include <optional>
#include <string>
#include <vector>

#include "qe/qeTriMesh.h"

#include "ctr/drawing/Job.h"
#include "ctr/drawing/ModelImport.h"
#include "ctr/drawing/Units.h"

namespace contour {

// The drawing's unit: forced when given (every model is then taken to be in
// it, whatever it states), otherwise the first model's stated unit, or
// millimetres. Without forcing, a model (drawn or occluding) that states
// another unit is scaled into the drawing's, so that mixed files line up; a
// model that states none is taken to be in the drawing's unit.
LengthUnit SettleUnits(const std::vector<ImportedModel*>& models, std::optional<LengthUnit> forced);

// Scales every mesh instance of model by factor about the origin, through
// its world transformation: the instances are replaced by new ones of the
// same vertex and index buffers, which stay as they were.
void ScaleModel(ImportedModel& model, double factor);

// The largest side of the world-space box of the meshes' vertices; 0 when
// there is none.
double LargestExtent(const std::vector<const qe::qeTriMesh*>& meshes);

// Parts of engineering drawings lie between these; outside them the file's
// unit was most likely taken wrongly.
constexpr double kSmallestLikelyPartMM = 1.0;
constexpr double kLargestLikelyPartMM = 100000.0;

// One line naming a likely unit when a part extentMM across (measured in
// unit) is implausibly small or large, e.g. "part is 0.047 mm across; if it
// is in metres, add --units m"; empty when its size is plausible.
std::string UnitWarning(double extentMM, LengthUnit unit);

// Fills in the extent of the drawn meshes and the warning of run, whose
// unit is the drawing's.
void MeasurePart(const std::vector<const qe::qeTriMesh*>& meshes, RunStats& run);

}  // namespace contour

#endif
