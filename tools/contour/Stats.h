// A JSON record of one run of the tool, for pipelines that check or chart
// their drawings.
#ifndef CONTOUR_STATS_H
#define CONTOUR_STATS_H

#include <cstddef>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Drawing.h"

namespace contour {

struct InputStats {
    std::string path;
    const char* role;  // "model" or "occluder"
    size_t meshes = 0;
    size_t triangles = 0;
    size_t vertices = 0;
    bool normalsGenerated = false;  // from the faces, for lack of stored ones
};

struct RunStats {
    std::vector<InputStats> inputs;
    double importSeconds = 0.0;   // reading files, normals excluded
    double normalsSeconds = 0.0;  // normals made for files without them
    double totalSeconds = 0.0;
    unsigned int threads = 1;
};

// Writes the record to path, replacing any file there only once it is
// complete. False with a one-line reason.
bool WriteStats(const std::string& path, const ToolOptions& options, const RunStats& run, const DrawingStats& drawing,
                std::string& error);

}  // namespace contour

#endif
