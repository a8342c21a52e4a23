// From a reader's mesh to the model: corners joined into framework vertex
// and index buffers, and the buffers placed as mesh instances.
#ifndef CONTOUR_WELDING_H
#define CONTOUR_WELDING_H

#include <string>

#include "ctr/drawing/ModelImport.h"
#include "SourceMesh.h"

namespace contour::importer {

using tRows = Wm4::Matrix4<float>;

struct tBuffers {
    qe::qePointer<qe::qeVertexBuffer> vertices;
    qe::qePointer<qe::qeIndexBuffer> indices;
    bool normalsGenerated = false;
    double normalSeconds = 0.0;  // spent making them
};

// What a converted mesh adds to the model's tallies.
void tally(ImportedModel& model, const tBuffers& buffers);

// Some formats (OBJ with its separate position and normal indices, STL)
// arrive with one vertex per triangle corner. Corners that agree bit for bit
// in position and normal are joined again, which gives back the sharing the
// model had and a third of the memory; split normals along creases stay
// split. Vertices no triangle uses are dropped; the others are numbered in
// the order of their first corner.
//
// Normals are made when the options ask for them and the mesh has none, or
// only facet normals. A mesh without triangles leaves buffers empty.
// Returns false with the reason in error when a position that a corner
// uses is not finite.
bool convertMesh(const tSourceMesh& source, unsigned int meshIndex, const ImportOptions& options, bool facetNormalsOnly,
                 tBuffers& buffers, std::string& error);

// One mesh instance of the model: shared buffers, placed by rows.
void placeMesh(ImportedModel& model, const tBuffers& buffers, const tRows& rows, const std::string& name);

}  // namespace contour::importer

#endif
