// A multi-view engineering sheet: front, top and side views in the
// arrangement of a projection method, and an iso view, at one standard scale
// on one page, with a frame and a title block.
#ifndef CTR_DRAWING_SHEET_H
#define CTR_DRAWING_SHEET_H

#include <optional>
#include <string>
#include <vector>

#include "Wm4Vector3.h"

#include "qe/qeTriMesh.h"

#include "ctr/drawing/Camera.h"
#include "ctr/drawing/Drawing.h"
#include "ctr/SheetLayout.h"

namespace contour {

struct SheetOptions {
    ctr::ProjectionMethod projection = ctr::ProjectionMethod::kThirdAngle;
    // The title block's entries, as given; the writer escapes them.
    std::string title;
    std::string partNumber;
    std::string drawnBy;
    std::string date;  // ISO 8601
    // A scale to draw at instead of the largest standard one that fits;
    // refused (DrawingStats::optionRefused) when the views do not fit at it.
    std::optional<ctr::SheetScale> scale;
    // The side the front view shows; unset, the most informative of the four
    // sides around up (ChooseFrontSide).
    std::optional<Wm4::Vector3<double>> front;
    // Pictorial views conventionally leave hidden lines out; this draws them
    // in the iso view as well when hidden lines are drawn.
    bool isoHidden = false;
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
    // How much of the room for views they take along the limiting direction
    // at the scale (1 when no smaller scale step is left), and the share of
    // the frame's area that their boxes cover.
    double span = 0.0;
    double areaShare = 0.0;
};

// The cameras, the scale and the place of every view, with the front view
// showing the side options.camera.front (unset: the conventional one): the
// largest standard scale at which the four views fit the frame above the
// title block (or sheet.scale, when it is given and they fit at it), the top
// view sharing the front view's x, the side view its y, the blank space
// shared evenly around them. False with a one-line reason; refused is set
// when only the forced scale is at fault.
bool LayOutSheet(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
                 const DrawingOptions& options, const SheetOptions& sheet, SheetLayout& layout, std::string& error,
                 bool* refused = nullptr);

// How informative a side is as the front view: the length of its visible
// lines in world units, and of its hidden ones.
struct SideScore {
    double visible = 0.0;
    double hidden = 0.0;
};
// The most informative side: the most visible line length, ties (within a
// part in a million, as mirror-image sides measure alike up to rounding)
// broken by the least hidden line length, then by the order given. -1 for
// no side.
int ChooseFrontSide(const std::vector<SideScore>& sides);

// Draws the sheet into svgPath: every view through the same pipeline as a
// single view, each in groups of its own inside the layers of lines. Without
// sheet.front the four sides around up are computed first and the most
// informative becomes the front view (two of them are then reused as the
// front and side views). The meshes are prepared once for all views; with an
// executor, the views of a model that is not too large are computed side by
// side, one per thread, else one after another with the executor inside
// each: the file is the same either way. stats sums the views (the camera
// and fit are the front view's; views computed side by side share their
// wall time among their phases) and records the front side and the fill.
// Fails as DrawToSVG does, and with stats.optionRefused when the forced
// scale is too large.
bool DrawSheet(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
               const DrawingOptions& options, const SheetOptions& sheet, const std::string& svgPath,
               DrawingStats& stats, std::string& error, ctr::Executor* executor = nullptr,
               DrawingMonitor* monitor = nullptr);
// The same sheet of a prepared model (its meshes and occluders), prepared
// by the caller once for any number of sheets and views; several may be
// drawn from it at once, on different threads.
bool DrawSheet(const ctr::PreparedModel& model, const DrawingOptions& options, const SheetOptions& sheet,
               const std::string& svgPath, DrawingStats& stats, std::string& error, ctr::Executor* executor = nullptr,
               DrawingMonitor* monitor = nullptr);

// Today's date as ISO 8601 (UTC), or the date of SOURCE_DATE_EPOCH when it is
// set, so that builds of documents can be reproduced.
std::string SheetDate();

}  // namespace contour

#endif
