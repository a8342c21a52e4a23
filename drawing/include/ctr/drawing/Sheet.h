// A multi-view engineering sheet: front, top and side views in the
// arrangement of a projection method, and an iso view, at one standard scale
// on one page, with a frame and a title block.
#ifndef CTR_DRAWING_SHEET_H
#define CTR_DRAWING_SHEET_H

#include <string>
#include <vector>

#include "qe/qeTriMesh.h"

#include "ctr/drawing/Camera.h"
#include "ctr/drawing/Drawing.h"
#include "ctr/SheetLayout.h"

namespace contour {

struct SheetOptions {
    ctr::ProjectionMethod projection = ctr::ProjectionMethod::kThirdAngle;
    std::string title;  // as given; the writer escapes it
    std::string date;   // ISO 8601
};

// One view of the sheet as laid out.
struct SheetView {
    const char* name = "";  // "front", "top", "right", "left" or "iso"
    ViewPreset preset = ViewPreset::kFront;
    CameraMatrices camera;
    // Where the centre of the camera's window lands, in sheet millimetres
    // with y up.
    double windowCentre[2] = {0.0, 0.0};
    // The model's box in this view, in sheet millimetres with y up.
    double box[4] = {0.0, 0.0, 0.0, 0.0};  // min x, min y, max x, max y
};

struct SheetLayout {
    ctr::SheetScale scale;
    std::vector<SheetView> views;  // front, top, side, iso
};

// The cameras, the scale and the place of every view: the largest standard
// scale at which the four views fit the frame above the title block, the top
// view sharing the front view's x, the side view its y. False with a
// one-line reason.
bool LayOutSheet(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
                 const DrawingOptions& options, ctr::ProjectionMethod projection, SheetLayout& layout,
                 std::string& error);

// Draws the sheet into svgPath: every view through the same pipeline as a
// single view, each in groups of its own inside the layers of lines. stats
// sums the views (the camera and fit are the front view's). Fails as
// DrawToSVG does.
bool DrawSheet(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
               const DrawingOptions& options, const SheetOptions& sheet, const std::string& svgPath,
               DrawingStats& stats, std::string& error, ctr::Executor* executor = nullptr,
               DrawingMonitor* monitor = nullptr);

// Today's date as ISO 8601 (UTC), or the date of SOURCE_DATE_EPOCH when it is
// set, so that builds of documents can be reproduced.
std::string SheetDate();

}  // namespace contour

#endif
