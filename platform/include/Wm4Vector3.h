// Wild Magic 4 compatible 3D vector: three contiguous components.
#ifndef WM4VECTOR3_H
#define WM4VECTOR3_H

#include "Wm4Math.h"

namespace Wm4 {

template <class Real>
class Vector3 {
public:
    Vector3() : m_afTuple{Real(0), Real(0), Real(0)} {}
    Vector3(Real fX, Real fY, Real fZ) : m_afTuple{fX, fY, fZ} {}
    explicit Vector3(const Real* afTuple) : m_afTuple{afTuple[0], afTuple[1], afTuple[2]} {}

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

    bool operator==(const Vector3& v) const {
        return m_afTuple[0] == v[0] && m_afTuple[1] == v[1] && m_afTuple[2] == v[2];
    }
    bool operator!=(const Vector3& v) const { return !(*this == v); }

    Vector3 operator+(const Vector3& v) const {
        return Vector3(m_afTuple[0] + v[0], m_afTuple[1] + v[1], m_afTuple[2] + v[2]);
    }
    Vector3 operator-(const Vector3& v) const {
        return Vector3(m_afTuple[0] - v[0], m_afTuple[1] - v[1], m_afTuple[2] - v[2]);
    }
    Vector3 operator*(Real s) const { return Vector3(s * m_afTuple[0], s * m_afTuple[1], s * m_afTuple[2]); }
    Vector3 operator/(Real s) const { return Vector3(m_afTuple[0] / s, m_afTuple[1] / s, m_afTuple[2] / s); }
    Vector3 operator-() const { return Vector3(-m_afTuple[0], -m_afTuple[1], -m_afTuple[2]); }
    Vector3& operator+=(const Vector3& v) {
        m_afTuple[0] += v[0];
        m_afTuple[1] += v[1];
        m_afTuple[2] += v[2];
        return *this;
    }
    Vector3& operator-=(const Vector3& v) {
        m_afTuple[0] -= v[0];
        m_afTuple[1] -= v[1];
        m_afTuple[2] -= v[2];
        return *this;
    }
    Vector3& operator*=(Real s) {
        m_afTuple[0] *= s;
        m_afTuple[1] *= s;
        m_afTuple[2] *= s;
        return *this;
    }

    Real Length() const { return Math<Real>::Sqrt(SquaredLength()); }
    Real SquaredLength() const {
        return m_afTuple[0] * m_afTuple[0] + m_afTuple[1] * m_afTuple[1] + m_afTuple[2] * m_afTuple[2];
    }
    Real Dot(const Vector3& v) const { return m_afTuple[0] * v[0] + m_afTuple[1] * v[1] + m_afTuple[2] * v[2]; }
    Vector3 Cross(const Vector3& v) const {
        return Vector3(m_afTuple[1] * v[2] - m_afTuple[2] * v[1], m_afTuple[2] * v[0] - m_afTuple[0] * v[2],
                       m_afTuple[0] * v[1] - m_afTuple[1] * v[0]);
    }
    // Returns the former length; a vector shorter than ZERO_TOLERANCE becomes zero.
    Real Normalize() {
        Real length = Length();
        if (length > Math<Real>::ZERO_TOLERANCE) {
            Real inv = Real(1) / length;
            m_afTuple[0] *= inv;
            m_afTuple[1] *= inv;
            m_afTuple[2] *= inv;
        } else {
            length = Real(0);
            m_afTuple[0] = m_afTuple[1] = m_afTuple[2] = Real(0);
        }
        return length;
    }

    static const Vector3 ZERO;

private:
    Real m_afTuple[3];
};

template <class Real>
const Vector3<Real> Vector3<Real>::ZERO(Real(0), Real(0), Real(0));

template <class Real>
inline Vector3<Real> operator*(Real s, const Vector3<Real>& v) {
    return Vector3<Real>(s * v[0], s * v[1], s * v[2]);
}

typedef Vector3<float> Vector3f;
typedef Vector3<double> Vector3d;

}  // namespace Wm4

#endif
