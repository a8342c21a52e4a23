// contour: turns model files into line drawings.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <new>
#include <unistd.h>

#include "CommandLine.h"
#include "DemoScene.h"
#include "Drawing.h"
#include "ModelImport.h"
#include "OutputFile.h"
#include "Progress.h"
#include "Sheet.h"
#include "Stats.h"
#include "ThreadPool.h"

namespace {

int fail(const std::string& message) {
    std::fprintf(stderr, "contour: error: %s\n", message.c_str());
    return 1;
}

bool load(const std::string& path, const contour::ImportOptions& importOptions, contour::ImportedModel& model,
          std::string& error) {
    // A plain open gives the system's reason (missing, not allowed), which the
    // importer's message would not.
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        error = "'" + path + "' is a directory, not a model file";
        return false;
    }
    if (!std::ifstream(path, std::ios::binary)) {
        error = "cannot open '" + path + "': " + std::strerror(errno);
        return false;
    }
    return contour::ImportModel(path, model, error, importOptions);
}

// The exit status of a run that an interrupt stopped, as shells report a
// process that SIGINT ended.
constexpr int kInterrupted = 130;

int interrupted() {
    std::fputs("contour: interrupted; no output was written\n", stderr);
    return kInterrupted;
}

void appendMeshes(const std::vector<contour::ImportedModel>& models, const std::vector<std::string>& paths,
                  const char* role, std::vector<const qe::qeTriMesh*>& meshes, size_t& triangles,
                  contour::RunStats& run) {
    for (size_t i = 0; i < models.size(); ++i) {
        const contour::ImportedModel& model = models[i];
        for (const qe::qeTriMesh* mesh : model.meshList()) meshes.push_back(mesh);
        triangles += model.triangleCount;
        run.inputs.push_back(contour::InputStats{i < paths.size() ? paths[i] : "(demo scene)", role,
                                                 model.meshes.size(), model.triangleCount, model.vertexCount,
                                                 model.normalsGenerated});
        run.normalsSeconds += model.normalSeconds;
    }
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int run(const contour::ToolOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    contour::ProgressBar progress(!options.quiet && isatty(STDERR_FILENO));
    progress.phaseStarted("import");
    contour::ImportOptions importOptions;
    importOptions.smoothingAngleDegrees = options.smoothingAngleDegrees;
    std::vector<contour::ImportedModel> models(options.demo ? 1 : options.models.size());
    std::vector<contour::ImportedModel> occluderModels(options.occluders.size());
    std::string error;
    if (options.demo) models[0] = contour::MakeDemoScene();
    for (const auto& [paths, loaded] :
         {std::make_pair(&options.models, &models), std::make_pair(&options.occluders, &occluderModels)})
        for (size_t i = 0; i < paths->size(); ++i) {
            if (!load((*paths)[i], importOptions, (*loaded)[i], error)) return fail(error);
            if (contour::InterruptRequested()) return interrupted();
        }
    contour::RunStats run;
    run.importSeconds = secondsSince(start);

    std::vector<std::string> inputs = options.models;
    inputs.insert(inputs.end(), options.occluders.begin(), options.occluders.end());
    for (const std::string& input : inputs) {
        std::error_code ignored;
        for (const std::string& output : {options.output, options.statsPath})
            if (!output.empty() && output != "-" && std::filesystem::equivalent(input, output, ignored))
                return fail("the output '" + output + "' is the input file '" + input + "'");
    }

    std::vector<const qe::qeTriMesh*> meshes, occluders;
    size_t triangles = 0, occluderTriangles = 0;
    appendMeshes(models, options.models, "model", meshes, triangles, run);
    appendMeshes(occluderModels, options.occluders, "occluder", occluders, occluderTriangles, run);
    run.importSeconds -= run.normalsSeconds;

    contour::AtomicOutput output;
    contour::DrawingStats stats;
    contour::ThreadPool pool(options.threads ? options.threads : contour::ThreadPool::DefaultThreadCount());
    run.threads = pool.threadCount();
    ctr::Executor* executor = pool.threadCount() > 1 ? &pool : nullptr;
    const bool drawn = output.create(options.output, error) &&
                       (options.sheet ? contour::DrawSheet(meshes, occluders, options.drawing, options.sheetOptions,
                                                           output.temporaryPath(), stats, error, executor, &progress)
                                      : contour::DrawToSVG(meshes, occluders, options.drawing, output.temporaryPath(),
                                                           stats, error, executor, &progress));
    progress.clear();
    if (stats.cancelled) return interrupted();
    if (!drawn) return fail(error);
    // The record is written first, so that a run that cannot write it leaves
    // the old drawing too.
    run.totalSeconds = secondsSince(start);
    if (!options.statsPath.empty() && !contour::WriteStats(options.statsPath, options, run, stats, error))
        return fail(error);
    if (!output.commit(error)) return fail(error);

    if (stats.paths == 0)
        std::fprintf(
            stderr, "contour: warning: the drawing is empty (%s)\n",
            stats.crease.beforeHiding() + stats.silhouette.beforeHiding() + stats.intersection.beforeHiding() == 0
                ? "the model shows no line from this camera"
                : "every line is hidden");
    if (!options.quiet) {
        std::fprintf(stderr, "contour: %zu mesh%s, %zu triangles", meshes.size(), meshes.size() == 1 ? "" : "es",
                     triangles);
        if (!occluders.empty()) std::fprintf(stderr, " (+ %zu occluder triangles)", occluderTriangles);
        std::fprintf(stderr, ", %zu crease, %zu silhouette and %zu intersection segments", stats.crease.beforeHiding(),
                     stats.silhouette.beforeHiding(), stats.intersection.beforeHiding());
        if (options.drawing.hiddenLines) std::fprintf(stderr, " (%zu hidden pieces)", stats.hidden.pieces);
        std::fprintf(stderr, " -> %zu paths in %s (%s", stats.paths,
                     options.output == "-" ? "standard output" : options.output.c_str(), options.pageLabel.c_str());
        if (!stats.sheetScale.empty()) std::fprintf(stderr, ", four views at %s", stats.sheetScale.c_str());
        std::fprintf(stderr, "), %.2f s\n", run.totalSeconds);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    contour::KeepLargeBuffersInHeap();
    contour::ToolOptions options;
    const int parsed = contour::ParseCommandLine(argc, argv, options);
    if (parsed >= 0) return parsed;
    contour::InstallInterruptHandling();
    try {
        return run(options);
    } catch (const std::bad_alloc&) {
        return fail("out of memory");
    } catch (const std::exception& exception) {
        return fail(exception.what());
    }
}
