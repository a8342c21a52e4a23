// The record that the counting pass of BakedTriangles::initialize fills for
// the storing pass.
#ifndef CTR_PROJECTION_FIRSTPASS_H
#define CTR_PROJECTION_FIRSTPASS_H

#include <cstdint>
#include <vector>

#include "Wm4Vector4.h"
#include "qe/qeMemory.h"

#include "ctr/BakedTriangles.h"
#include "ctr/BakedVertex.h"

namespace ctr {

// Source triangles per chunk of the counting pass: a whole number of words
// of the inside bits, so that chunks never share a word.
constexpr uint32_t kTriangleChunk = 1u << 14;
static_assert(kTriangleChunk % 32 == 0, "triangle chunks own whole words of the inside bits");

struct BakedTriangles::tFirstPassData {
    // A source triangle that clipping changed: where its clipped polygon
    // (clip space) lies in the mesh's polygon list, the source triangle's
    // number and the 2-bit edge codes of the polygon's vertices (as
    // DiscreteProjectionSpace::clipTriangle gives).
    struct tClipRecord {
        uint32_t firstVertex = 0;
        uint32_t vertexCount = 0;
        uint32_t triangle = 0;
        uint32_t edgeCodes = 0;
    };
    struct tMeshData {
        uint32_t triangleCount = 0;
        uint32_t fanTriangleCount = 0;
        // One bit per source triangle kept as it is (inside every clip
        // plane, with area on screen), and how many are set in each chunk of
        // kTriangleChunk source triangles.
        std::vector<uint32_t> insideBits;
        std::vector<uint32_t> chunkKeptCounts;
        // Every source vertex quantised, or the out-of-cube marker.
        qe::qeLargeVector<BakedVertex> sourceVertices;
        std::vector<tClipRecord> clipRecords;
        std::vector<Wm4::Vector4<float>> clipPolygons;
    };
    // Baked vertices and triangles to come: the fans of clipped polygons are
    // counted before the storing pass drops those without area on screen,
    // so the triangle count is an upper bound, the vertex count exact.
    uint32_t vertexCount = 0;
    uint32_t triangleCount = 0;
    std::vector<tMeshData> meshes;
};

}  // namespace ctr

#endif
