// A position in discrete projection space.
#ifndef CTR_BAKEDVERTEX_H
#define CTR_BAKEDVERTEX_H

#include <cstdint>

namespace ctr {

// Integer grid coordinates, 0 at the clip cube's minimum on each axis; x and y
// are screen axes, z is depth and smaller z is nearer the viewer.
struct BakedVertex {
    int32_t x = 0;
    int32_t y = 0;
    int32_t z = 0;

    bool operator==(const BakedVertex& other) const { return x == other.x && y == other.y && z == other.z; }
    bool operator!=(const BakedVertex& other) const { return !(*this == other); }
};

}  // namespace ctr

#endif
