#include "ctr/drawing/HostDrawing.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>
#include <tuple>

#include "ctr/drawing/OutputFile.h"
#include "ctr/drawing/ThreadPool.h"

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
    std::vector<const qe::qeTriMesh*> meshes, hiding;
    for (const auto& [inputs, role, list, triangles] :
         {std::make_tuple(&models, "model", &meshes, &run.triangles),
          std::make_tuple(&occluders, "occluder", &hiding, &run.occluderTriangles)})
        for (const HostInput& input : *inputs) {
            for (const qe::qeTriMesh* mesh : input.model.meshList()) list->push_back(mesh);
            *triangles += input.model.triangleCount;
            run.inputs.push_back(InputStats{input.label, role, input.model.meshes.size(), input.model.triangleCount,
                                            input.model.vertexCount, input.model.normalsGenerated});
            run.normalsSeconds += input.model.normalSeconds;
        }
    run.meshes = meshes.size();
    run.importSeconds = importSeconds - run.normalsSeconds;

    // Unnamed in the temporary folder and never committed: read back, then
    // gone with the object.
    const char* folder = std::getenv("TMPDIR");
    AtomicOutput output;
    if (!output.create(std::string(folder && *folder ? folder : "/tmp") + "/contour-drawing.svg", error))
        return JobOutcome::kFailed;
    ThreadPool pool(request.threads ? request.threads : ThreadPool::DefaultThreadCount());
    run.threads = pool.threadCount();
    ctr::Executor* executor = pool.threadCount() > 1 ? &pool : nullptr;
    const bool drawn = request.sheet ? DrawSheet(meshes, hiding, request.drawing, request.sheetOptions,
                                                 output.writePath(), drawing.stats, error, executor, monitor)
                                     : DrawToSVG(meshes, hiding, request.drawing, output.writePath(), drawing.stats,
                                                 error, executor, monitor, &drawing.lines);
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
