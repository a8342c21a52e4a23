// 4 x 4 matrices in double for building cameras outside the library, where
// the float matrices it takes are made: the tool and the benchmarks.
#ifndef CONTOUR_MATRIX4D_H
#define CONTOUR_MATRIX4D_H

#include <array>
#include <cmath>
#include <utility>

namespace contour {

using Matrix4d = std::array<std::array<double, 4>, 4>;

// Gauss-Jordan with partial pivoting; false for a singular matrix.
inline bool InvertMatrix(const Matrix4d& matrix, Matrix4d& inverse) {
    double a[4][8];
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 4; ++col) {
            a[row][col] = matrix[row][col];
            a[row][col + 4] = row == col ? 1.0 : 0.0;
        }
    for (int col = 0; col < 4; ++col) {
        int pivot = col;
        for (int row = col + 1; row < 4; ++row)
            if (std::fabs(a[row][col]) > std::fabs(a[pivot][col])) pivot = row;
        if (!(std::fabs(a[pivot][col]) > 0.0)) return false;
        for (int k = 0; k < 8; ++k) std::swap(a[col][k], a[pivot][k]);
        const double scale = 1.0 / a[col][col];
        for (int k = 0; k < 8; ++k) a[col][k] *= scale;
        for (int row = 0; row < 4; ++row) {
            if (row == col) continue;
            const double factor = a[row][col];
            for (int k = 0; k < 8; ++k) a[row][k] -= factor * a[col][k];
        }
    }
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 4; ++col) inverse[row][col] = a[row][col + 4];
    return true;
}

}  // namespace contour

#endif
