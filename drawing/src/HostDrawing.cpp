#include "ctr/drawing/HostDrawing.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>
#include <tuple>

#include "ctr/drawing/ModelUnits.h"
#include "ctr/drawing/OutputFile.h"
#include "ctr/drawing/ThreadPool.h"
#include "RequestSteps.h"

namespace contour {

// The host's inputs in the drawing's unit, and what the record says of
// them before anything is drawn.
struct PreparedDrawing::Settled {
    // The host's models are lent: units are settled on copies, which share
    // the meshes until a scaling replaces them.
    std::vector<ImportedModel> copies;
    std::vector<const qe::qeTriMesh*> meshes, hiding;
    DrawingOptions options;  // the request's, with the unit settled
    RunStats run;
    std::string firstLabel;  // for the format's conventions
    double importSeconds = 0.0;

    Settled(const DrawingRequest& request, const std::vector<HostInput>& models,
            const std::vector<HostInput>& occluders, double gettingSeconds)
        : firstLabel(models.empty() ? std::string() : models[0].label), importSeconds(gettingSeconds) {
        for (const std::vector<HostInput>* inputs : {&models, &occluders})
            for (const HostInput& input : *inputs) copies.push_back(input.model);
        std::vector<ImportedModel*> all;
        for (ImportedModel& copy : copies) all.push_back(&copy);
        options = SettleDrawingOptions(request, all, run);

        size_t next = 0;
        for (const auto& [inputs, role, list, triangles] :
             {std::make_tuple(&models, "model", &meshes, &run.triangles),
              std::make_tuple(&occluders, "occluder", &hiding, &run.occluderTriangles)})
            for (const HostInput& input : *inputs) {
                const ImportedModel& model = copies[next++];
                for (const qe::qeTriMesh* mesh : model.meshList()) list->push_back(mesh);
                *triangles += model.triangleCount;
                run.inputs.push_back(DescribeInput(input.label, role, model));
                run.normalsSeconds += model.normalSeconds;
            }
        run.meshes = meshes.size();
        MeasurePart(meshes, run);
        run.importSeconds = importSeconds - run.normalsSeconds;
    }
};

namespace {

// Draws the settled inputs (from prepared when given) as request asks, with
// options, and reads the drawing back.
JobOutcome drawSettled(const DrawingRequest& request, const DrawingOptions& options,
                       const PreparedDrawing::Settled& settled, const ctr::PreparedModel* prepared,
                       std::chrono::steady_clock::time_point start, HostDrawing& drawing, std::string& error,
                       DrawingMonitor* monitor) {
    RunStats& run = drawing.run;
    run = settled.run;
    // Unnamed in the temporary folder and never committed: read back, then
    // gone with the object.
    const char* folder = std::getenv("TMPDIR");
    AtomicOutput output;
    if (!output.create(std::string(folder && *folder ? folder : "/tmp") + "/contour-drawing.svg", error))
        return JobOutcome::kFailed;
    const bool drawn = DrawRequested(request, options, settled.meshes, settled.hiding, output.writePath(), run,
                                     drawing.stats, error, monitor, &drawing.lines, prepared);
    if (drawing.stats.cancelled) return JobOutcome::kCancelled;
    if (!drawn) return JobOutcome::kFailed;
    std::ifstream file(output.writePath(), std::ios::binary);
    drawing.svg.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (!file) {
        error = "cannot read the drawing back";
        return JobOutcome::kFailed;
    }
    run.totalSeconds = settled.importSeconds +
                       std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    drawing.record = StatsRecord(request, run, drawing.stats);
    return JobOutcome::kDrawn;
}

JobOutcome drawModels(const DrawingRequest& asked, const std::vector<HostInput>& models,
                      const std::vector<HostInput>& occluders, double importSeconds, HostDrawing& drawing,
                      std::string& error, DrawingMonitor* monitor) {
    DrawingRequest request = asked;
    ApplyFormatConventions(request, models.empty() ? std::string() : models[0].label);
    const auto start = std::chrono::steady_clock::now();
    const PreparedDrawing::Settled settled(request, models, occluders, importSeconds);
    return drawSettled(request, settled.options, settled, nullptr, start, drawing, error, monitor);
}

// Failures of the drawing's own making end in kFailed with the drawing
// emptied, as the tool's run does.
template <typename Draw>
JobOutcome failingSafely(HostDrawing& drawing, std::string& error, const Draw& draw) {
    try {
        return draw();
    } catch (const std::bad_alloc&) {
        error = "not enough memory for the drawing";
    } catch (const std::exception& failure) {
        error = failure.what();
    }
    drawing = HostDrawing();
    return JobOutcome::kFailed;
}

std::string unitsName(const std::optional<LengthUnit>& units) {
    return units ? std::string("'") + LengthUnitName(*units) + "'" : std::string("the models' own");
}

}  // namespace

JobOutcome DrawHostModels(const DrawingRequest& request, const std::vector<HostInput>& models,
                          const std::vector<HostInput>& occluders, double importSeconds, HostDrawing& drawing,
                          std::string& error, DrawingMonitor* monitor) {
    return failingSafely(drawing, error, [&] {
        return drawModels(request, models, occluders, importSeconds, drawing, error, monitor);
    });
}

PreparedDrawing::PreparedDrawing(const std::vector<HostInput>& models, const std::vector<HostInput>& occluders,
                                 std::optional<LengthUnit> units, unsigned int threads, double importSeconds)
    : m_units(units) {
    DrawingRequest unitsOnly;
    unitsOnly.units = units;
    m_settled = std::make_unique<const Settled>(unitsOnly, models, occluders, importSeconds);
    // The pool serves the preparing only: each drawing brings its own, so
    // that drawings on several threads do not queue on one.
    ThreadPool pool(threads ? threads : ThreadPool::DefaultThreadCount());
    m_model = std::make_unique<const ctr::PreparedModel>(m_settled->meshes, &m_settled->hiding,
                                                         pool.threadCount() > 1 ? &pool : nullptr);
}

PreparedDrawing::~PreparedDrawing() = default;

JobOutcome PreparedDrawing::Draw(const DrawingRequest& asked, HostDrawing& drawing, std::string& error,
                                 DrawingMonitor* monitor) const {
    drawing = HostDrawing();
    // The unit scales the meshes, which were settled and prepared once.
    if (asked.units != m_units) {
        error = "units: the model was prepared with " + unitsName(m_units) + " units, not " +
                unitsName(asked.units) + "; prepare it again to change them";
        drawing.stats.optionRefused = true;
        return JobOutcome::kFailed;
    }
    return failingSafely(drawing, error, [&] {
        DrawingRequest request = asked;
        ApplyFormatConventions(request, m_settled->firstLabel);
        const auto start = std::chrono::steady_clock::now();
        DrawingOptions options = request.drawing;
        options.unit = m_settled->options.unit;
        options.unitAssumed = m_settled->options.unitAssumed;
        return drawSettled(request, options, *m_settled, m_model.get(), start, drawing, error, monitor);
    });
}

}  // namespace contour
