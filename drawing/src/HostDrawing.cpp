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
#include "RequestSteps.h"

namespace contour {

namespace {

JobOutcome drawModels(const DrawingRequest& asked, const std::vector<HostInput>& models,
                      const std::vector<HostInput>& occluders, double importSeconds, HostDrawing& drawing,
                      std::string& error, DrawingMonitor* monitor) {
    DrawingRequest request = asked;
    ApplyFormatConventions(request, models.empty() ? std::string() : models[0].label);
    const auto start = std::chrono::steady_clock::now();
    RunStats& run = drawing.run;
    run = RunStats();
    // The host's models are lent: units are settled on copies, which share
    // the meshes until a scaling replaces them.
    std::vector<ImportedModel> copies;
    for (const std::vector<HostInput>* inputs : {&models, &occluders})
        for (const HostInput& input : *inputs) copies.push_back(input.model);
    std::vector<ImportedModel*> all;
    for (ImportedModel& copy : copies) all.push_back(&copy);
    const DrawingOptions options = SettleDrawingOptions(request, all, run);

    std::vector<const qe::qeTriMesh*> meshes, hiding;
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

    // Unnamed in the temporary folder and never committed: read back, then
    // gone with the object.
    const char* folder = std::getenv("TMPDIR");
    AtomicOutput output;
    if (!output.create(std::string(folder && *folder ? folder : "/tmp") + "/contour-drawing.svg", error))
        return JobOutcome::kFailed;
    const bool drawn =
        DrawRequested(request, options, meshes, hiding, output.writePath(), run, drawing.stats, error, monitor,
                      &drawing.lines);
    if (drawing.stats.cancelled) return JobOutcome::kCancelled;
    if (!drawn) return JobOutcome::kFailed;
    std::ifstream file(output.writePath(), std::ios::binary);
    drawing.svg.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (!file) {
        error = "cannot read the drawing back";
        return JobOutcome::kFailed;
    }
    run.totalSeconds = importSeconds + std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    drawing.record = StatsRecord(request, run, drawing.stats);
    return JobOutcome::kDrawn;
}

}  // namespace

JobOutcome DrawHostModels(const DrawingRequest& request, const std::vector<HostInput>& models,
                          const std::vector<HostInput>& occluders, double importSeconds, HostDrawing& drawing,
                          std::string& error, DrawingMonitor* monitor) {
    try {
        return drawModels(request, models, occluders, importSeconds, drawing, error, monitor);
    } catch (const std::bad_alloc&) {
        error = "not enough memory for the drawing";
    } catch (const std::exception& failure) {
        error = failure.what();
    }
    drawing = HostDrawing();
    return JobOutcome::kFailed;
}

}  // namespace contour
