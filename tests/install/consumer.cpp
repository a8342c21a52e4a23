// A host program built only against the installed package.
#include <cstdio>
#include <vector>

#include "qe/qeTriMesh.h"

#include "ctr/BakedTriangles.h"
#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/Version.h"

int main() {
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    qe::qePointer<qe::qeVertexBuffer> vertices = new qe::qeVertexBuffer(attributes, 3);
    vertices->Position3(0) = Wm4::Vector3<float>(-0.5f, -0.5f, 0.0f);
    vertices->Position3(1) = Wm4::Vector3<float>(0.5f, -0.5f, 0.0f);
    vertices->Position3(2) = Wm4::Vector3<float>(0.0f, 0.5f, 0.0f);
    qe::qePointer<qe::qeIndexBuffer> indices = new qe::qeIndexBuffer(3, qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    for (unsigned int i = 0; i < 3; ++i) indices->GetData()[i] = i;
    qe::qePointer<qe::qeTriMesh> mesh = new qe::qeTriMesh(vertices, indices);

    ctr::DiscreteProjectionSpace space;
    ctr::BakedTriangles baked;
    baked.setProjectionSpace(&space);
    baked.setMeshes(std::vector<const qe::qeTriMesh*>{mesh});
    baked.initialize();

    // An edge behind the triangle, across its middle.
    std::vector<ctr::RationalInterval> hidden;
    baked.computeOcclusionIntervals(ctr::BakedVertex{0, 400000, 900000}, ctr::BakedVertex{1048575, 400000, 900000},
                                    hidden);
    std::printf("%s hidden %zu\n", qeContouringLib::Version::GetDescStringMajorMinorReleaseRevision(false, false),
                hidden.size());
    return 0;
}
