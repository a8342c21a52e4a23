// Wild Magic 4 compatible 2D vector: two contiguous components.
#ifndef WM4VECTOR2_H
#define WM4VECTOR2_H

#include "Wm4Math.h"

namespace Wm4 {

template <class Real>
class Vector2 {
public:
    Vector2() : m_afTuple{Real(0), Real(0)} {}
    Vector2(Real fX, Real fY) : m_afTuple{fX, fY} {}
    explicit Vector2(const Real* afTuple) : m_afTuple{afTuple[0], afTuple[1]} {}

    operator const Real*() const { return m_afTuple; }
    operator Real*() { return m_afTuple; }
    Real operator[](int i) const { return m_afTuple[i]; }
    Real& operator[](int i) { return m_afTuple[i]; }
    Real X() const { return m_afTuple[0]; }
    Real& X() { return m_afTuple[0]; }
    Real Y() const { return m_afTuple[1]; }
    Real& Y() { return m_afTuple[1]; }

    bool operator==(const Vector2& v) const { return m_afTuple[0] == v[0] && m_afTuple[1] == v[1]; }
    bool operator!=(const Vector2& v) const { return !(*this == v); }

    Vector2 operator+(const Vector2& v) const { return Vector2(m_afTuple[0] + v[0], m_afTuple[1] + v[1]); }
    Vector2 operator-(const Vector2& v) const { return Vector2(m_afTuple[0] - v[0], m_afTuple[1] - v[1]); }
    Vector2 operator*(Real s) const { return Vector2(s * m_afTuple[0], s * m_afTuple[1]); }
    Vector2 operator-() const { return Vector2(-m_afTuple[0], -m_afTuple[1]); }

    Real Length() const { return Math<Real>::Sqrt(m_afTuple[0] * m_afTuple[0] + m_afTuple[1] * m_afTuple[1]); }
    Real SquaredLength() const { return m_afTuple[0] * m_afTuple[0] + m_afTuple[1] * m_afTuple[1]; }
    Real Dot(const Vector2& v) const { return m_afTuple[0] * v[0] + m_afTuple[1] * v[1]; }

private:
    Real m_afTuple[2];
};

template <class Real>
inline Vector2<Real> operator*(Real s, const Vector2<Real>& v) {
    return Vector2<Real>(s * v[0], s * v[1]);
}

typedef Vector2<float> Vector2f;
typedef Vector2<double> Vector2d;

}  // namespace Wm4

#endif
