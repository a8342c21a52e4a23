#include "ctr/drawing/Drawing.h"

#include <chrono>
#include <cmath>
#include <malloc.h>
#include <utility>

#include "Wm4Vector2.h"
#include "qe/qePointer.h"

#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/ExportParameters.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"
#include "ctr/SVGExporter.h"
#include "ctr/SheetLines.h"
#include "ctr/SheetWriter.h"
#include "ctr/drawing/PageMerge.h"

namespace contour {

namespace {

size_t countSegments(const ctr::LineSegmentSet* set) {
    return set ? static_cast<size_t>(set->getSegmentQuantity()) : 0;
}

// Phase times: the tool's own phases, and the library's steps as the
// generator announces them. The crease count is taken before the common
// segments go.
class PhaseClock : public ctr::FeatureStepObserver {
public:
    PhaseClock(DrawingStats& stats, DrawingMonitor* monitor) : m_stats(stats), m_monitor(monitor) {}

    // Ends the running phase; null starts none.
    void start(const char* name) {
        const auto now = std::chrono::steady_clock::now();
        if (m_running)
            m_stats.phases.push_back(PhaseTime{m_running, std::chrono::duration<double>(now - m_since).count()});
        m_running = name;
        m_since = now;
        if (name && m_monitor) m_monitor->phaseStarted(name);
    }

    void stepStarted(ctr::FeatureStep step) override {
        switch (step) {
            case ctr::FeatureStep::kCreases:
                return start("creases");
            case ctr::FeatureStep::kSilhouettes:
                creasesFound = m_creases ? countSegments(*m_creases) : 0;
                return start("silhouettes");
            case ctr::FeatureStep::kCreasesAndSilhouettes:
                m_countCreasesNext = true;
                return start("creases and silhouettes");
            case ctr::FeatureStep::kCommonSegments:
                countCreasesFound();
                return start("common segments");
            case ctr::FeatureStep::kOcclusion:
                countCreasesFound();
                return start("occlusion");
            case ctr::FeatureStep::kIntersections:
                return start("intersections");
            case ctr::FeatureStep::kFinished:
                return start(nullptr);
        }
    }

    // Creases found side by side with silhouettes are counted as the step
    // after them starts, before common segments take any.
    void countCreasesFound() {
        if (!m_countCreasesNext) return;
        m_countCreasesNext = false;
        creasesFound = m_creases ? countSegments(*m_creases) : 0;
    }

    // The crease set as the generator fills it.
    void watchCreases(const qe::qePointer<ctr::LineSegmentSet>* creases) { m_creases = creases; }

    size_t creasesFound = 0;

private:
    DrawingStats& m_stats;
    DrawingMonitor* m_monitor;
    const char* m_running = nullptr;
    std::chrono::steady_clock::time_point m_since;
    const qe::qePointer<ctr::LineSegmentSet>* m_creases = nullptr;
    bool m_countCreasesNext = false;
};

// Length on the page of the segments of a set: their world ends through the
// camera and the sheet fit. An estimate for the summary; the
// drawing itself is placed by the exporter.
double InkLength(const qe::qePointer<ctr::LineSegmentSet>& set, const Wm4::Matrix4<float>& worldToClip,
                 const double (&fit)[2][2]) {
    if (!set || !set->VBuffer || !set->IBuffer) return 0.0;
    const qe::qeVertexBuffer& vertices = *set->VBuffer;
    const unsigned int* indices = set->IBuffer->GetData();
    const auto page = [&](unsigned int index, double(&out)[2]) {
        double u = 0.0, v = 0.0;
        WorldToDevice(worldToClip, set->World.ApplyForward(vertices.Position3(static_cast<int>(index)), true), u, v);
        out[0] = fit[0][0] * u + fit[0][1] * v;
        out[1] = fit[1][0] * u + fit[1][1] * v;
    };
    double ink = 0.0;
    const int count = set->IBuffer->GetIndexQuantity() / 2;
    for (int s = 0; s < count; ++s) {
        double a[2], b[2];
        page(indices[2 * s], a);
        page(indices[2 * s + 1], b);
        const double length = std::hypot(b[0] - a[0], b[1] - a[1]);
        if (std::isfinite(length)) ink += length;
    }
    return ink;
}

}  // namespace

void KeepLargeBuffersInHeap() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
}

bool BitSizesAccepted(unsigned int xyBits, unsigned int zBits) {
    ctr::DiscreteProjectionSpace probe;
    return (xyBits == probe.getXYBitSize() && zBits == probe.getZBitSize()) || probe.setVoxelBitSize(xyBits, zBits);
}

PlaceView FitToPage(const DrawingOptions& options) {
    const Wm4::Vector2<float> page(static_cast<float>(options.pageWidthMM), static_cast<float>(options.pageHeightMM));
    return [page](const ctr::DiscreteProjectionSpace& space) {
        ctr::ExportParameters parameters(space);
        parameters.setPageSizeInMM(page);
        parameters.computeBestFitTransform();
        return parameters;
    };
}

namespace {

// One view from a prepared model, or (model null) from the lists, whose
// creases are then found after the bake: a single view gains nothing from
// preparing, and finding them first would hold their working lists while
// the bake grows the heap, a larger peak.
bool ComputeViewOf(const ctr::PreparedModel* model, const std::vector<const qe::qeTriMesh*>& meshes,
                   const std::vector<const qe::qeTriMesh*>& occluders, const DrawingOptions& options,
                   const CameraMatrices& camera, const PlaceView& place, ViewLines& lines, DrawingStats& stats,
                   std::string& error, ctr::Executor* executor, DrawingMonitor* monitor) {
    PhaseClock clock(stats, monitor);
    const auto cancelled = [&]() {
        if (!monitor || !monitor->shouldCancel()) return false;
        stats.cancelled = true;
        error = "cancelled";
        return true;
    };

    stats.camera = camera;
    ctr::DiscreteProjectionSpace space = ProjectionSpaceOf(camera);
    // The space starts with the default sizes, which setVoxelBitSize would
    // refuse to set again.
    if ((options.xyBits != space.getXYBitSize() || options.zBits != space.getZBitSize()) &&
        !space.setVoxelBitSize(options.xyBits, options.zBits)) {
        error =
            "the library refuses the bit sizes " + std::to_string(options.xyBits) + "," + std::to_string(options.zBits);
        return false;
    }

    ctr::GeometricFeaturesGenerator generator;
    generator.setProjectionSpace(space);
    generator.setExecutor(executor);
    generator.setProgressNotifier(monitor);
    generator.setStepObserver(&clock);
    // Split normals give most creases twice; one copy is enough to hide.
    generator.setRemoveDuplicateCreases(true);
    ctr::GeometricFeatures features;
    clock.watchCreases(&features.creaseEdges);
    clock.start("bake");
    if (model)
        generator.setPreparedModel(model);
    else
        generator.setSingleExportCluster(meshes, &occluders);
    if (cancelled()) return false;

    qe::qePointer<ctr::LineSegmentSet> hiddenIntersections;
    generator.computeGeometricFeatures(features, 0, !options.keepCommon,
                                       options.hiddenLines ? &hiddenIntersections : nullptr);
    if (cancelled()) return false;
    // The steps that count their work are over, whatever they counted.
    if (monitor) monitor->advanceProgress(monitor->getRemainingProgress());
    stats.crease.found = clock.creasesFound;
    const size_t duplicateCreases = static_cast<size_t>(generator.getRemovedDuplicateCreases());
    stats.crease.commonRemoved = clock.creasesFound - countSegments(features.creaseEdges) - duplicateCreases;
    stats.silhouette.found = countSegments(features.silhouetteEdges);
    stats.intersection.found = countSegments(features.intersectionEdges);
    // The library hides intersection lines behind the cluster's own solids
    // only; a cover in front of them must hide them too.
    if (!occluders.empty()) {
        clock.start("occluded intersections");
        const bool finished = generator.hideIntersectionsBehindOccluders(
            features, 0, options.hiddenLines ? &hiddenIntersections : nullptr);
        // Only a request to stop ends the step early.
        if (cancelled() || !finished) return false;
    }

    // Each kind on its way to the page: one copy of each segment, then its
    // visible pieces. Already cut, the pieces pass the exporter's own
    // cutting unchanged.
    struct tKind {
        qe::qePointer<ctr::LineSegmentSet>& set;
        LineKindStats& stats;
        qe::qePointer<ctr::LineSegmentSet>& visible;
    } kinds[] = {{features.creaseEdges, stats.crease, lines.creases},
                 {features.silhouetteEdges, stats.silhouette, lines.silhouettes},
                 {features.intersectionEdges, stats.intersection, lines.intersections}};
    // The generator dropped the repeated creases already, before hiding them.
    clock.start("duplicates");
    stats.crease.duplicatesRemoved = duplicateCreases;
    for (tKind* kind : {&kinds[1], &kinds[2]})
        kind->stats.duplicatesRemoved = static_cast<size_t>(ctr::LineSegmentSet::RemoveDuplicateSegments(kind->set));
    clock.start("visible pieces");
    for (tKind& kind : kinds) {
        if (kind.set) kind.visible = ctr::LineSegmentSet::BakeVisibleSegments(kind.set);
        kind.stats.visiblePieces = countSegments(kind.visible);
    }
    // The hidden pieces of every kind, on one layer.
    if (options.hiddenLines) {
        clock.start("hidden pieces");
        lines.hidden = {ctr::BakeHiddenSegments(features.creaseEdges),
                        ctr::BakeHiddenSegments(features.silhouetteEdges), hiddenIntersections};
    }
    if (cancelled()) return false;
    clock.start(nullptr);
    lines.space.emplace(space);
    if (!PlaceViewLines(lines, place, stats, error)) return false;
    CountViewLines(lines, camera, stats);
    return true;
}

}  // namespace

bool ComputeView(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
                 const DrawingOptions& options, const CameraMatrices& camera, const PlaceView& place, ViewLines& lines,
                 DrawingStats& stats, std::string& error, ctr::Executor* executor, DrawingMonitor* monitor) {
    return ComputeViewOf(nullptr, meshes, occluders, options, camera, place, lines, stats, error, executor, monitor);
}

bool ComputeView(const ctr::PreparedModel& model, const DrawingOptions& options, const CameraMatrices& camera,
                 const PlaceView& place, ViewLines& lines, DrawingStats& stats, std::string& error,
                 ctr::Executor* executor, DrawingMonitor* monitor) {
    return ComputeViewOf(&model, model.getMeshes(), model.getOccluders(), options, camera, place, lines, stats, error,
                         executor, monitor);
}

bool PlaceViewLines(ViewLines& lines, const PlaceView& place, DrawingStats& stats, std::string& error) {
    if (!lines.space) {
        error = "the view has no lines to place";
        return false;
    }
    lines.parameters.emplace(place(*lines.space));
    const ctr::ExportParameters& parameters = *lines.parameters;
    // A frustum without extent (a model that the lens sees as one point)
    // has no scale to the page: a drawing would hold no number but NaN.
    const Wm4::Matrix2<float>& fit = parameters.getBestFitTransform();
    if (!(std::isfinite(fit[0][0]) && std::isfinite(fit[0][1]) && std::isfinite(fit[1][0]) &&
          std::isfinite(fit[1][1]))) {
        error = "the view has no extent to scale to the page (the camera sees the model as a point)";
        lines.parameters.reset();
        return false;
    }
    for (int row = 0; row < 2; ++row) {
        for (int col = 0; col < 2; ++col) stats.fit[row][col] = fit[row][col];
        stats.offset[row] = parameters.getPageOffset()[row];
    }
    stats.worldUnitsPerMM = parameters.getWorldUnitsPerMM();
    return true;
}

void CountViewLines(const ViewLines& lines, const CameraMatrices& camera, DrawingStats& stats) {
    const std::pair<const qe::qePointer<ctr::LineSegmentSet>&, LineKindStats&> kinds[] = {
        {lines.creases, stats.crease}, {lines.silhouettes, stats.silhouette}, {lines.intersections, stats.intersection}};
    for (const auto& [set, kind] : kinds) {
        kind.visiblePieces = countSegments(set);
        kind.inkMM = InkLength(set, camera.worldToClip, stats.fit);
    }
    stats.hidden.pieces = 0;
    stats.hidden.inkMM = 0.0;
    for (const qe::qePointer<ctr::LineSegmentSet>& set : lines.hidden) {
        stats.hidden.pieces += countSegments(set);
        stats.hidden.inkMM += InkLength(set, camera.worldToClip, stats.fit);
    }
}

void StyleSheet(ctr::SheetWriter& sheet, const DrawingOptions& options) {
    sheet.setTitle(options.title);
    sheet.setDescription(options.description);
    // The same widths and colour as the single-view file; hidden lines
    // narrow beside the silhouettes, as ISO 128 pairs them.
    const auto restyle = [&](ctr::SheetLayer layer, const std::optional<float>& width) {
        ctr::SheetLineStyle style = sheet.getLayerStyle(layer);
        if (width) style.width = *width;
        if (options.color) style.color = *options.color;
        sheet.setLayerStyle(layer, style);
    };
    restyle(ctr::SheetLayer::kCreases, options.creaseWidthMM);
    restyle(ctr::SheetLayer::kSilhouettes, options.silhouetteWidthMM);
    restyle(ctr::SheetLayer::kIntersections, options.silhouetteWidthMM);
    const ctr::SheetLineStyle silhouetteStyle = sheet.getLayerStyle(ctr::SheetLayer::kSilhouettes);
    sheet.setLayerStyle(ctr::SheetLayer::kHidden,
                        ctr::DashedLineStyle(silhouetteStyle.color, ctr::NarrowLineWidth(silhouetteStyle.width)));
    sheet.setLayerEnabled(ctr::SheetLayer::kHidden, options.hiddenLines);
    sheet.setWriteArcs(options.arcs);
}

bool AddViewLines(ctr::SheetWriter& sheet, const ViewLines& lines) {
    bool added = true;
    const std::pair<const qe::qePointer<ctr::LineSegmentSet>&, ctr::SheetLayer> visible[] = {
        {lines.creases, ctr::SheetLayer::kCreases},
        {lines.silhouettes, ctr::SheetLayer::kSilhouettes},
        // Intersection lines are drawn like silhouettes, in a layer of
        // their own.
        {lines.intersections, ctr::SheetLayer::kIntersections}};
    for (const auto& [set, layer] : visible)
        if (set) added = added && sheet.addLines(layer, *set);
    for (const qe::qePointer<ctr::LineSegmentSet>& set : lines.hidden)
        if (set) added = added && sheet.addLines(ctr::SheetLayer::kHidden, *set);
    return added;
}

namespace {

// A single view from a prepared model, or (model null) from the lists.
bool DrawViewOf(const ctr::PreparedModel* model, const std::vector<const qe::qeTriMesh*>& meshes,
                const std::vector<const qe::qeTriMesh*>& occluders, const DrawingOptions& options,
                const std::string& svgPath, DrawingStats& stats, std::string& error, ctr::Executor* executor,
                DrawingMonitor* monitor, ViewLines* kept) {
    CameraMatrices camera;
    if (!FrameCamera(meshes, occluders, options.camera, options.pageWidthMM, options.pageHeightMM, camera, error))
        return false;
    ViewLines lines;
    const bool computed =
        model ? ComputeView(*model, options, camera, FitToPage(options), lines, stats, error, executor, monitor)
              : ComputeView(meshes, occluders, options, camera, FitToPage(options), lines, stats, error, executor,
                            monitor);
    if (!computed) return false;
    // Each line of the page drawn once, whichever way the page is written.
    MergeOnPage(lines, options.keepCommon, stats);
    CountViewLines(lines, camera, stats);
    const ctr::ExportParameters& parameters = *lines.parameters;

    PhaseClock clock(stats, monitor);
    clock.start("export");
    if (options.layered()) {
        ctr::SheetWriter sheet;
        StyleSheet(sheet, options);
        sheet.addView(parameters);
        if (!AddViewLines(sheet, lines) || !sheet.writeFile(svgPath)) {
            error = "writing '" + svgPath + "' failed";
            return false;
        }
        stats.paths = sheet.pathsWritten();
        clock.start(nullptr);
        if (kept) *kept = std::move(lines);
        return true;
    }
    ctr::SVGExporter exporter;
    exporter.setExportParameters(parameters);
    exporter.setTitle(options.title);
    exporter.setDescription(options.description);
    ctr::SVGLineStyle crease = exporter.getLineStyle("crease");
    if (options.creaseWidthMM) crease.width = *options.creaseWidthMM;
    if (options.color) crease.color = *options.color;
    exporter.setLineStyle("crease", crease);
    ctr::SVGLineStyle silhouette = exporter.getLineStyle("silhouette");
    if (options.silhouetteWidthMM) silhouette.width = *options.silhouetteWidthMM;
    if (options.color) silhouette.color = *options.color;
    exporter.setLineStyle("silhouette", silhouette);

    if (!exporter.openFile(svgPath)) {
        error = "cannot write '" + svgPath + "'";
        return false;
    }
    // Intersection lines are drawn like silhouettes.
    const std::pair<const qe::qePointer<ctr::LineSegmentSet>&, const char*> kinds[] = {
        {lines.creases, "crease"}, {lines.silhouettes, "silhouette"}, {lines.intersections, "silhouette"}};
    for (const auto& [set, style] : kinds)
        if (set && !exporter.streamLineSegments(*set, style)) {
            error = "writing '" + svgPath + "' failed";
            return false;
        }
    if (!exporter.closeFile()) {
        error = "writing '" + svgPath + "' failed";
        return false;
    }
    stats.paths = exporter.pathsWritten();
    clock.start(nullptr);
    if (kept) *kept = std::move(lines);
    return true;
}

}  // namespace

bool DrawToSVG(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
               const DrawingOptions& options, const std::string& svgPath, DrawingStats& stats, std::string& error,
               ctr::Executor* executor, DrawingMonitor* monitor, ViewLines* kept) {
    return DrawViewOf(nullptr, meshes, occluders, options, svgPath, stats, error, executor, monitor, kept);
}

bool DrawToSVG(const ctr::PreparedModel& model, const DrawingOptions& options, const std::string& svgPath,
               DrawingStats& stats, std::string& error, ctr::Executor* executor, DrawingMonitor* monitor,
               ViewLines* kept) {
    return DrawViewOf(&model, model.getMeshes(), model.getOccluders(), options, svgPath, stats, error, executor,
                      monitor, kept);
}

}  // namespace contour
