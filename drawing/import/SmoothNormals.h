// Per-vertex normals made from the faces of a mesh that has none (or only
// the facet normals of STL), for the corner joining to number as vertices.
#ifndef CONTOUR_SMOOTHNORMALS_H
#define CONTOUR_SMOOTHNORMALS_H

#include <cstdint>

#include "Wm4Vector3.h"

#include "ctr/Executor.h"

#include "SourceMesh.h"

namespace contour::importer {

// Vertices of a mesh stored without normals, with normals generated per
// smooth fan. Corners meet where their positions are bit-identical: the
// corners at one position form a group. Within a group, two corners belong
// to one fan when their faces share an edge there (a second position in
// common) and the face directions turn by at most the smoothing angle; fans
// are closed under that relation. (At an edge of more than 17 faces with a
// direction, only faces near each other in turn around the edge are
// compared, which joins the same fans but for rounding; see the source. The
// work stays n log n in the faces at an edge or a vertex.) Every corner of a
// fan gets the same normal, the normalised sum of the fan's area-weighted
// face normals (summed in corner order). A smooth edge thus never splits its vertices, so the
// crease rule cannot draw it however noisy the surface, while a sharp edge
// does split them and is drawn. The one exception is an isolated sharp edge,
// the only sharp edge at both of its end vertices: around each end the fan
// wraps round through the smooth faces and joins both sides, so that edge
// stays smooth, as a lone fold in a smooth surface should.
//
// A face without area has no direction. It must not join two fans across a
// crease, so the directionless corners joined by shared edges hang as a
// whole on the fan of one edge-neighbour with a direction (the first in
// corner order); those with no such neighbour take the mean of the whole
// group, as does every corner of a group with no direction at all.
//
// Two corners share a vertex when they share the position and their normals
// agree bit for bit, so vertices never span groups and are found group by
// group: each distinct normal of a group is a slot. The slots are numbered
// as vertices in the order of their first corner afterwards.
struct tSmoothVertices {
    ScratchArray<Wm4::Vector3<float>> normal;  // per slot
    ScratchArray<uint32_t> source;             // per slot: a source vertex at its position
};

// Appends the slots of source to slots and writes each corner's slot to
// slotOfCorner (one entry per corner). Faces join across an edge when their
// directions differ by at most angleDegrees. The work runs on executor when
// one is given; the result is the same without.
void makeSmoothSlots(const tSourceMesh& source, float angleDegrees, unsigned int* slotOfCorner, tSmoothVertices& slots,
                     ctr::Executor* executor = nullptr);

}  // namespace contour::importer

#endif
