// Axis-aligned box of floats. A fresh box is empty: its lower corner is
// +infinity and its upper corner -infinity, so that the first point included
// sets both.
#ifndef QE_QEBBOX_H
#define QE_QEBBOX_H

#include <limits>

#include "Wm4Vector3.h"

namespace qe {

class qeBBox {
public:
    qeBBox() { makeEmpty(); }
    qeBBox(const Wm4::Vector3<float>& minimum, const Wm4::Vector3<float>& maximum) : Min(minimum), Max(maximum) {}

    void makeEmpty() {
        const float inf = std::numeric_limits<float>::infinity();
        Min = Wm4::Vector3<float>(inf, inf, inf);
        Max = Wm4::Vector3<float>(-inf, -inf, -inf);
    }
    bool isEmpty() const { return !(Min[0] <= Max[0] && Min[1] <= Max[1] && Min[2] <= Max[2]); }

    // NaN coordinates are ignored. Written as selections so that they
    // compile to branch-free minimum and maximum instructions.
    void include(const Wm4::Vector3<float>& point) {
        for (int axis = 0; axis < 3; ++axis) {
            Min[axis] = point[axis] < Min[axis] ? point[axis] : Min[axis];
            Max[axis] = point[axis] > Max[axis] ? point[axis] : Max[axis];
        }
    }
    void include(const qeBBox& box) {
        for (int axis = 0; axis < 3; ++axis) {
            Min[axis] = box.Min[axis] < Min[axis] ? box.Min[axis] : Min[axis];
            Max[axis] = box.Max[axis] > Max[axis] ? box.Max[axis] : Max[axis];
        }
    }
    // Touching boxes overlap.
    bool overlaps(const qeBBox& box) const {
        return Min[0] <= box.Max[0] && Max[0] >= box.Min[0] && Min[1] <= box.Max[1] && Max[1] >= box.Min[1] &&
               Min[2] <= box.Max[2] && Max[2] >= box.Min[2];
    }
    // Half the surface area; 0 for an empty box.
    float halfArea() const {
        if (isEmpty()) return 0.0f;
        const float dx = Max[0] - Min[0], dy = Max[1] - Min[1], dz = Max[2] - Min[2];
        return dx * dy + dy * dz + dz * dx;
    }
    Wm4::Vector3<float> center() const {
        return Wm4::Vector3<float>(0.5f * (Min[0] + Max[0]), 0.5f * (Min[1] + Max[1]), 0.5f * (Min[2] + Max[2]));
    }

    Wm4::Vector3<float> Min;
    Wm4::Vector3<float> Max;
};

}  // namespace qe

#endif
