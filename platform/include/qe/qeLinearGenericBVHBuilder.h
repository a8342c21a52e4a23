// Top-down hierarchy builder over a primitive container.
#ifndef QE_QELINEARGENERICBVHBUILDER_H
#define QE_QELINEARGENERICBVHBUILDER_H

#include <cstdint>

#include "qe/qeBVHPrimitiveContainer.h"
#include "qe/qeCancelInterface.h"
#include "qe/qeGenericBVH.h"

namespace qe {

class qeLinearGenericBVHBuilder {
public:
    enum SplitMethod {
        // Surface-area heuristic evaluated on 16 bins per axis.
        SPLIT_BINNED_SAH = 0,
        // Halves the primitives at the median centroid of the widest axis.
        SPLIT_MEDIAN = 1,
    };

    // Builds into bvh (cleared first). Leaves hold consecutive runs of the
    // primitive list, at most maxLeafSize primitives each (a value of 0 is
    // taken as 1). Node boxes are those of the container's boxes.
    // Returns false, with bvh empty, when cancel reports cancellation, when
    // the container is empty, or when it holds more than kMaxPrimitives
    // primitives (the node words cannot address more).
    static bool build(const qeBVHPrimitiveContainer& container, qeGenericBVH& bvh,
                      const qeCancelInterfaceReadOnly* cancel, uint32_t maxLeafSize,
                      SplitMethod method = SPLIT_BINNED_SAH);

    static constexpr uint32_t kMaxPrimitives = 1u << 27;
};

}  // namespace qe

#endif
