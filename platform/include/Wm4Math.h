// Wild Magic 4 compatible subset: scalar constants and helpers.
#ifndef WM4MATH_H
#define WM4MATH_H

#include <cmath>
#include <limits>

namespace Wm4 {

template <class Real>
class Math {
public:
    static Real Sqrt(Real value) { return static_cast<Real>(std::sqrt(value)); }
    static Real FAbs(Real value) { return static_cast<Real>(std::fabs(value)); }
    static Real Cos(Real value) { return static_cast<Real>(std::cos(value)); }
    static Real Sin(Real value) { return static_cast<Real>(std::sin(value)); }

    // Values as Wild Magic 4 defines them: PI is rounded to Real first, and
    // DEG_TO_RAD is the Real quotient PI / 180, so float callers see
    // 0.0174532924f rather than the double constant rounded once.
    static constexpr Real EPSILON = std::numeric_limits<Real>::epsilon();
    static constexpr Real ZERO_TOLERANCE = static_cast<Real>(1e-06);
    static constexpr Real MAX_REAL = std::numeric_limits<Real>::max();
    static constexpr Real PI = static_cast<Real>(3.14159265358979323846);
    static constexpr Real TWO_PI = static_cast<Real>(2.0) * PI;
    static constexpr Real HALF_PI = static_cast<Real>(0.5) * PI;
    static constexpr Real DEG_TO_RAD = PI / static_cast<Real>(180.0);
    static constexpr Real RAD_TO_DEG = static_cast<Real>(180.0) / PI;
    static constexpr Real WM4_DEG_TO_RAD = DEG_TO_RAD;
};

}  // namespace Wm4

#endif
