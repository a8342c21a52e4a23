// Wild Magic 4 compatible 4D (homogeneous) vector: four contiguous components.
#ifndef WM4VECTOR4_H
#define WM4VECTOR4_H

#include "Wm4Math.h"

namespace Wm4 {

template <class Real>
class Vector4 {
public:
    Vector4() : m_afTuple{Real(0), Real(0), Real(0), Real(0)} {}
    Vector4(Real fX, Real fY, Real fZ, Real fW) : m_afTuple{fX, fY, fZ, fW} {}
    explicit Vector4(const Real* afTuple) : m_afTuple{afTuple[0], afTuple[1], afTuple[2], afTuple[3]} {}

    operator const Real*() const { return m_afTuple; }
    operator Real*() { return m_afTuple; }
    Real operator[](int i) const { return m_afTuple[i]; }
    Real& operator[](int i) { return m_afTuple[i]; }
    Real X() const { return m_afTuple[0]; }
    Real& X() { return m_afTuple[0]; }
    Real Y() const { return m_afTuple[1]; }
    Real& Y() { return m_afTuple[1]; }
    Real Z() const { return m_afTuple[2]; }
    Real& Z() { return m_afTuple[2]; }
    Real W() const { return m_afTuple[3]; }
    Real& W() { return m_afTuple[3]; }

    bool operator==(const Vector4& v) const {
        return m_afTuple[0] == v[0] && m_afTuple[1] == v[1] && m_afTuple[2] == v[2] && m_afTuple[3] == v[3];
    }
    bool operator!=(const Vector4& v) const { return !(*this == v); }

    Vector4 operator+(const Vector4& v) const {
        return Vector4(m_afTuple[0] + v[0], m_afTuple[1] + v[1], m_afTuple[2] + v[2], m_afTuple[3] + v[3]);
    }
    Vector4 operator-(const Vector4& v) const {
        return Vector4(m_afTuple[0] - v[0], m_afTuple[1] - v[1], m_afTuple[2] - v[2], m_afTuple[3] - v[3]);
    }
    Vector4 operator*(Real s) const {
        return Vector4(s * m_afTuple[0], s * m_afTuple[1], s * m_afTuple[2], s * m_afTuple[3]);
    }
    Vector4 operator-() const { return Vector4(-m_afTuple[0], -m_afTuple[1], -m_afTuple[2], -m_afTuple[3]); }

    Real Dot(const Vector4& v) const {
        return m_afTuple[0] * v[0] + m_afTuple[1] * v[1] + m_afTuple[2] * v[2] + m_afTuple[3] * v[3];
    }

private:
    Real m_afTuple[4];
};

template <class Real>
inline Vector4<Real> operator*(Real s, const Vector4<Real>& v) {
    return Vector4<Real>(s * v[0], s * v[1], s * v[2], s * v[3]);
}

typedef Vector4<float> Vector4f;
typedef Vector4<double> Vector4d;

}  // namespace Wm4

#endif
