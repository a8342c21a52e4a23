// The container of feature lines, and the extraction of crease and outline
// edges into it.
#ifndef CTR_LINESEGMENTSET_H
#define CTR_LINESEGMENTSET_H

#include <cstdint>
#include <vector>

#include "qe/qeCancelInterface.h"
#include "qe/qeGenericTransformation.h"
#include "qe/qeIndexBuffer.h"
#include "qe/qeLine.h"
#include "qe/qePointer.h"
#include "qe/qeVertexBuffer.h"

#include "ctr/Export.h"
#include "ctr/RationalInterval.h"

namespace qe {
class qeTriMesh;
}

namespace ctr {

// Segment i runs from the vertex at index position 2i to the one at 2i + 1 of
// the line index buffer; a trailing odd index is ignored. The three side
// tables are either empty or hold one entry per segment.
//
// Sets are heap objects born with no reference: the first qe::qePointer that
// stores one owns it. Operations that make a set return it that way, or null
// when there is nothing to make.
class CTR_API LineSegmentSet : public qe::qeLine {
public:
    // The part of a segment inside the view volume, as the clipper gives it:
    // parameters of the clipped ends and their clip-space w. tStart >= tEnd
    // means nothing of the segment is in view.
    struct tSegmentClip {
        float tStart;
        float tEnd;
        float wStart;
        float wEnd;
    };

    // One stretch of an output polyline of BuildPolylines: the indices
    // [begin, end) of the output index buffer, both even and begin < end, so
    // (end - begin) / 2 segments. previous and next link the stretches of one
    // polyline in order (null at its ends); they point into the vector that
    // BuildPolylines filled, so they hold while that vector is neither
    // reallocated nor copied (a copy's links still point into the original).
    struct ArcFeature {
        static constexpr uint32_t kArc = 1;   // a circular arc
        static constexpr uint32_t kLine = 2;  // a straight line
        // flags is kArc, kLine or 0 (a stretch that is neither).

        uint32_t begin;
        uint32_t end;
        ArcFeature* previous;
        ArcFeature* next;
        uint32_t flags;

        // Turns the stretch around in place: its indices in reverse order (each
        // segment's two ends swap, the segments run backwards), and likewise
        // the per-segment entries begin / 2 .. end / 2 - 1 of segmentFlags and
        // bytes. indexArray must hold at least end indices; segmentFlags and
        // bytes may be null, and one shorter than end / 2 entries is left
        // alone. The links are not changed.
        void reverseIndexBuffer(unsigned int* indexArray, std::vector<bool>* segmentFlags,
                                std::vector<unsigned char>* bytes) const;
    };

    LineSegmentSet();
    ~LineSegmentSet() override;

    // Copies the line part by the framework's rules (buffers shared), then
    // the occlusion data. Flags are never cloned: the target's are emptied.
    // A target that is not a LineSegmentSet is refused untouched.
    bool Clone(qe::qeRttiInterface*& target) const override;

    // Index count / 2; 0 without an index buffer.
    int getSegmentQuantity() const { return IBuffer ? IBuffer->GetIndexQuantity() / 2 : 0; }

    // Crease edges (stored normals turning by more than angleDegrees) and open
    // borders of a triangle list, as a set sharing the given vertex buffer.
    // Null when the input is invalid, has no such edge, or was cancelled.
    static LineSegmentSet* GetCreaseEdgesFromMesh(const qe::qeVertexBuffer* vertices,
                                                  const qe::qeIndexBuffer* triangles,
                                                  const qe::qeCancelInterfaceReadOnly& cancel, float angleDegrees,
                                                  bool keepFlags);
    // The same, placed in the scene where the mesh is (vertices stay in the
    // mesh's model space).
    static LineSegmentSet* GetCreaseEdgesFromTriMesh(const qe::qeTriMesh* mesh,
                                                     const qe::qeCancelInterfaceReadOnly& cancel, float angleDegrees,
                                                     bool keepFlags);

    // Wraps a ready-made line index buffer over the given vertices; both
    // buffers are shared, nothing is copied or checked.
    static LineSegmentSet* GetOutlineEdgesFromMesh(const qe::qeVertexBuffer* vertices,
                                                   qe::qePointer<qe::qeIndexBuffer> lines,
                                                   const qe::qeGenericTransformation<float>& transformation);
    // The same for a mesh: the set takes the mesh's world transformation as
    // both its local and its world transformation.
    static LineSegmentSet* GetOutlineEdgesFromTriMesh(const qe::qeTriMesh* mesh,
                                                      qe::qePointer<qe::qeIndexBuffer> lines);

    // Copies the sets, in order, into one set in world space: every vertex
    // (transformed by its set's world transformation) and every segment, with
    // the hidden intervals. No welding, no flags, no clip records. Null
    // entries and sets lacking a buffer are skipped; null when nothing is left.
    static LineSegmentSet* FuseLineSegmentSets(const std::vector<LineSegmentSet*>& sets);

    // Deletes from a every segment whose two end positions b also holds, in
    // either direction (exact float equality, no transformation applied).
    // Kept segments keep their order and their per-segment data. A set left
    // without segments loses its index buffer. Null sets, and a b without
    // segments, change nothing.
    static void RemoveCommonSegments(LineSegmentSet* a, const LineSegmentSet* b);

    // Deletes every segment whose two end positions an earlier segment of the
    // same set already has, in either direction (exact float equality; a
    // position with a NaN matches nothing). A mesh with split normals along
    // a crease yields the crease once from each side; drawn as they are, both
    // copies reach the page. Kept segments keep their order and their
    // per-segment data, so this may run before or after occlusion. Returns the number of
    // segments deleted.
    static int RemoveDuplicateSegments(LineSegmentSet* set);

    // The visible pieces of the segments of a set whose occlusion has been
    // computed, one segment each, cut at the ends of the hidden intervals at
    // the 3D points that project onto the cuts. Null when nothing is visible.
    static LineSegmentSet* BakeVisibleSegments(const LineSegmentSet* source);

    // A position-only buffer holding once every distinct position that the
    // segments of indices use (equal as floats: no tolerance, +0 equals -0,
    // NaN never equal), sorted by position, into filtered (released first;
    // the new buffer is shared by reference count). remap gets one entry per
    // old vertex: the new index of a used one, 0 for an unused one. A
    // trailing odd index and indices naming no vertex mark nothing.
    static void CreateFilteredVertexBuffer(const qe::qeVertexBuffer& vertices, const qe::qeIndexBuffer& indices,
                                           qe::qePointer<qe::qeVertexBuffer>& filtered,
                                           std::vector<unsigned int>& remap);
    // The same, rewriting every index of indices onto the new buffer (the
    // trailing odd one too); an index naming no vertex becomes 0.
    static void CreateFilteredVertexBufferPatched(const qe::qeVertexBuffer& vertices, qe::qeIndexBuffer& indices,
                                                  qe::qePointer<qe::qeVertexBuffer>& filtered);

    // Chains the segments of source into polylines and reports the stretches
    // of each in arcs (cleared first). Chaining follows vertex indices, not
    // positions: weld the source's vertices first where segments should
    // meet. A polyline runs through vertices where exactly two segments meet
    // and ends at any other vertex, or closes on itself; consecutive segments
    // share their vertex index, so some segments come out reversed. Segments
    // naming a vertex the buffer lacks are dropped; every other segment comes
    // out exactly once. The result depends only on the input, never on
    // timing.
    //
    // Stretches: a run whose first segment is flagged in segmentFlags is
    // fitted as lines (kLine), any other as circular arcs (kArc), and an arc
    // must span at least 22.5 degrees; what fits neither stays a stretch
    // with flags 0. The fitting tolerances are FittingSystem's.
    //
    // Returns a new set with no reference yet (the caller owns it): the
    // source's vertex buffer shared, or with filterVertices a welded buffer
    // of its own (CreateFilteredVertexBufferPatched); a new line index
    // buffer; segmentFlags in output order when the source has any, else
    // empty; the source's placement, colour and width; no occlusion data.
    // Null, with arcs empty, when the source lacks a buffer or keeps no
    // segment.
    static LineSegmentSet* BuildPolylines(const LineSegmentSet& source, std::vector<ArcFeature>& arcs,
                                          bool filterVertices);
    // The worker of BuildPolylines over bare buffers. segmentFlags may be
    // null or empty (no flags: every run is fitted as arcs); missing entries
    // read as false. segmentBytes, when given, is a per-segment byte array
    // carried along like the flags (missing entries read as 0) and replaced
    // by the output's. On true, outIndices holds a new line index buffer of
    // the chained segments and outFlags their flags (empty without input
    // flags). False, with arcs empty and outIndices, outFlags and
    // segmentBytes untouched, when no segment names two existing vertices.
    static bool BuildPolylinesImpl(const qe::qeVertexBuffer& vertices, const qe::qeIndexBuffer& indices,
                                   const std::vector<bool>* segmentFlags, std::vector<unsigned char>* segmentBytes,
                                   qe::qePointer<qe::qeIndexBuffer>& outIndices, std::vector<ArcFeature>& arcs,
                                   std::vector<bool>& outFlags);

    std::vector<bool> segmentFlags;
    // Per segment, the parameter intervals in which it is hidden.
    std::vector<std::vector<RationalInterval>> occlusionIntervals;
    std::vector<tSegmentClip> segmentClips;
};

// One crease or border edge: vertex indices in canonical order (smaller
// position first, x then y then z; equal positions by index). The second
// word holds the second index in bits 0 to 30 and the normalsPerpendicular
// flag in bit 31: mask it with 0x7FFFFFFF before using it as an index.
struct CreaseEdgeInfo {
    uint32_t vertexA;
    uint32_t vertexBAndFlag;
};

// Crease and border edges of a triangle list, sorted by their end positions.
// Two triangle edges are one edge when their end positions are bit-identical.
// Each further copy of an interior edge is compared with the first copy's
// vertex normals; when either pair differs by more than angleDegrees both
// copies are emitted. The vertex buffer must carry positions and normals and
// every index must name one of its vertices, else the result is false (so is
// it on cancellation).
CTR_API bool ComputeCreaseEdgeInfo(std::vector<CreaseEdgeInfo>& out, const qe::qeVertexBuffer* vertices,
                                   const qe::qeIndexBuffer* triangles, float angleDegrees,
                                   const qe::qeCancelInterfaceReadOnly& cancel);

// A line index buffer (two indices per record) and, when outFlags is given,
// the per-segment flags. False for no record or more than 0x3FFFFFFF.
CTR_API bool MakeBuffersFromEdgeInfo(const std::vector<CreaseEdgeInfo>& infos,
                                     qe::qePointer<qe::qeIndexBuffer>& outIndices, std::vector<bool>* outFlags);

// Merges the segments of a line index buffer into records that are in the
// order ComputeCreaseEdgeInfo leaves them. lines is put into canonical order
// in place. origin gets one value per resulting record: 1 only in lines,
// 2 only in the records, 3 in both. Every index of lines must name a vertex.
CTR_API bool ComputeEdgeInfoFromIBuffer(std::vector<CreaseEdgeInfo>& infos, const qe::qeVertexBuffer* vertices,
                                        qe::qeIndexBuffer* lines, std::vector<unsigned char>& origin);

}  // namespace ctr

#endif
