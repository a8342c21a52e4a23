// Validators of the two structures every hidden-line decision reads: the
// hierarchy over the baked triangles and the merged hidden-interval list of
// a segment. Each is a whole-structure check, linear in its size, that
// returns false with the reason in why (when why is non-null) instead of
// stopping, so tests can hand it broken copies. Where the structures are
// built, the library runs them while IsValidating() (check/Check.h) and fails
// through CTR_ASSERT_MSG with the reason.
#ifndef CTR_CHECK_VALIDATE_H
#define CTR_CHECK_VALIDATE_H

#include <cstdint>
#include <string>
#include <vector>

#include "qe/qeGenericBVH.h"

#include "ctr/BakedVertex.h"
#include "ctr/RationalInterval.h"

namespace ctr {
namespace check {

// The hierarchy over triangles (three indices into vertices per triangle):
// its structure (child links, every triangle in exactly one leaf position,
// primitive numbers in range; see qe::qeGenericBVH::validate), every inner
// box containing its children's boxes, every corner index in range, and
// every leaf box containing the grid box of each of its triangles. A list
// with triangles must have a hierarchy; an empty one must have none.
bool ValidateHierarchy(const qe::qeGenericBVH& hierarchy, const std::vector<BakedVertex>& vertices,
                       const std::vector<uint32_t>& triangles, std::string* why);

// A merged list of hidden intervals: positive denominators, every interval
// non-empty and inside [0, 1], sorted, and each ending strictly before the
// next starts (the merge joins touching intervals). Compared exactly.
bool ValidateIntervals(const std::vector<RationalInterval>& list, std::string* why);

}  // namespace check
}  // namespace ctr

#endif
