#include "ctr/drawing/Job.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <new>
#include <stdexcept>

#include "ctr/drawing/DemoScene.h"
#include "ctr/drawing/ModelUnits.h"
#include "ctr/drawing/OutputFile.h"
#include "ctr/drawing/ThreadPool.h"
#include "RequestSteps.h"

namespace contour {

namespace {

void appendMeshes(const std::vector<ImportedModel>& models, const std::vector<std::string>& paths, const char* role,
                  std::vector<const qe::qeTriMesh*>& meshes, size_t& triangles, RunStats& run) {
    for (size_t i = 0; i < models.size(); ++i) {
        const ImportedModel& model = models[i];
        for (const qe::qeTriMesh* mesh : model.meshList()) meshes.push_back(mesh);
        triangles += model.triangleCount;
        run.inputs.push_back(DescribeInput(i < paths.size() ? paths[i] : "(demo scene)", role, model));
        run.normalsSeconds += model.normalSeconds;
    }
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

JobOutcome runJob(const DrawingRequest& asked, RunStats& run, DrawingStats& stats, std::string& error,
                  DrawingMonitor* monitor) {
    DrawingRequest request = asked;
    ApplyFormatConventions(request, request.models.empty() ? std::string() : request.models[0]);
    const auto start = std::chrono::steady_clock::now();
    run = RunStats();
    // One pool for the whole job: the import makes normals on it too.
    ThreadPool pool(request.threads ? request.threads : ThreadPool::DefaultThreadCount());
    if (pool.threadCount() > 1) request.import.executor = &pool;
    if (monitor) monitor->phaseStarted("import");
    std::vector<ImportedModel> models(request.demo ? 1 : request.models.size());
    std::vector<ImportedModel> occluderModels(request.occluders.size());
    if (request.demo) models[0] = MakeDemoScene();
    for (const auto& [paths, loaded] :
         {std::make_pair(&request.models, &models), std::make_pair(&request.occluders, &occluderModels)})
        for (size_t i = 0; i < paths->size(); ++i) {
            if (!ImportModel((*paths)[i], (*loaded)[i], error, request.import)) return JobOutcome::kFailed;
            if (monitor && monitor->shouldCancel()) return JobOutcome::kCancelled;
        }
    run.importSeconds = secondsSince(start);

    std::vector<std::string> inputs = request.models;
    inputs.insert(inputs.end(), request.occluders.begin(), request.occluders.end());
    for (const std::string& input : inputs) {
        std::error_code ignored;
        for (const std::string& output : {request.output, request.statsPath})
            if (!output.empty() && output != "-" && std::filesystem::equivalent(input, output, ignored)) {
                error = "the output '" + output + "' is the input file '" + input + "'";
                return JobOutcome::kFailed;
            }
    }

    std::vector<ImportedModel*> all;
    for (std::vector<ImportedModel>* loaded : {&models, &occluderModels})
        for (ImportedModel& model : *loaded) all.push_back(&model);
    const DrawingOptions drawing = SettleDrawingOptions(request, all, run);

    std::vector<const qe::qeTriMesh*> meshes, occluders;
    appendMeshes(models, request.models, "model", meshes, run.triangles, run);
    appendMeshes(occluderModels, request.occluders, "occluder", occluders, run.occluderTriangles, run);
    run.meshes = meshes.size();
    run.importSeconds -= run.normalsSeconds;
    MeasurePart(meshes, run);

    AtomicOutput output;
    const bool drawn = output.create(request.output, error) &&
                       DrawRequested(request, drawing, meshes, occluders, output.writePath(), run, stats, error, monitor,
                                     nullptr, nullptr, &pool);
    if (stats.cancelled) return JobOutcome::kCancelled;
    if (!drawn) {
        error = output.nameTheTarget(error);
        return JobOutcome::kFailed;
    }
    run.totalSeconds = secondsSince(start);
    if (!request.statsPath.empty() && !WriteStats(request.statsPath, request, run, stats, error))
        return JobOutcome::kFailed;
    return output.commit(error) ? JobOutcome::kDrawn : JobOutcome::kFailed;
}

}  // namespace

InputStats DescribeInput(const std::string& path, const char* role, const ImportedModel& model) {
    InputStats input;
    input.path = path;
    input.role = role;
    input.meshes = model.meshes.size();
    input.triangles = model.triangleCount;
    input.vertices = model.vertexCount;
    input.normalsGenerated = model.normalsGenerated;
    input.statedUnit = model.statedUnit;
    if (!model.cad) return input;
    input.cad = true;
    input.fileUnit = model.cad->fileUnit;
    for (const SurfaceKind kind : {SurfaceKind::kPlane, SurfaceKind::kCylinder, SurfaceKind::kCone,
                                   SurfaceKind::kSphere, SurfaceKind::kTorus, SurfaceKind::kOther}) {
        const auto ofKind = [kind](const AnalyticFace& face) { return face.kind == kind; };
        const size_t count =
            static_cast<size_t>(std::count_if(model.cad->faces.begin(), model.cad->faces.end(), ofKind));
        input.surfaces.emplace_back(SurfaceKindName(kind), count);
    }
    input.sharpEdges = model.cad->sharpEdges;
    input.tangentEdges = model.cad->tangentEdgeCount;
    input.readerWarnings = model.cad->warnings;
    return input;
}

DrawingOptions SettleDrawingOptions(const DrawingRequest& request, const std::vector<ImportedModel*>& models,
                                    RunStats& run) {
    DrawingOptions options = request.drawing;
    options.unit = run.unit = SettleUnits(models, request.units);
    options.unitAssumed = !request.units && (models.empty() || !models[0]->statedUnit);
    return options;
}

bool DrawRequested(const DrawingRequest& request, const DrawingOptions& options,
                   const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
                   const std::string& path, RunStats& run, DrawingStats& stats, std::string& error,
                   DrawingMonitor* monitor, ViewLines* kept, const ctr::PreparedModel* prepared, ThreadPool* pool) {
    std::optional<ThreadPool> own;
    if (!pool) pool = &own.emplace(request.threads ? request.threads : ThreadPool::DefaultThreadCount());
    run.threads = pool->threadCount();
    ctr::Executor* executor = pool->threadCount() > 1 ? pool : nullptr;
    if (!prepared)
        return request.sheet
                   ? DrawSheet(meshes, occluders, options, request.sheetOptions, path, stats, error, executor, monitor)
                   : DrawToSVG(meshes, occluders, options, path, stats, error, executor, monitor, kept);
    if (!request.sheet) return DrawToSVG(*prepared, options, path, stats, error, executor, monitor, kept);
    // The record keeps the phases of a sheet that prepares for itself; this
    // one spent no time on it.
    stats.phases.push_back(PhaseTime{"prepare", 0.0});
    return DrawSheet(*prepared, options, request.sheetOptions, path, stats, error, executor, monitor);
}

void ApplyFormatConventions(DrawingRequest& request, const std::string& firstModel) {
    if (request.sheet && !request.upGiven && !firstModel.empty()) {
        request.drawing.camera.up = FormatUp(firstModel);
        request.upGiven = true;
    }
}

JobOutcome RunDrawingJob(const DrawingRequest& request, RunStats& run, DrawingStats& stats, std::string& error,
                         DrawingMonitor* monitor) {
    // A host (an interpreter session above all) must outlive a drawing too
    // large for its memory.
    try {
        return runJob(request, run, stats, error, monitor);
    } catch (const std::bad_alloc&) {
        error = "not enough memory for the drawing";
    } catch (const std::exception& failure) {
        error = failure.what();
    }
    run = RunStats();
    return JobOutcome::kFailed;
}

}  // namespace contour
