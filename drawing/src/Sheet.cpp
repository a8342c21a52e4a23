#include "ctr/drawing/Sheet.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <limits>
#include <optional>
#include <thread>

#include "Wm4Vector2.h"
#include "Wm4Vector4.h"

#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/drawing/PageMerge.h"
#include "ctr/drawing/ThreadPool.h"
#include "ctr/PreparedModel.h"
#include "ctr/SheetWriter.h"
#include "ctr/Version.h"

namespace contour {

namespace {

// Blank space kept between the views and the frame, and between views.
constexpr double kFramePaddingMM = 5.0;
constexpr double kViewGapMM = 10.0;

// Device coordinates of the drawn vertices through a camera, in float as the
// sheet writer projects them; false when there is none.
bool DeviceBox(const std::vector<const qe::qeTriMesh*>& meshes, const CameraMatrices& camera, double (&box)[4]) {
    box[0] = box[1] = std::numeric_limits<double>::infinity();
    box[2] = box[3] = -std::numeric_limits<double>::infinity();
    for (const qe::qeTriMesh* mesh : meshes) {
        if (!mesh || !mesh->VBuffer) continue;
        const qe::qeVertexBuffer& vertices = *mesh->VBuffer;
        for (int i = 0; i < vertices.GetVertexQuantity(); ++i) {
            double u, v;
            if (!WorldToDevice(camera.worldToClip, mesh->World.ApplyForward(vertices.Position3(i), true), u, v))
                continue;
            box[0] = std::min(box[0], u), box[1] = std::min(box[1], v);
            box[2] = std::max(box[2], u), box[3] = std::max(box[3], v);
        }
    }
    return box[0] <= box[2];
}

void AddPhases(DrawingStats& total, const DrawingStats& view) {
    for (const PhaseTime& phase : view.phases) {
        const auto same = std::find_if(total.phases.begin(), total.phases.end(),
                                       [&](const PhaseTime& p) { return std::string(p.name) == phase.name; });
        if (same == total.phases.end())
            total.phases.push_back(phase);
        else
            same->seconds += phase.seconds;
    }
}

void AddCounts(DrawingStats& total, const DrawingStats& view) {
    for (const auto& [sum, part] :
         {std::make_pair(&total.crease, &view.crease), std::make_pair(&total.silhouette, &view.silhouette),
          std::make_pair(&total.intersection, &view.intersection)}) {
        sum->found += part->found;
        sum->commonRemoved += part->commonRemoved;
        sum->duplicatesRemoved += part->duplicatesRemoved;
        sum->visiblePieces += part->visiblePieces;
        sum->inkMM += part->inkMM;
        sum->mergedOnPage += part->mergedOnPage;
    }
    total.hidden.pieces += view.hidden.pieces;
    total.hidden.inkMM += view.hidden.inkMM;
    total.hidden.mergedOnPage += view.hidden.mergedOnPage;
}

bool SameCamera(const CameraMatrices& a, const CameraMatrices& b) {
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 4; ++col)
            if (a.worldToClip[row][col] != b.worldToClip[row][col] || a.clipToWorld[row][col] != b.clipToWorld[row][col])
                return false;
    return true;
}

// A view computed before the layout, kept to be placed once the scale is
// known.
struct tComputedView {
    CameraMatrices camera;
    ViewLines lines;
    DrawingStats stats;
};

double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Views are computed side by side, each on one thread, up to this many
// triangles (models and occluders together); larger models are computed one
// view after another with the pool inside each. Each view holds a bake of its
// own, so side by side the memory grows with the number of threads, while
// the steps of a large view keep every thread busy anyway.
constexpr size_t kSideBySideTriangles = size_t(1) << 20;

// One view to compute, and what became of it.
struct tViewJob {
    DrawingOptions options;
    CameraMatrices camera;
    PlaceView place;
    ViewLines lines;
    DrawingStats stats;
    std::string error;
    bool computed = false;
    std::exception_ptr thrown;
};

// The monitor of views computed side by side. Only the thread that started
// them talks to the host's monitor (which need not take calls from other
// threads): it passes on a request to stop, which every view then sees, and
// counts finished views as the progress. The views' own steps and progress
// are not passed on; they overlap.
class tSideBySideMonitor : public DrawingMonitor {
public:
    tSideBySideMonitor(DrawingMonitor* host, size_t views) : m_host(host), m_caller(std::this_thread::get_id()) {
        m_host->phaseStarted("views");
        m_host->setTotalProgress(static_cast<double>(views));
    }
    void phaseStarted(const char*) override {}
    bool shouldCancel() override {
        if (std::this_thread::get_id() == m_caller) {
            report();
            if (m_host->shouldCancel()) m_cancel.store(true, std::memory_order_relaxed);
        }
        return m_cancel.load(std::memory_order_relaxed);
    }
    void setTotalProgress(double) override {}
    void advanceProgress(double) override {}
    void viewFinished() { m_finished.fetch_add(1, std::memory_order_relaxed); }
    // On the starting thread only.
    void report() {
        const size_t finished = m_finished.load(std::memory_order_relaxed);
        if (finished > m_reported) m_host->advanceProgress(static_cast<double>(finished - m_reported));
        m_reported = finished;
    }

private:
    DrawingMonitor* m_host;
    std::thread::id m_caller;
    std::atomic<bool> m_cancel{false};
    std::atomic<size_t> m_finished{0};
    size_t m_reported = 0;
};

// Computes views of one prepared model: side by side on the executor (each
// view on one thread, without the executor inside) or one after another with
// the executor inside each; the lines are the same either way.
struct ViewBatch {
    const ctr::PreparedModel& model;
    ctr::Executor* executor;
    DrawingMonitor* monitor;
    bool sideBySide;   // allowed for this model
    unsigned int threads;  // of the executor

    // False with the first failed view's reason (in job order), as when the
    // views are computed in order and the first failure ends the run; the
    // phases of the views go into total.
    bool compute(std::vector<tViewJob>& jobs, DrawingStats& total, std::string& error) const {
        if (!(sideBySide && executor && jobs.size() >= 2 && jobs.size() >= threads)) {
            for (tViewJob& job : jobs) {
                if (!ComputeView(model, job.options, job.camera, job.place, job.lines, job.stats, error, executor,
                                 monitor)) {
                    total.cancelled = job.stats.cancelled;
                    return false;
                }
                AddPhases(total, job.stats);
            }
            return true;
        }
        const auto start = std::chrono::steady_clock::now();
        std::optional<tSideBySideMonitor> shared;
        if (monitor) shared.emplace(monitor, jobs.size());
        executor->parallelFor(jobs.size(), [&](size_t i) {
            tViewJob& job = jobs[i];
            // An executor's tasks throw nothing: a failure (memory above all)
            // is carried back to the starting thread.
            try {
                job.computed = ComputeView(model, job.options, job.camera, job.place, job.lines, job.stats, job.error,
                                           nullptr, shared ? &*shared : nullptr);
            } catch (...) {
                job.thrown = std::current_exception();
            }
            if (shared) shared->viewFinished();
        });
        if (shared) shared->report();
        for (tViewJob& job : jobs) {
            if (job.thrown) std::rethrow_exception(job.thrown);
            if (!job.computed) {
                error = job.error;
                total.cancelled = job.stats.cancelled;
                return false;
            }
        }
        // The starting thread may have taken no view at all, and so not have
        // asked the host's monitor: it asks once more now.
        if (shared && shared->shouldCancel()) {
            total.cancelled = true;
            error = "cancelled";
            return false;
        }
        // The views overlapped in time: their steps share the batch's wall
        // time in proportion to the time each took on its thread, so that the
        // phases still add up to the run's time.
        double threadTime = 0.0;
        for (const tViewJob& job : jobs)
            for (const PhaseTime& phase : job.stats.phases) threadTime += phase.seconds;
        const double share = threadTime > 0.0 ? SecondsSince(start) / threadTime : 0.0;
        for (tViewJob& job : jobs) {
            for (PhaseTime& phase : job.stats.phases) phase.seconds *= share;
            AddPhases(total, job.stats);
        }
        return true;
    }
};

size_t TriangleCount(const std::vector<const qe::qeTriMesh*>& meshes) {
    size_t count = 0;
    for (const qe::qeTriMesh* mesh : meshes)
        if (mesh) count += static_cast<size_t>(std::max(mesh->GetTriangleQuantity(), 0));
    return count;
}

}  // namespace

int ChooseFrontSide(const std::vector<SideScore>& sides) {
    int best = -1;
    for (int i = 0; i < static_cast<int>(sides.size()); ++i) {
        if (!(std::isfinite(sides[i].visible) && std::isfinite(sides[i].hidden))) continue;
        if (best < 0) {
            best = i;
            continue;
        }
        const SideScore& a = sides[i];
        const SideScore& b = sides[best];
        const double tie = 1e-6 * std::max(a.visible, b.visible);
        if (a.visible > b.visible + tie) {
            best = i;
        } else if (a.visible >= b.visible - tie) {
            const double hiddenTie = 1e-6 * std::max(a.hidden, b.hidden);
            if (a.hidden < b.hidden - hiddenTie) best = i;
        }
    }
    return best;
}

bool LayOutSheet(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
                 const DrawingOptions& options, const SheetOptions& sheet, SheetLayout& layout, std::string& error,
                 bool* refused) {
    if (refused) *refused = false;
    const bool firstAngle = sheet.projection == ctr::ProjectionMethod::kFirstAngle;
    // The side view is the one from the side on which it is placed (third
    // angle) or from the opposite side (first angle): right of the front
    // view both ways.
    const std::pair<const char*, ViewPreset> kinds[] = {
        {"front", ViewPreset::kFront},
        {"top", ViewPreset::kTop},
        {firstAngle ? "left" : "right", firstAngle ? ViewPreset::kLeft : ViewPreset::kRight},
        {"iso", ViewPreset::kIso}};
    layout.views.clear();
    for (const auto& [name, preset] : kinds) {
        SheetView view;
        view.name = name;
        view.preset = preset;
        layout.views.push_back(view);
    }

    // The views' sizes in model units: the device box times the world length
    // of a device unit.
    double size[4][2];
    double deviceBox[4][4];
    double perDevice[4][2];  // model units per device unit
    for (int i = 0; i < 4; ++i) {
        SheetView& view = layout.views[i];
        CameraOptions camera = options.camera;
        camera.view = view.preset;
        if (!FrameCamera(meshes, occluders, camera, options.pageWidthMM, options.pageHeightMM, view.camera, error))
            return false;
        if (!DeviceBox(meshes, view.camera, deviceBox[i])) {
            error = "the model has no vertex to frame";
            return false;
        }
        const Wm4::Vector2<float> frustum = ProjectionSpaceOf(view.camera).computeFrustumSizeXY();
        for (int axis = 0; axis < 2; ++axis) {
            perDevice[i][axis] = static_cast<double>(frustum[axis]) * options.millimetresPerUnit();
            size[i][axis] = (deviceBox[i][axis + 2] - deviceBox[i][axis]) * perDevice[i][axis];
        }
    }

    // Two columns (front and top; side and iso) and two rows (front and
    // side; top and iso), in the frame above the title block.
    const Wm4::Vector2<float> page(static_cast<float>(options.pageWidthMM), static_cast<float>(options.pageHeightMM));
    const float margin = static_cast<float>(options.camera.marginMM);
    const ctr::SheetRect frame = ctr::SheetFrameRect(page, margin);
    const ctr::SheetRect block = ctr::TitleBlockRect(page, margin);
    const double areaX = frame.x, areaY = block.y + block.height;
    const double areaWidth = frame.width, areaHeight = frame.y + frame.height - areaY;
    const double roomX = areaWidth - 2.0 * kFramePaddingMM - kViewGapMM;
    const double roomY = areaHeight - 2.0 * kFramePaddingMM - kViewGapMM;
    if (!(roomX > 0.0 && roomY > 0.0)) {
        error = "the page leaves no room for the views beside the title block";
        return false;
    }
    const double columns[2] = {std::max(size[0][0], size[1][0]), std::max(size[2][0], size[3][0])};
    const double rows[2] = {std::max(size[0][1], size[2][1]), std::max(size[1][1], size[3][1])};
    const double needed = std::max((columns[0] + columns[1]) / roomX, (rows[0] + rows[1]) / roomY);
    if (!ctr::ChooseStandardScale(needed, layout.scale)) {
        error = needed > 0.0 ? "the model is too large or too small for any standard scale on this page"
                             : "the model has no extent";
        return false;
    }
    if (sheet.scale) {
        // The same whole-number comparison as the series makes.
        if (!(static_cast<double>(sheet.scale->model) >= needed * static_cast<double>(sheet.scale->drawn))) {
            error = "--scale " + sheet.scale->label() + ": the views do not fit the frame at that scale; " +
                    "the largest standard scale at which they fit is " + layout.scale.label();
            if (refused) *refused = true;
            return false;
        }
        layout.scale = *sheet.scale;
    }
    const double scale = layout.scale.modelPerSheetMM();
    layout.span = needed / scale;

    // The blank space is shared evenly: before, between and after the views.
    const double width[2] = {columns[0] / scale, columns[1] / scale};
    const double height[2] = {rows[0] / scale, rows[1] / scale};
    const double spaceX = (areaWidth - width[0] - width[1]) / 3.0;
    const double spaceY = (areaHeight - height[0] - height[1]) / 3.0;
    const double columnCentre[2] = {areaX + spaceX + 0.5 * width[0], areaX + 2.0 * spaceX + width[0] + 0.5 * width[1]};
    // Rows from the bottom: third angle puts the top view above the front
    // view, first angle below it.
    const int frontRow = firstAngle ? 1 : 0;
    const double bottomHeight = height[frontRow == 0 ? 0 : 1];
    const double topHeight = height[frontRow == 0 ? 1 : 0];
    const double rowCentre[2] = {areaY + spaceY + 0.5 * bottomHeight,
                                 areaY + 2.0 * spaceY + bottomHeight + 0.5 * topHeight};
    const int column[4] = {0, 0, 1, 1};
    const int row[4] = {frontRow, 1 - frontRow, frontRow, 1 - frontRow};
    double covered = 0.0;
    for (int i = 0; i < 4; ++i) {
        SheetView& view = layout.views[i];
        double(&centre)[2] = view.windowCentre;
        centre[0] = columnCentre[column[i]];
        centre[1] = rowCentre[row[i]];
        // The projected views keep their window centres aligned, which the
        // shared axes make the same model point; the iso view is centred on
        // its own box.
        for (int axis = 0; axis < 2; ++axis) {
            const double low = deviceBox[i][axis] * perDevice[i][axis] / scale;
            const double high = deviceBox[i][axis + 2] * perDevice[i][axis] / scale;
            if (view.preset == ViewPreset::kIso) centre[axis] -= 0.5 * (low + high);
            view.box[axis] = centre[axis] + low;
            view.box[axis + 2] = centre[axis] + high;
        }
        covered += (view.box[2] - view.box[0]) * (view.box[3] - view.box[1]);
    }
    layout.areaShare = covered / (static_cast<double>(frame.width) * static_cast<double>(frame.height));
    return true;
}

bool DrawSheet(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
               const DrawingOptions& options, const SheetOptions& sheetOptions, const std::string& svgPath,
               DrawingStats& stats, std::string& error, ctr::Executor* executor, DrawingMonitor* monitor) {
    // What the views share (the crease and outline edges) is found once.
    const auto prepareStart = std::chrono::steady_clock::now();
    if (monitor) monitor->phaseStarted("prepare");
    const ctr::PreparedModel model(meshes, &occluders, executor);
    stats.phases.push_back(PhaseTime{"prepare", SecondsSince(prepareStart)});
    return DrawSheet(model, options, sheetOptions, svgPath, stats, error, executor, monitor);
}

bool DrawSheet(const ctr::PreparedModel& model, const DrawingOptions& options, const SheetOptions& sheetOptions,
               const std::string& svgPath, DrawingStats& stats, std::string& error, ctr::Executor* executor,
               DrawingMonitor* monitor) {
    const std::vector<const qe::qeTriMesh*>& meshes = model.getMeshes();
    const std::vector<const qe::qeTriMesh*>& occluders = model.getOccluders();
    const auto* pool = dynamic_cast<const ThreadPool*>(executor);
    const ViewBatch batch{model, executor, monitor,
                          TriangleCount(meshes) + TriangleCount(occluders) <= kSideBySideTriangles,
                          pool ? pool->threadCount() : 2u};

    DrawingOptions laid = options;
    std::vector<tComputedView> computed;
    if (sheetOptions.front) {
        const Wm4::Vector3<double>& up = options.camera.up;
        if (!(up.Cross(*sheetOptions.front).Length() > 1e-6 * up.Length() * sheetOptions.front->Length())) {
            error = "--front " + DirectionName(*sheetOptions.front) + " runs along the up direction " +
                    DirectionName(up) + "; name a side across it (or give --up)";
            stats.optionRefused = true;
            return false;
        }
        laid.camera.front = *sheetOptions.front;
    } else {
        // Every side is drawn with its hidden lines, which break ties; the
        // winner and its neighbour are kept for the front and side views.
        const std::array<Wm4::Vector3<double>, 4> sides = HorizontalSides(options.camera.up);
        DrawingOptions measured = options;
        measured.hiddenLines = true;
        std::vector<tViewJob> jobs(sides.size());
        for (size_t i = 0; i < sides.size(); ++i) {
            measured.camera.view = ViewPreset::kFront;
            measured.camera.front = sides[i];
            if (!FrameCamera(meshes, occluders, measured.camera, options.pageWidthMM, options.pageHeightMM,
                             jobs[i].camera, error))
                return false;
            jobs[i].options = measured;
            jobs[i].place = FitToPage(measured);
        }
        if (!batch.compute(jobs, stats, error)) return false;
        std::vector<SideScore> scores;
        for (tViewJob& job : jobs) {
            const double perMM = job.stats.worldUnitsPerMM;
            const DrawingStats& s = job.stats;
            scores.push_back(
                SideScore{(s.crease.inkMM + s.silhouette.inkMM + s.intersection.inkMM) * perMM, s.hidden.inkMM * perMM});
            computed.push_back(tComputedView{job.camera, std::move(job.lines), std::move(job.stats)});
        }
        const int best = ChooseFrontSide(scores);
        laid.camera.front = sides[static_cast<size_t>(std::max(best, 0))];
    }
    stats.sheetFront = DirectionName(*laid.camera.front);

    SheetLayout layout;
    if (!LayOutSheet(meshes, occluders, laid, sheetOptions, layout, error, &stats.optionRefused)) return false;
    const Wm4::Vector2<float> page(static_cast<float>(options.pageWidthMM), static_cast<float>(options.pageHeightMM));
    const double scale = layout.scale.modelPerSheetMM() / options.millimetresPerUnit();
    const auto placeAt = [page, scale](const SheetView& view) -> PlaceView {
        const Wm4::Vector2<float> centre(static_cast<float>(view.windowCentre[0]),
                                         static_cast<float>(view.windowCentre[1]));
        return [page, scale, centre](const ctr::DiscreteProjectionSpace& space) {
            return ctr::ScaledViewParameters(space, page, scale, centre);
        };
    };

    // The views that no measured side gives are computed together; the
    // sheet is then put together in its order.
    std::vector<tViewJob> jobs;
    std::vector<int> source(layout.views.size(), -1);  // the job, or -2 - the measured side
    for (size_t i = 0; i < layout.views.size(); ++i) {
        const SheetView& view = layout.views[i];
        const auto reused = std::find_if(computed.begin(), computed.end(),
                                         [&](const tComputedView& c) { return SameCamera(c.camera, view.camera); });
        if (reused != computed.end()) {
            source[i] = -2 - static_cast<int>(reused - computed.begin());
            continue;
        }
        tViewJob job;
        job.camera = view.camera;
        job.options = laid;
        job.options.hiddenLines = options.hiddenLines && (view.preset != ViewPreset::kIso || sheetOptions.isoHidden);
        job.place = placeAt(view);
        source[i] = static_cast<int>(jobs.size());
        jobs.push_back(std::move(job));
    }
    if (!batch.compute(jobs, stats, error)) return false;

    ctr::SheetWriter sheet;
    StyleSheet(sheet, options);
    sheet.setPageSizeInMM(page);
    for (size_t i = 0; i < layout.views.size(); ++i) {
        const SheetView& view = layout.views[i];
        const bool hidden = options.hiddenLines && (view.preset != ViewPreset::kIso || sheetOptions.isoHidden);
        ViewLines lines;
        DrawingStats viewStats;
        if (source[i] <= -2) {
            tComputedView& reused = computed[static_cast<size_t>(-2 - source[i])];
            lines = std::move(reused.lines);
            viewStats = reused.stats;
            viewStats.phases.clear();  // counted when the side was measured
            if (!hidden) lines.hidden.clear();
            if (!PlaceViewLines(lines, placeAt(view), viewStats, error)) return false;
        } else {
            tViewJob& job = jobs[static_cast<size_t>(source[i])];
            lines = std::move(job.lines);
            viewStats = std::move(job.stats);
            viewStats.phases.clear();  // counted with the batch
        }
        MergeOnPage(lines, options.keepCommon, viewStats);
        CountViewLines(lines, view.camera, viewStats);
        if (i == 0) {
            stats.camera = viewStats.camera;
            std::copy(&viewStats.fit[0][0], &viewStats.fit[0][0] + 4, &stats.fit[0][0]);
            std::copy(viewStats.offset, viewStats.offset + 2, stats.offset);
            stats.worldUnitsPerMM = viewStats.worldUnitsPerMM;
        }
        AddPhases(stats, viewStats);
        AddCounts(stats, viewStats);
        sheet.addView(*lines.parameters, view.name);
        if (!AddViewLines(sheet, lines)) {
            error = "writing '" + svgPath + "' failed";
            return false;
        }
    }

    ctr::TitleBlock block;
    block.title = sheetOptions.title;
    block.partNumber = sheetOptions.partNumber;
    block.drawnBy = sheetOptions.drawnBy;
    block.scale = layout.scale.label();
    // The scale compares millimetres; say so when the model's were guessed.
    block.units = options.unitAssumed ? "mm (assumed)" : "mm";
    block.projection = sheetOptions.projection;
    block.date = sheetOptions.date;
    block.software =
        std::string("contour ") + qeContouringLib::Version::GetDescStringMajorMinorReleaseRevision(false, false);
    sheet.setFrame(static_cast<float>(options.camera.marginMM), block);
    if (!sheet.writeFile(svgPath)) {
        error = "writing '" + svgPath + "' failed";
        return false;
    }
    stats.paths = sheet.pathsWritten();
    stats.sheetScale = block.scale;
    stats.sheetSpan = layout.span;
    stats.sheetAreaShare = layout.areaShare;
    return true;
}

std::string SheetDate() {
    std::time_t now = std::time(nullptr);
    if (const char* epoch = std::getenv("SOURCE_DATE_EPOCH")) {
        char* end = nullptr;
        errno = 0;
        const long long seconds = std::strtoll(epoch, &end, 10);
        if (*epoch && end && *end == '\0' && errno == 0 && seconds >= 0) now = static_cast<std::time_t>(seconds);
    }
    std::tm utc{};
    char text[32] = "";
    if (gmtime_r(&now, &utc)) std::strftime(text, sizeof text, "%Y-%m-%d", &utc);
    return text;
}

}  // namespace contour
