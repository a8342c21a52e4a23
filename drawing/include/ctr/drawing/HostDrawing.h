// A drawing for a host that holds its models in memory and wants the result
// there too (the Python package): the pipeline of RunDrawingJob, the SVG
// kept as text, the statistics as their JSON record and the lines of a
// single view kept for the host to read.
#ifndef CTR_DRAWING_HOSTDRAWING_H
#define CTR_DRAWING_HOSTDRAWING_H

#include <string>
#include <vector>

#include "ctr/drawing/Job.h"

namespace contour {

struct HostInput {
    std::string label;  // the file, or the host's name for the mesh: the record's "file"
    ImportedModel model;
};

struct HostDrawing {
    std::string svg;
    std::string record;  // what --stats writes
    RunStats run;
    DrawingStats stats;
    ViewLines lines;  // a single view's; empty for a sheet
};

// Draws the models (and hides with the occluders) as RunDrawingJob draws the
// files of request, whose model and occluder paths are not read;
// importSeconds is what getting the models took. The output and statistics
// paths of the request are not written either. Fails as RunDrawingJob does;
// the drawing passes through an unnamed temporary file, so nothing is left
// on disk either way.
JobOutcome DrawHostModels(const DrawingRequest& request, const std::vector<HostInput>& models,
                          const std::vector<HostInput>& occluders, double importSeconds, HostDrawing& drawing,
                          std::string& error, DrawingMonitor* monitor = nullptr);

}  // namespace contour

#endif
