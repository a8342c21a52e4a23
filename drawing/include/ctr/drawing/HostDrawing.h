// A drawing for a host that holds its models in memory and wants the result
// there too (the Python package): the pipeline of RunDrawingJob, the SVG
// kept as text, the statistics as their JSON record and the lines of a
// single view kept for the host to read.
#ifndef CTR_DRAWING_HOSTDRAWING_H
#define CTR_DRAWING_HOSTDRAWING_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ctr/drawing/Job.h"
#include "ctr/drawing/Units.h"
#include "ctr/PreparedModel.h"

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

// The host's models prepared once to be drawn from many cameras (an orbit,
// the views of a documentation set): their units settled and their crease
// and outline edges found once, at construction. Each Draw then gives what
// DrawHostModels gives for the same request and inputs, the same SVG and
// lines byte for byte (the record differs in its times only). Immutable once
// constructed: any number of threads may call Draw at once.
class PreparedDrawing {
public:
    // Takes the models and occluders as DrawHostModels does (the host's
    // meshes are shared, never changed), with units forced or not as a
    // request's units; threads prepare (0: one per core), as a request's
    // do. importSeconds is what getting the models took. Throws
    // std::bad_alloc when memory runs out.
    PreparedDrawing(const std::vector<HostInput>& models, const std::vector<HostInput>& occluders,
                    std::optional<LengthUnit> units, unsigned int threads, double importSeconds);
    ~PreparedDrawing();
    PreparedDrawing(const PreparedDrawing&) = delete;
    PreparedDrawing& operator=(const PreparedDrawing&) = delete;

    // Draws the view or sheet of request, whose model and occluder paths
    // are not read, and whose units must be those the model was prepared
    // with (a one-line refusal otherwise, with stats.optionRefused). Fails
    // and is cancelled as DrawHostModels is.
    JobOutcome Draw(const DrawingRequest& request, HostDrawing& drawing, std::string& error,
                    DrawingMonitor* monitor = nullptr) const;

    // The inputs in the drawing's unit and their record, shared with
    // DrawHostModels (defined beside it).
    struct Settled;

private:
    std::optional<LengthUnit> m_units;
    std::unique_ptr<const Settled> m_settled;
    std::unique_ptr<const ctr::PreparedModel> m_model;
};

}  // namespace contour

#endif
