// Wild Magic 4 compatible 2x2 matrix, row-major storage.
#ifndef WM4MATRIX2_H
#define WM4MATRIX2_H

#include "Wm4Vector2.h"

namespace Wm4 {

template <class Real>
class Matrix2 {
public:
    // Zero matrix when bZero is true, identity otherwise (Wild Magic semantics).
    explicit Matrix2(bool bZero = true) : m_afEntry{Real(0), Real(0), Real(0), Real(0)} {
        if (!bZero) m_afEntry[0] = m_afEntry[3] = Real(1);
    }
    Matrix2(Real m00, Real m01, Real m10, Real m11) : m_afEntry{m00, m01, m10, m11} {}

    operator const Real*() const { return m_afEntry; }
    operator Real*() { return m_afEntry; }
    const Real* operator[](int row) const { return &m_afEntry[2 * row]; }
    Real* operator[](int row) { return &m_afEntry[2 * row]; }
    Real operator()(int row, int col) const { return m_afEntry[2 * row + col]; }
    Real& operator()(int row, int col) { return m_afEntry[2 * row + col]; }

    bool operator==(const Matrix2& m) const {
        for (int i = 0; i < 4; ++i)
            if (m_afEntry[i] != m.m_afEntry[i]) return false;
        return true;
    }

    // M * v, v a column vector.
    Vector2<Real> operator*(const Vector2<Real>& v) const {
        return Vector2<Real>(m_afEntry[0] * v[0] + m_afEntry[1] * v[1], m_afEntry[2] * v[0] + m_afEntry[3] * v[1]);
    }

    // Zero matrix when the determinant is not above ZERO_TOLERANCE in magnitude.
    Matrix2 Inverse() const {
        Matrix2 inverse;
        Real det = m_afEntry[0] * m_afEntry[3] - m_afEntry[1] * m_afEntry[2];
        if (Math<Real>::FAbs(det) > Math<Real>::ZERO_TOLERANCE) {
            Real invDet = Real(1) / det;
            inverse.m_afEntry[0] = m_afEntry[3] * invDet;
            inverse.m_afEntry[1] = -m_afEntry[1] * invDet;
            inverse.m_afEntry[2] = -m_afEntry[2] * invDet;
            inverse.m_afEntry[3] = m_afEntry[0] * invDet;
        }
        return inverse;
    }

private:
    Real m_afEntry[4];
};

typedef Matrix2<float> Matrix2f;
typedef Matrix2<double> Matrix2d;

}  // namespace Wm4

#endif
