// From meshes and a camera to an SVG file: the library's pipeline as the tool
// drives it.
#ifndef CTR_DRAWING_DRAWING_H
#define CTR_DRAWING_DRAWING_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Wm4ColorRGB.h"
#include "qe/qePointer.h"
#include "qe/qeProgressNotifierInterface.h"
#include "qe/qeTriMesh.h"

#include "ctr/drawing/Camera.h"
#include "ctr/drawing/Units.h"
#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/Executor.h"
#include "ctr/ExportParameters.h"
#include "ctr/LineSegmentSet.h"
#include "ctr/PreparedModel.h"
#include "ctr/SheetWriter.h"

namespace contour {

struct DrawingOptions {
    CameraOptions camera;
    double pageWidthMM = 210.0;
    double pageHeightMM = 297.0;
    unsigned int xyBits = 20;
    unsigned int zBits = 20;
    // Written into the file as given: escape XML before (ctr::EscapeXmlText).
    std::string title;
    std::string description;
    // Unset values keep the exporter's crease style.
    std::optional<float> creaseWidthMM;
    std::optional<float> silhouetteWidthMM;
    std::optional<Wm4::ColorRGB> color;
    // Creases that a silhouette repeats are drawn once, as silhouettes,
    // unless kept.
    bool keepCommon = false;
    // Hidden lines drawn too, thin and dashed, in a layer of their own.
    bool hiddenLines = false;
    // The sheet in Inkscape layers, one per kind of line (always so with
    // hidden lines); otherwise the exporter's single-view file.
    bool layers = false;
    // Arcs that are circles on the page written as SVG arc commands (on the
    // layered sheet).
    bool arcs = false;
    bool layered() const { return layers || hiddenLines || arcs; }
    // What one model coordinate measures: a sheet's scale compares the
    // views in millimetres with the page. A single view is fitted to the
    // page and does not depend on it.
    LengthUnit unit = LengthUnit::kMillimetre;
    double millimetresPerUnit() const { return MillimetresPer(unit); }
    // Neither the files nor the caller said what the unit is: a sheet's
    // title block says its millimetres are assumed.
    bool unitAssumed = false;
};

// The segments of one kind of line on their way to the page.
struct LineKindStats {
    size_t found = 0;              // as extracted
    size_t commonRemoved = 0;      // creases that a silhouette repeats
    size_t duplicatesRemoved = 0;  // segments another one of the kind repeats
    size_t visiblePieces = 0;      // pieces left after hiding
    double inkMM = 0.0;            // length of those pieces on the page
    // Pieces that another one on the same page line took in (MergeOnPage).
    size_t mergedOnPage = 0;
    // Segments that go into hiding, one of each.
    size_t beforeHiding() const { return found - commonRemoved - duplicatesRemoved; }
};

// The hidden pieces of all kinds, when drawn.
struct HiddenStats {
    size_t pieces = 0;
    double inkMM = 0.0;  // length of those pieces on the page
    size_t mergedOnPage = 0;  // as for the visible kinds
};

struct PhaseTime {
    const char* name;
    double seconds;
};

struct DrawingStats {
    LineKindStats crease, silhouette, intersection;
    HiddenStats hidden;
    size_t paths = 0;
    CameraMatrices camera;
    // Normalised device coordinates to page millimetres: X = fit * (u, v) +
    // offset, Y upwards.
    double fit[2][2] = {{0.0, 0.0}, {0.0, 0.0}};
    double offset[2] = {0.0, 0.0};
    double worldUnitsPerMM = 0.0;
    std::vector<PhaseTime> phases;  // in the order they ran
    bool cancelled = false;
    // A multi-view sheet's scale ("1:2"), the side its front view shows
    // ("-y") and how fully the views take the frame (SheetLayout's span and
    // areaShare); empty and zero for a single view.
    std::string sheetScale;
    std::string sheetFront;
    double sheetSpan = 0.0;
    double sheetAreaShare = 0.0;
    // The drawing failed because an option cannot be met as given (a usage
    // error rather than a failure of the drawing).
    bool optionRefused = false;
};

// What a running drawing reports to: the library's progress and cancel
// queries, and the phase it enters.
class DrawingMonitor : public qe::qeProgressNotifierInterface {
public:
    virtual void phaseStarted(const char* name) = 0;
};

// Allocator settings for drawing: buffers of megabytes come and go phase
// after phase. Served from the heap and kept there when freed, rather than
// mapped afresh each time, their pages are faulted in once per run instead of
// once per phase. Call it once, before anything large is allocated.
void KeepLargeBuffersInHeap();

// Whether the projection space takes these bit sizes (the library's default
// sizes are always taken, although setVoxelBitSize refuses to set them again).
bool BitSizesAccepted(unsigned int xyBits, unsigned int zBits);

// The lines of one view on their way to the page: the visible pieces of each
// kind, the hidden pieces when asked for, and where the view lies on the page.
struct ViewLines {
    // The grid the lines were computed on, and their place on the page.
    std::optional<ctr::DiscreteProjectionSpace> space;
    std::optional<ctr::ExportParameters> parameters;
    qe::qePointer<ctr::LineSegmentSet> creases, silhouettes, intersections;
    std::vector<qe::qePointer<ctr::LineSegmentSet>> hidden;
};

// How a view is laid on the page, given its projection space.
using PlaceView = std::function<ctr::ExportParameters(const ctr::DiscreteProjectionSpace&)>;
// The single view's placing: scaled to fit the page of options.
PlaceView FitToPage(const DrawingOptions& options);

// The pipeline of one view through a camera (from FrameCamera): features,
// common and duplicate segments removed, visible and, when asked for, hidden
// pieces; the view placed by place. Fills stats but for the paths. False
// with a one-line reason, or with stats.cancelled when the monitor asked to
// stop. The model's preparation is shared: views of one model may be
// computed at the same time on different threads, each with its own lines,
// stats, error and monitor (and no executor, or one that takes loops from
// several threads).
bool ComputeView(const ctr::PreparedModel& model, const DrawingOptions& options, const CameraMatrices& camera,
                 const PlaceView& place, ViewLines& lines, DrawingStats& stats, std::string& error,
                 ctr::Executor* executor, DrawingMonitor* monitor);
// The same for meshes not yet prepared, for this one view: the creases are
// found after the bake, as no other view shares them.
bool ComputeView(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
                 const DrawingOptions& options, const CameraMatrices& camera, const PlaceView& place, ViewLines& lines,
                 DrawingStats& stats, std::string& error, ctr::Executor* executor, DrawingMonitor* monitor);

// Places computed lines (again) on the page: the parameters from place, and
// the fit in stats, so that a view computed once can be laid out after its
// neighbours are known. False with a one-line reason when the view has no
// extent to scale.
bool PlaceViewLines(ViewLines& lines, const PlaceView& place, DrawingStats& stats, std::string& error);
// The pieces and page ink of every kind, and of the hidden lines, in stats:
// what placed lines draw, counted again once they are merged on the page.
void CountViewLines(const ViewLines& lines, const CameraMatrices& camera, DrawingStats& stats);

// Title, description and layer styles of a layered sheet from the options.
void StyleSheet(ctr::SheetWriter& sheet, const DrawingOptions& options);
// Adds the lines of a view to the sheet's latest view.
bool AddViewLines(ctr::SheetWriter& sheet, const ViewLines& lines);
// Draws the lines of meshes, hidden where meshes or occluders cover them, into
// the SVG file svgPath (created or truncated); layered, with the hidden lines
// when asked for. False with a one-line reason,
// or with stats.cancelled when the monitor asked to stop. With an executor
// the library's parallel steps run on it; the file is the same either way.
// Each line is drawn once: segments that repeat one of their kind are
// dropped before the page. A host that wants the lines themselves as well
// gets them in kept.
bool DrawToSVG(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
               const DrawingOptions& options, const std::string& svgPath, DrawingStats& stats, std::string& error,
               ctr::Executor* executor = nullptr, DrawingMonitor* monitor = nullptr, ViewLines* kept = nullptr);
// The same view of a prepared model (its meshes and occluders), the same
// file bit for bit; views of one model may be drawn on several threads at
// once.
bool DrawToSVG(const ctr::PreparedModel& model, const DrawingOptions& options, const std::string& svgPath,
               DrawingStats& stats, std::string& error, ctr::Executor* executor = nullptr,
               DrawingMonitor* monitor = nullptr, ViewLines* kept = nullptr);

}  // namespace contour

#endif
