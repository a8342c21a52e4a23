// contour: turns model files into line drawings.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <new>

#include "CommandLine.h"
#include "DemoScene.h"
#include "Drawing.h"
#include "ModelImport.h"
#include "OutputFile.h"
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

void appendMeshes(const std::vector<contour::ImportedModel>& models, std::vector<const qe::qeTriMesh*>& meshes,
                  size_t& triangles) {
    for (const contour::ImportedModel& model : models) {
        for (const qe::qeTriMesh* mesh : model.meshList()) meshes.push_back(mesh);
        triangles += model.triangleCount;
    }
}

int run(const contour::ToolOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    contour::ImportOptions importOptions;
    importOptions.smoothingAngleDegrees = options.smoothingAngleDegrees;
    std::vector<contour::ImportedModel> models(options.demo ? 1 : options.models.size());
    std::vector<contour::ImportedModel> occluderModels(options.occluders.size());
    std::string error;
    if (options.demo) models[0] = contour::MakeDemoScene();
    for (size_t i = 0; i < options.models.size(); ++i)
        if (!load(options.models[i], importOptions, models[i], error)) return fail(error);
    for (size_t i = 0; i < options.occluders.size(); ++i)
        if (!load(options.occluders[i], importOptions, occluderModels[i], error)) return fail(error);

    std::vector<std::string> inputs = options.models;
    inputs.insert(inputs.end(), options.occluders.begin(), options.occluders.end());
    for (const std::string& input : inputs) {
        std::error_code ignored;
        if (options.output != "-" && std::filesystem::equivalent(input, options.output, ignored))
            return fail("the output '" + options.output + "' is the input file '" + input + "'");
    }

    std::vector<const qe::qeTriMesh*> meshes, occluders;
    size_t triangles = 0, occluderTriangles = 0;
    appendMeshes(models, meshes, triangles);
    appendMeshes(occluderModels, occluders, occluderTriangles);

    contour::AtomicOutput output;
    contour::DrawingStats stats;
    contour::ThreadPool pool(options.threads ? options.threads : contour::ThreadPool::DefaultThreadCount());
    ctr::Executor* executor = pool.threadCount() > 1 ? &pool : nullptr;
    if (!output.create(options.output, error) ||
        !contour::DrawToSVG(meshes, occluders, options.drawing, output.temporaryPath(), stats, error, executor) ||
        !output.commit(error))
        return fail(error);

    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (stats.paths == 0)
        std::fprintf(stderr, "contour: warning: the drawing is empty (%s)\n",
                     stats.creaseSegments + stats.silhouetteSegments + stats.intersectionSegments == 0
                         ? "the model shows no line from this camera"
                         : "every line is hidden");
    if (!options.quiet) {
        std::fprintf(stderr, "contour: %zu mesh%s, %zu triangles", meshes.size(), meshes.size() == 1 ? "" : "es",
                     triangles);
        if (!occluders.empty()) std::fprintf(stderr, " (+ %zu occluder triangles)", occluderTriangles);
        std::fprintf(
            stderr, ", %zu crease, %zu silhouette and %zu intersection segments -> %zu paths in %s (%s), %.2f s\n",
            stats.creaseSegments, stats.silhouetteSegments, stats.intersectionSegments, stats.paths,
            options.output == "-" ? "standard output" : options.output.c_str(), options.pageLabel.c_str(), seconds);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // Buffers of megabytes come and go phase after phase. Served from the
    // heap and kept there when freed, rather than mapped afresh each time,
    // their pages are faulted in once per run instead of once per phase.
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    contour::ToolOptions options;
    const int parsed = contour::ParseCommandLine(argc, argv, options);
    if (parsed >= 0) return parsed;
    contour::InstallInterruptCleanup();
    try {
        return run(options);
    } catch (const std::bad_alloc&) {
        return fail("out of memory");
    } catch (const std::exception& exception) {
        return fail(exception.what());
    }
}
