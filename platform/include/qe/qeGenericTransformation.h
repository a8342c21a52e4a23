// Affine transformation in the row-vector convention: a point p maps to
// (p, 1) * M, a direction d to (d, 0) * M.
#ifndef QE_QEGENERICTRANSFORMATION_H
#define QE_QEGENERICTRANSFORMATION_H

#include "Wm4Matrix4.h"
#include "Wm4Vector3.h"

namespace qe {

template <class Real>
class qeGenericTransformation {
public:
    qeGenericTransformation() : m_matrix(false), m_isIdentity(true) {}
    explicit qeGenericTransformation(const Wm4::Matrix4<Real>& matrix) { SetMatrix(matrix); }

    // Only the first three columns are used; the fourth is taken as (0, 0, 0, 1).
    void SetMatrix(const Wm4::Matrix4<Real>& matrix) {
        m_matrix = matrix;
        m_isIdentity = (matrix == Wm4::Matrix4<Real>::IDENTITY);
    }
    const Wm4::Matrix4<Real>& GetMatrix() const { return m_matrix; }
    void SetTranslate(const Wm4::Vector3<Real>& translate) {
        m_matrix[3][0] = translate[0];
        m_matrix[3][1] = translate[1];
        m_matrix[3][2] = translate[2];
        m_isIdentity = (m_matrix == Wm4::Matrix4<Real>::IDENTITY);
    }
    Wm4::Vector3<Real> GetTranslate() const {
        return Wm4::Vector3<Real>(m_matrix[3][0], m_matrix[3][1], m_matrix[3][2]);
    }
    void MakeIdentity() {
        m_matrix.MakeIdentity();
        m_isIdentity = true;
    }
    bool IsIdentity() const { return m_isIdentity; }

    // The identity returns its input bit for bit, so untransformed meshes keep
    // their exact coordinates.
    Wm4::Vector3<Real> ApplyForward(const Wm4::Vector3<Real>& input, bool isPoint) const {
        if (m_isIdentity) return input;
        const Wm4::Matrix4<Real>& m = m_matrix;
        Wm4::Vector3<Real> output(input[0] * m[0][0] + input[1] * m[1][0] + input[2] * m[2][0],
                                  input[0] * m[0][1] + input[1] * m[1][1] + input[2] * m[2][1],
                                  input[0] * m[0][2] + input[1] * m[1][2] + input[2] * m[2][2]);
        if (isPoint) {
            output[0] = output[0] + m[3][0];
            output[1] = output[1] + m[3][1];
            output[2] = output[2] + m[3][2];
        }
        return output;
    }

    // Becomes first followed by second: p maps to p * first * second.
    void Product(const qeGenericTransformation& first, const qeGenericTransformation& second) {
        SetMatrix(first.m_matrix * second.m_matrix);
    }

    bool operator==(const qeGenericTransformation& other) const { return m_matrix == other.m_matrix; }
    bool operator!=(const qeGenericTransformation& other) const { return !(*this == other); }

private:
    Wm4::Matrix4<Real> m_matrix;
    bool m_isIdentity;
};

}  // namespace qe

#endif
