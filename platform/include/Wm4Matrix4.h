// Wild Magic 4 compatible 4x4 matrix: row-major storage, points are row vectors
// multiplied on the left (v * M), so the translation sits in row 3.
#ifndef WM4MATRIX4_H
#define WM4MATRIX4_H

#include "Wm4Vector4.h"

namespace Wm4 {

template <class Real>
class Matrix4 {
public:
    // Zero matrix when bZero is true, identity otherwise (Wild Magic semantics).
    explicit Matrix4(bool bZero = true) {
        for (Real& entry : m_afEntry) entry = Real(0);
        if (!bZero) m_afEntry[0] = m_afEntry[5] = m_afEntry[10] = m_afEntry[15] = Real(1);
    }
    Matrix4(Real m00, Real m01, Real m02, Real m03, Real m10, Real m11, Real m12, Real m13, Real m20, Real m21,
            Real m22, Real m23, Real m30, Real m31, Real m32, Real m33)
        : m_afEntry{m00, m01, m02, m03, m10, m11, m12, m13, m20, m21, m22, m23, m30, m31, m32, m33} {}
    // Sixteen entries; row-major when bRowMajor is true, column-major otherwise.
    Matrix4(const Real afEntry[16], bool bRowMajor) {
        for (int row = 0; row < 4; ++row)
            for (int col = 0; col < 4; ++col)
                m_afEntry[4 * row + col] = bRowMajor ? afEntry[4 * row + col] : afEntry[4 * col + row];
    }

    void MakeZero() { *this = Matrix4(true); }
    void MakeIdentity() { *this = Matrix4(false); }

    operator const Real*() const { return m_afEntry; }
    operator Real*() { return m_afEntry; }
    const Real* operator[](int row) const { return &m_afEntry[4 * row]; }
    Real* operator[](int row) { return &m_afEntry[4 * row]; }
    Real operator()(int row, int col) const { return m_afEntry[4 * row + col]; }
    Real& operator()(int row, int col) { return m_afEntry[4 * row + col]; }

    bool operator==(const Matrix4& m) const {
        for (int i = 0; i < 16; ++i)
            if (m_afEntry[i] != m.m_afEntry[i]) return false;
        return true;
    }
    bool operator!=(const Matrix4& m) const { return !(*this == m); }

    Matrix4 operator*(const Matrix4& m) const {
        Matrix4 product;
        for (int row = 0; row < 4; ++row)
            for (int col = 0; col < 4; ++col)
                product.m_afEntry[4 * row + col] =
                    m_afEntry[4 * row + 0] * m.m_afEntry[0 + col] + m_afEntry[4 * row + 1] * m.m_afEntry[4 + col] +
                    m_afEntry[4 * row + 2] * m.m_afEntry[8 + col] + m_afEntry[4 * row + 3] * m.m_afEntry[12 + col];
        return product;
    }

    // M * v, v a column vector.
    Vector4<Real> operator*(const Vector4<Real>& v) const {
        Vector4<Real> product;
        for (int row = 0; row < 4; ++row)
            product[row] = m_afEntry[4 * row + 0] * v[0] + m_afEntry[4 * row + 1] * v[1] +
                           m_afEntry[4 * row + 2] * v[2] + m_afEntry[4 * row + 3] * v[3];
        return product;
    }

    Matrix4 Transpose() const {
        Matrix4 transpose;
        for (int row = 0; row < 4; ++row)
            for (int col = 0; col < 4; ++col) transpose.m_afEntry[4 * row + col] = m_afEntry[4 * col + row];
        return transpose;
    }

    static const Matrix4 ZERO;
    static const Matrix4 IDENTITY;

private:
    Real m_afEntry[16];
};

template <class Real>
const Matrix4<Real> Matrix4<Real>::ZERO(true);
template <class Real>
const Matrix4<Real> Matrix4<Real>::IDENTITY(false);

// v * M, v a row vector: component c = v0*M[0][c] + v1*M[1][c] + v2*M[2][c] + v3*M[3][c],
// summed in that order (callers depend on the order for bit-exact results).
template <class Real>
inline Vector4<Real> operator*(const Vector4<Real>& v, const Matrix4<Real>& m) {
    return Vector4<Real>(v[0] * m[0][0] + v[1] * m[1][0] + v[2] * m[2][0] + v[3] * m[3][0],
                         v[0] * m[0][1] + v[1] * m[1][1] + v[2] * m[2][1] + v[3] * m[3][1],
                         v[0] * m[0][2] + v[1] * m[1][2] + v[2] * m[2][2] + v[3] * m[3][2],
                         v[0] * m[0][3] + v[1] * m[1][3] + v[2] * m[2][3] + v[3] * m[3][3]);
}

typedef Matrix4<float> Matrix4f;
typedef Matrix4<double> Matrix4d;

}  // namespace Wm4

#endif
