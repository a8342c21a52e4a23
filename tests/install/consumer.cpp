// A host program built only against the installed package.
#include <cstdio>
#include <vector>

#include "qe/qeTriMesh.h"

#include "ctr/BakedTriangles.h"
#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"
#include "ctr/Version.h"

int main() {
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    attributes.SetNormalChannels(3);
    qe::qePointer<qe::qeVertexBuffer> vertices = new qe::qeVertexBuffer(attributes, 3);
    for (int i = 0; i < 3; ++i) vertices->Normal3(i) = Wm4::Vector3<float>(0.0f, 0.0f, 1.0f);
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
    // The triangle's three borders, seen through the generator: all visible.
    const bool never = false;
    qe::qePointer<ctr::LineSegmentSet> borders =
        ctr::LineSegmentSet::GetCreaseEdgesFromTriMesh(mesh, qe::qeCancelInterfaceProxyReadOnly(never), 5.0f, true);
    ctr::GeometricFeaturesGenerator generator;
    generator.setProjectionSpace(space);
    generator.setSingleExportCluster({mesh}, nullptr);
    generator.computeOcclusion(*borders, 0);
    size_t hiddenBorders = 0;
    for (const auto& intervals : borders->occlusionIntervals) hiddenBorders += intervals.size();
    std::printf("%s hidden %zu borders %d hidden %zu\n",
                qeContouringLib::Version::GetDescStringMajorMinorReleaseRevision(false, false), hidden.size(),
                borders->getSegmentQuantity(), hiddenBorders);
    return 0;
}
