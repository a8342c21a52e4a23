// The lines along which the baked triangles of a cluster pass through each
// other, with their hidden parts removed.
#ifndef CTR_TRIANGLESINTERSECTION_H
#define CTR_TRIANGLESINTERSECTION_H

#include <memory>

#include "qe/qeProgressNotifierInterface.h"

#include "ctr/BakedTriangles.h"
#include "ctr/Executor.h"
#include "ctr/Export.h"
#include "ctr/LineSegmentSet.h"

namespace ctr {

// Works on the integer grid of the baked triangles: every decision is exact.
// The triangles must be baked with their hierarchy and outlive the object.
class CTR_API TrianglesIntersection {
public:
    class tInternal;

    explicit TrianglesIntersection(const BakedTriangles& triangles);
    ~TrianglesIntersection();
    TrianglesIntersection(const TrianglesIntersection&) = delete;
    TrianglesIntersection& operator=(const TrianglesIntersection&) = delete;

    // Not owned; null removes it.
    void setProgressNotifier(qe::qeProgressNotifierInterface* notifier);
    // Not owned; null (the default) runs everything on the calling thread.
    // The result is the same either way.
    void setExecutor(Executor* executor);

    // A new set (owned by the caller) of the visible pieces of every
    // intersection line, in world space, one segment and two vertices per
    // piece. Null when nothing is visible or the computation was cancelled.
    LineSegmentSet* computeIntersectionEdges() const;
    // The same, and the hidden pieces of the lines into hiddenPieces (when
    // given; null when nothing is hidden): the parts the visible pieces
    // leave, cut at the same grid points and taken to world space alike, so
    // that a visible and a hidden piece that meet share their end point. A
    // piece less than one grid cell long on screen is dropped from either.
    LineSegmentSet* computeIntersectionEdges(qe::qePointer<LineSegmentSet>* hiddenPieces) const;

    // The internal state, for code built against the library's internal
    // headers.
    const tInternal& getInternal() const { return *internal; }

private:
    std::unique_ptr<tInternal> internal;
};

}  // namespace ctr

#endif
