#include "ctr/PreparedModel.h"

#include <algorithm>

#include "qe/qeIndexBuffer.h"

#include "generator/GeneratorInternal.h"

namespace ctr {

PreparedModel::PreparedModel(const std::vector<const qe::qeTriMesh*>& meshList,
                             const std::vector<const qe::qeTriMesh*>* occluderList, Executor* executor)
    : meshes(meshList), occluders(occluderList ? *occluderList : std::vector<const qe::qeTriMesh*>()) {
    creaseEdges = ExtractCreaseEdges(meshes, executor);
}

PreparedModel::~PreparedModel() = default;

LineSegmentSet* PreparedModel::copyCreaseEdges() const {
    if (!creaseEdges) return nullptr;
    // Clone shares both buffers and copies placement, bounds, colour, width
    // and occlusion data. The index buffer is what a view rewrites (common
    // segments go, duplicates go), so it gets its own; the vertex buffer is
    // only read. Clone drops flags, which are copied here so that the copy
    // is the set as extracted.
    LineSegmentSet* copy = new LineSegmentSet;
    qe::qeRttiInterface* target = copy;
    creaseEdges->Clone(target);
    copy->segmentFlags = creaseEdges->segmentFlags;
    if (const qe::qeIndexBuffer* indices = creaseEdges->IBuffer) {
        qe::qePointer<qe::qeIndexBuffer> own =
            new qe::qeIndexBuffer(indices->GetIndexQuantity(), indices->GetIndexBufferType());
        std::copy(indices->GetData(), indices->GetData() + indices->GetIndexQuantity(), own->GetData());
        copy->IBuffer = own;
    }
    return copy;
}

}  // namespace ctr
