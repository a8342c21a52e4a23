// contour: turns model files into line drawings.
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <new>
#include <unistd.h>

#include "CommandLine.h"
#include "Progress.h"
#include "ctr/drawing/Batch.h"
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

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int run(const contour::ToolOptions& options) {
    contour::ProgressBar progress(!options.quiet && isatty(STDERR_FILENO));
    contour::RunStats run;
    contour::DrawingStats stats;
    std::string error;
    const contour::JobOutcome outcome = contour::RunDrawingJob(options, run, stats, error, &progress);
    progress.clear();
    if (outcome == contour::JobOutcome::kCancelled) return interrupted();
    if (outcome == contour::JobOutcome::kFailed) {
        // An option that cannot be met as given is the caller's to change.
        if (stats.optionRefused) {
            std::fprintf(stderr, "contour: error: %s\n", error.c_str());
            return 2;
        }
        return fail(error);
    }

    // Like an empty drawing, a part of an unlikely size is worth a line even
    // with -q: the drawing is complete, but most likely not what was meant.
    if (!run.unitWarning.empty()) std::fprintf(stderr, "contour: warning: %s\n", run.unitWarning.c_str());
    // A CAD file read in part is drawn, with what was left out said.
    for (const contour::InputStats& input : run.inputs)
        for (const std::string& warning : input.readerWarnings)
            std::fprintf(stderr, "contour: %s: warning: %s\n", input.path.c_str(), warning.c_str());
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
        if (!stats.sheetScale.empty())
            std::fprintf(stderr, ", four views at %s, front from %s", stats.sheetScale.c_str(), stats.sheetFront.c_str());
        std::fprintf(stderr, "), %.2f s\n", run.totalSeconds);
    }
    return 0;
}

// Every part on its own: a failure is reported and the others go on. The
// bar counts parts.
int runBatch(const contour::ToolOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    const std::vector<contour::BatchPart> parts = contour::CollectBatchParts(options.models);
    if (parts.empty()) return fail("no model file in the parts given");
    std::error_code code;
    std::filesystem::create_directories(options.outDir, code);
    if (code) return fail("cannot make the folder '" + options.outDir + "': " + code.message());

    contour::ProgressBar progress(!options.quiet && isatty(STDERR_FILENO));
    progress.partsEnded(0, parts.size());
    contour::BatchOptions batch;
    batch.request = options;
    batch.titleFromModel = !options.titleGiven;
    batch.outputFolder = options.outDir;
    batch.jobs = options.jobs;
    batch.redrawAll = options.redrawAll;
    batch.partDone = [&](const contour::PartResult& result, size_t done, size_t total) {
        if (result.status == contour::PartStatus::kFailed) {
            progress.clear();
            std::fprintf(stderr, "contour: %s: %s\n", result.model.c_str(), result.reason.c_str());
        } else if (!result.run.unitWarning.empty()) {
            progress.clear();
            std::fprintf(stderr, "contour: %s: warning: %s\n", result.model.c_str(), result.run.unitWarning.c_str());
        }
        progress.partsEnded(done, total);
    };
    batch.shouldCancel = [] { return contour::InterruptRequested(); };
    const std::vector<contour::PartResult> results = contour::RunBatch(parts, batch);
    progress.clear();

    size_t counts[4] = {0, 0, 0, 0};
    for (const contour::PartResult& result : results) ++counts[static_cast<int>(result.status)];
    const std::string report =
        options.report.empty() ? (std::filesystem::path(options.outDir) / "report.json").string() : options.report;
    std::string error;
    if (!contour::WriteBatchReport(report, results, secondsSince(start), error)) return fail(error);
    if (contour::InterruptRequested()) {
        std::fprintf(stderr, "contour: interrupted; the drawings of %zu parts are written, see %s\n", counts[0],
                     report.c_str());
        return kInterrupted;
    }
    if (!options.quiet)
        std::fprintf(stderr, "contour: %zu part%s: %zu drawn, %zu skipped, %zu failed -> %s (report %s), %.2f s\n",
                     results.size(), results.size() == 1 ? "" : "s", counts[0], counts[2], counts[1],
                     options.outDir.c_str(), report.c_str(), secondsSince(start));
    return counts[1] > 0 ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    contour::KeepLargeBuffersInHeap();
    contour::ToolOptions options;
    const int parsed = contour::ParseCommandLine(argc, argv, options);
    if (parsed >= 0) return parsed;
    contour::InstallInterruptHandling();
    try {
        return options.batch ? runBatch(options) : run(options);
    } catch (const std::bad_alloc&) {
        return fail("out of memory");
    } catch (const std::exception& exception) {
        return fail(exception.what());
    }
}
