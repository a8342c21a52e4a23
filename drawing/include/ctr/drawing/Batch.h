// Many parts drawn at once: one drawing per model file, all with the same
// options, each part on its own so that one bad file costs only its own
// drawing. A rerun leaves alone the drawings that are still current.
#ifndef CTR_DRAWING_BATCH_H
#define CTR_DRAWING_BATCH_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "ctr/drawing/Job.h"

namespace contour {

// A model to draw and the name of its drawing, relative to the output folder
// and without extension ("bracket", or "sub/bracket" for a file found in a
// subfolder of a folder given).
struct BatchPart {
    std::string model;
    std::string name;
    // Set when the part cannot be drawn as named: it is then reported with
    // this reason and not drawn (skipped when it only repeats another part).
    std::string refusal;
    bool repeated = false;
};

// The extensions, lower case with the dot, that a folder's files are taken
// by: the formats the built-in readers and assimp are asked to read.
const std::vector<std::string>& BatchModelExtensions();

// The parts of the given paths in order: a file is a part whatever its
// extension; a folder gives the model files below it (recursively, names
// sorted byte-wise, hidden files and folders left out), each named by its
// path below the folder. A name that an earlier part holds already (two
// models with one stem) is refused with a reason, and a file that is given
// twice is marked repeated. A path that does not exist becomes a part whose
// import will fail with the reason.
std::vector<BatchPart> CollectBatchParts(const std::vector<std::string>& paths);

enum class PartStatus { kDrawn, kFailed, kSkipped, kCancelled };
const char* PartStatusName(PartStatus status);  // "drawn", "failed", ...

struct PartResult {
    std::string model;
    std::string output;     // the drawing's path
    std::string statsPath;  // its record, beside it
    PartStatus status = PartStatus::kCancelled;
    std::string reason;  // one line; empty when drawn
    double seconds = 0.0;
    RunStats run;            // when drawn
    DrawingStats drawing;    // when drawn
};

struct BatchOptions {
    // The options of every part. Its models, output and statistics path are
    // set per part; threads, when 0, becomes the cores shared out over jobs.
    DrawingRequest request;
    // The title of each drawing is its model's file name, as a single run
    // without a title has it, instead of the request's.
    bool titleFromModel = true;
    std::string outputFolder;
    unsigned int jobs = 0;  // parts drawn at once; 0: one per core
    bool redrawAll = false;  // draw even the parts whose drawing is current
    // Called on the calling thread, once per part as it ends, with how many
    // have ended: the workers never call into the host.
    std::function<void(const PartResult& result, size_t done, size_t total)> partDone;
    // Asked on the calling thread while parts run; true stops the running
    // parts at their next check and starts no other (they end kCancelled).
    std::function<bool()> shouldCancel;
};

// The request that draws part into the output folder: exactly what a single
// run with these options and -o at that output would draw.
DrawingRequest BatchPartRequest(const BatchOptions& options, const BatchPart& part);

// Draws every part, options.jobs at a time, and returns one result per part
// in the order given. A part is skipped when its drawing is newer than its
// model (and occluders) and its record beside it holds the options hash of
// its request. Never throws for a part's sake: a part that fails is a result.
std::vector<PartResult> RunBatch(const std::vector<BatchPart>& parts, const BatchOptions& options);

// Writes the results as a JSON report (path, output, status, reason, seconds
// per part, and the counts), replacing any file there only once complete.
// False with a one-line reason.
bool WriteBatchReport(const std::string& path, const std::vector<PartResult>& results, double seconds,
                      std::string& error);

}  // namespace contour

#endif
