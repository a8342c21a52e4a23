// One drawing from model files to an SVG file, the way a front end asks for
// it: the files are read, the camera framed, the view or the sheet drawn, the
// statistics collected, and the output replaced only once it is complete.
#ifndef CTR_DRAWING_JOB_H
#define CTR_DRAWING_JOB_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ctr/drawing/ModelImport.h"
#include "ctr/drawing/Drawing.h"
#include "ctr/drawing/Sheet.h"

namespace contour {

struct DrawingRequest {
    std::vector<std::string> models;
    std::vector<std::string> occluders;  // hide lines, drawn nothing
    bool demo = false;                   // the built-in scene instead of models
    ImportOptions import;
    DrawingOptions drawing;
    bool sheet = false;  // a multi-view sheet instead of one view
    // drawing.camera.up was asked for; otherwise a sheet takes the first
    // model's format convention (FormatUp).
    bool upGiven = false;
    SheetOptions sheetOptions;
    unsigned int threads = 0;  // 0: one per core
    std::string output;        // "-" for standard output
    std::string statsPath;     // empty: no statistics file
    std::string pageLabel;     // e.g. "A4 portrait", for the record
    // Every model taken to be in this unit, whatever its file states;
    // otherwise the first model's stated unit or millimetres (SettleUnits).
    std::optional<LengthUnit> units;
};

struct InputStats {
    std::string path;
    const char* role = "model";  // or "occluder"
    size_t meshes = 0;
    size_t triangles = 0;
    size_t vertices = 0;
    bool normalsGenerated = false;  // from the faces, for lack of stored ones
    std::optional<LengthUnit> statedUnit;  // by the file or its format
    // CAD files: the unit the file names, faces per kind of surface, true
    // edges drawn and tangent ones, and what the reader left out.
    bool cad = false;
    std::string fileUnit;
    std::vector<std::pair<std::string, size_t>> surfaces;
    size_t sharpEdges = 0, tangentEdges = 0;
    std::vector<std::string> readerWarnings;
};

// The record of one input file.
InputStats DescribeInput(const std::string& path, const char* role, const ImportedModel& model);

struct RunStats {
    std::vector<InputStats> inputs;
    size_t meshes = 0, triangles = 0, occluderTriangles = 0;
    double importSeconds = 0.0;   // reading files, normals excluded
    double normalsSeconds = 0.0;  // normals made for files without them
    double totalSeconds = 0.0;
    unsigned int threads = 1;
    LengthUnit unit = LengthUnit::kMillimetre;  // the drawing's
    double extentMM = 0.0;  // the largest side of the drawn meshes' box
    std::string unitWarning;  // UnitWarning's line, when the size is unlikely
};

// Fills in what the request leaves to the models' formats: a sheet's up
// direction, unless asked for, from the first model file's format
// (FormatUp; an empty name leaves it).
void ApplyFormatConventions(DrawingRequest& request, const std::string& firstModel);

enum class JobOutcome { kDrawn, kFailed, kCancelled };

// Runs the request. kFailed comes with a one-line reason in error, and
// kCancelled when the monitor asked to stop (it is also asked between
// files); either way nothing on disk has changed. The statistics file, when
// asked for, is written before the drawing is committed, so that a run that
// cannot write it leaves the old drawing too. Running out of memory, or any
// other exception, ends in kFailed as well.
JobOutcome RunDrawingJob(const DrawingRequest& request, RunStats& run, DrawingStats& stats, std::string& error,
                         DrawingMonitor* monitor = nullptr);

// Writes the record of a run to path, replacing any file there only once it
// is complete. False with a one-line reason.
bool WriteStats(const std::string& path, const DrawingRequest& request, const RunStats& run,
                const DrawingStats& drawing, std::string& error);
// The record that WriteStats writes, as JSON text.
std::string StatsRecord(const DrawingRequest& request, const RunStats& run, const DrawingStats& drawing);

// A digest of everything in the request that shapes the drawing's bytes, and
// of the tool's version: equal digests mean the same drawing of the same
// model. Models, outputs, statistics path, threads and the sheet's date are
// left out, so that a drawing is current whatever day or folder it is asked
// for again. Written into the record as "optionsHash".
std::string DrawingOptionsHash(const DrawingRequest& request);

}  // namespace contour

#endif
