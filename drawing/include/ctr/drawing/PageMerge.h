// One stroke per line of the page: pieces of a view that land on the same
// page line, and overlap there, are drawn once.
//
// Exact hiding works on the edges of the model, so two distinct edges that
// project onto one line (the front and back rims of a bore seen along its
// axis, a crease and the silhouette beside it, the hidden part of an edge
// behind a visible one) each reach the page. A plotter then draws the line
// twice and a CAD program imports two entities. The merge looks at the page
// only, after hiding, and leaves the library's own computations untouched.
#ifndef CTR_DRAWING_PAGEMERGE_H
#define CTR_DRAWING_PAGEMERGE_H

#include <cstddef>

#include "ctr/ExportParameters.h"
#include "ctr/drawing/Drawing.h"

namespace contour {

// How far apart two page points may be and still print alike, in
// millimetres. The writers print six significant digits, so a page
// coordinate below 1000 mm (every coordinate of a page whose larger side is
// below 1000 mm) keeps three decimals, and so on for larger pages: one step
// of the last printed digit at the page's largest coordinate. Two printed
// points each off by half a step are a step apart at most, so within this
// distance the file cannot tell points apart.
double PageRoundingMM(const ctr::ExportParameters& parameters);

// Merges, in place, the pieces of a view (visible ones of every kind and the
// hidden ones) that lie on one page line and overlap or touch there: each
// such run becomes one piece from the world point of one extreme end to the
// world point of the other, so no new point is computed. "On one line" and
// "touch" allow 2.5 PageRoundingMM: the step the file prints, plus the √2
// steps by which printing two points may stretch a distance, so that no
// pair a reader of the file finds within a step is left. Where kinds meet on
// a line, visible pieces take the stretch from hidden ones, and silhouettes
// (and intersections, drawn alike) from creases; a piece that loses a
// stretch ends at the winner's end point there, and a remainder within the
// tolerance is dropped. With keepCommon the creases keep what silhouettes
// and intersections repeat, as the user asked them to.
// Adds the pieces merged away to the mergedOnPage counts of stats and the
// step's time to its phases as "page merge".
void MergeOnPage(ViewLines& lines, bool keepCommon, DrawingStats& stats);

}  // namespace contour

#endif
