// The packing of CreaseEdgeInfo's second word.
#ifndef CTR_LINES_CREASERECORD_H
#define CTR_LINES_CREASERECORD_H

#include <cstdint>

#include "ctr/LineSegmentSet.h"

namespace ctr {

// Bits 0 to 30: the second vertex index; bit 31: the normalsPerpendicular
// flag. Vertex indices of crease records are therefore limited to 31 bits.
constexpr uint32_t kCreaseIndexMask = 0x7FFFFFFFu;
constexpr uint32_t kCreaseFlagBit = 0x80000000u;

}  // namespace ctr

#endif
