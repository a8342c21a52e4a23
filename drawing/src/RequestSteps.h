// The steps a request shares, whether its models come from files (Job.cpp)
// or from a host's memory (HostDrawing.cpp).
#ifndef CTR_DRAWING_REQUESTSTEPS_H
#define CTR_DRAWING_REQUESTSTEPS_H

#include <string>
#include <vector>

#include "ctr/drawing/Job.h"
#include "ctr/drawing/ThreadPool.h"

namespace contour {

// The request's drawing options with the drawing's unit settled over the
// models (scaling those in another unit into it), recorded in run too.
DrawingOptions SettleDrawingOptions(const DrawingRequest& request, const std::vector<ImportedModel*>& models,
                                    RunStats& run);

// Draws the view or the sheet the request asks for into path, on a pool of
// the request's threads (recorded in run). Fails as DrawToSVG and DrawSheet
// do; kept as DrawToSVG takes it, for a single view. With prepared (made of
// these meshes and occluders) the view or sheet starts from it, with the
// same bytes; without, a single view finds its own creases and a sheet
// prepares for its views. pool, when given, is used instead of a new one.
bool DrawRequested(const DrawingRequest& request, const DrawingOptions& options,
                   const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
                   const std::string& path, RunStats& run, DrawingStats& stats, std::string& error,
                   DrawingMonitor* monitor, ViewLines* kept = nullptr, const ctr::PreparedModel* prepared = nullptr,
                   ThreadPool* pool = nullptr);

}  // namespace contour

#endif
