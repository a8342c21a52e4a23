// contour: turns model files into line drawings.
#include <cstdio>
#include <exception>
#include <new>
#include <unistd.h>

#include "CommandLine.h"
#include "Progress.h"
#include "ctr/drawing/Job.h"
#include "ctr/drawing/OutputFile.h"

namespace {

int fail(const std::string& message) {
    std::fprintf(stderr, "contour: error: %s\n", message.c_str());
    return 1;
}

// The exit status of a run that an interrupt stopped, as shells report a
// process that SIGINT ended.
constexpr int kInterrupted = 130;

int interrupted() {
    std::fputs("contour: interrupted; no output was written\n", stderr);
    return kInterrupted;
}

int run(const contour::ToolOptions& options) {
    contour::ProgressBar progress(!options.quiet && isatty(STDERR_FILENO));
    contour::RunStats run;
    contour::DrawingStats stats;
    std::string error;
    const contour::JobOutcome outcome = contour::RunDrawingJob(options, run, stats, error, &progress);
    progress.clear();
    if (outcome == contour::JobOutcome::kCancelled) return interrupted();
    if (outcome == contour::JobOutcome::kFailed) return fail(error);

    if (stats.paths == 0)
        std::fprintf(
            stderr, "contour: warning: the drawing is empty (%s)\n",
            stats.crease.beforeHiding() + stats.silhouette.beforeHiding() + stats.intersection.beforeHiding() == 0
                ? "the model shows no line from this camera"
                : "every line is hidden");
    if (!options.quiet) {
        std::fprintf(stderr, "contour: %zu mesh%s, %zu triangles", run.meshes, run.meshes == 1 ? "" : "es",
                     run.triangles);
        if (run.occluderTriangles) std::fprintf(stderr, " (+ %zu occluder triangles)", run.occluderTriangles);
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
