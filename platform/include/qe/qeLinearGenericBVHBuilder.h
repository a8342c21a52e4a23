// Top-down hierarchy builder over a primitive container.
#ifndef QE_QELINEARGENERICBVHBUILDER_H
#define QE_QELINEARGENERICBVHBUILDER_H

#include <cstddef>
#include <cstdint>
#include <functional>

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

    // How a caller lends the builder threads: calls task(i) exactly once for
    // every i in [0, count), on any threads, and returns when all calls have
    // returned. The builder never calls it from inside a task.
    typedef std::function<void(size_t count, const std::function<void(size_t)>& task)> ParallelFor;

    // Builds into bvh (cleared first). Leaves hold consecutive runs of the
    // primitive list, at most maxLeafSize primitives each (a value of 0 is
    // taken as 1). Node boxes are those of the container's boxes.
    // Returns false, with bvh empty, when cancel reports cancellation, when
    // the container is empty, or when it holds more than kMaxPrimitives
    // primitives (the node words cannot address more).
    // With parallelFor, independent subtrees are built through it and joined
    // into the very node numbering and primitive order of the build without
    // it; cancel is then polled from its threads too.
    static bool build(const qeBVHPrimitiveContainer& container, qeGenericBVH& bvh,
                      const qeCancelInterfaceReadOnly* cancel, uint32_t maxLeafSize,
                      SplitMethod method = SPLIT_BINNED_SAH, const ParallelFor& parallelFor = ParallelFor());

    static constexpr uint32_t kMaxPrimitives = 1u << 27;
};

}  // namespace qe

#endif
