// The command line of the tool: options, their checks and the help text.
#ifndef CONTOUR_COMMANDLINE_H
#define CONTOUR_COMMANDLINE_H

#include <string>
#include <vector>

#include "ctr/drawing/Job.h"

namespace contour {

// What to draw, and how the tool itself should talk.
struct ToolOptions : DrawingRequest {
    bool quiet = false;
    // `contour batch`: the models are the parts (files or folders), each
    // drawn into outDir with the options above.
    bool batch = false;
    std::string outDir;
    std::string report;  // empty: outDir/report.json
    unsigned int jobs = 0;
    bool redrawAll = false;
    bool titleGiven = false;
};

// -1 when the tool is to run with options filled in (a batch when the first
// argument is "batch"). Otherwise the exit
// code: 0 after printing help or version, 2 after reporting a usage error
// on standard error.
int ParseCommandLine(int argc, char** argv, ToolOptions& options);

}  // namespace contour

#endif
