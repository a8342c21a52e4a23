#include "check/Validate.h"

#include "exact/Exact.h"

namespace ctr {
namespace check {

namespace {

bool fail(std::string* why, const std::string& text) {
    if (why) *why = text;
    return false;
}

}  // namespace

bool ValidateHierarchy(const qe::qeGenericBVH& hierarchy, const std::vector<BakedVertex>& vertices,
                       const std::vector<uint32_t>& triangles, std::string* why) {
    if (triangles.size() % 3 != 0) return fail(why, "triangle list is not three indices per triangle");
    const size_t triangleQuantity = triangles.size() / 3;
    if (triangleQuantity > 0 && hierarchy.isEmpty()) return fail(why, "triangles without a hierarchy");
    if (!hierarchy.validate(static_cast<uint32_t>(triangleQuantity), why)) return false;
    // The structure check guarantees that every leaf range lies inside the
    // primitive list and names a triangle below the quantity.
    const std::vector<uint32_t>& primitives = hierarchy.getPrimitives();
    for (const qe::qeBVHNode& node : hierarchy.getNodes()) {
        if (!node.isLeaf()) continue;
        for (uint32_t k = node.firstPrimitive(); k < node.firstPrimitive() + node.primitiveCount(); ++k) {
            const size_t t = primitives[k];
            for (int c = 0; c < 3; ++c) {
                const uint32_t index = triangles[3 * t + c];
                if (index >= vertices.size())
                    return fail(why, "corner index out of range in triangle " + std::to_string(t));
                // Leaf boxes are rounded outward from the grid, so a grid
                // coordinate converted to float lies inside when refitted.
                const BakedVertex& v = vertices[index];
                const float coordinate[3] = {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
                for (int axis = 0; axis < 3; ++axis)
                    if (!(node.box.Min[axis] <= coordinate[axis] && coordinate[axis] <= node.box.Max[axis]))
                        return fail(why, "leaf box misses triangle " + std::to_string(t));
            }
        }
    }
    return true;
}

bool ValidateIntervals(const std::vector<RationalInterval>& list, std::string* why) {
    for (size_t i = 0; i < list.size(); ++i) {
        const RationalInterval& r = list[i];
        const auto failAt = [&](const char* text) { return fail(why, "hidden interval " + std::to_string(i) + text); };
        if (r.startDenominator <= 0 || r.endDenominator <= 0) return failAt(" has a denominator that is not positive");
        // With positive denominators these are the exact tests 0 <= start,
        // end <= 1 and start < end.
        if (r.startNumerator < 0 || r.endNumerator > r.endDenominator) return failAt(" leaves [0, 1]");
        if (!exact::Less(r.startNumerator, r.startDenominator, r.endNumerator, r.endDenominator))
            return failAt(" is empty");
        if (i > 0) {
            const RationalInterval& before = list[i - 1];
            if (!exact::Less(before.endNumerator, before.endDenominator, r.startNumerator, r.startDenominator))
                return failAt(" does not start after the end of the one before it");
        }
    }
    return true;
}

}  // namespace check
}  // namespace ctr
