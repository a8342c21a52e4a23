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
};

// -1 when the tool is to run with options filled in. Otherwise the exit
// code: 0 after printing help or version, 2 after reporting a usage error
// on standard error.
int ParseCommandLine(int argc, char** argv, ToolOptions& options);

}  // namespace contour

#endif
