// The command line of the tool: options, their checks and the help text.
#ifndef CONTOUR_COMMANDLINE_H
#define CONTOUR_COMMANDLINE_H

#include <string>
#include <vector>

#include "Drawing.h"
#include "Sheet.h"

namespace contour {

struct ToolOptions {
    std::vector<std::string> models;
    std::vector<std::string> occluders;
    bool demo = false;
    std::string output;  // "-" for standard output
    bool quiet = false;
    unsigned int threads = 0;  // 0: one per core
    float smoothingAngleDegrees = 30.0f;
    std::string pageLabel;  // e.g. "A4 portrait", for the summary
    std::string statsPath;  // empty: no statistics file
    DrawingOptions drawing;
    // A multi-view sheet instead of one view.
    bool sheet = false;
    SheetOptions sheetOptions;
};

// -1 when the tool is to run with options filled in. Otherwise the exit
// code: 0 after printing help or version, 2 after reporting a usage error
// on standard error.
int ParseCommandLine(int argc, char** argv, ToolOptions& options);

}  // namespace contour

#endif
