// The plain reference of the occlusion query, shared by the tests that check
// the hierarchy walk and the feature-edge pass against it.
#ifndef CTR_OCCLUSIONREFERENCE_H
#define CTR_OCCLUSIONREFERENCE_H

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <ostream>
#include <tuple>
#include <vector>

#include "ctr/BakedTriangles.h"
#include "ctr/RationalInterval.h"

namespace ctr {
inline void PrintTo(const RationalInterval& r, std::ostream* os) {
    *os << "[" << r.startNumerator << "/" << r.startDenominator << ", " << r.endNumerator << "/" << r.endDenominator
        << "]";
}
}  // namespace ctr

namespace ctr_test {

__extension__ typedef __int128 Int128;

// Reduced, so that equal values written differently compare equal.
inline ctr::RationalInterval Reduced(ctr::RationalInterval r) {
    const int64_t gs = std::gcd(r.startNumerator, r.startDenominator);
    const int64_t ge = std::gcd(r.endNumerator, r.endDenominator);
    return {r.startNumerator / gs, r.startDenominator / gs, r.endNumerator / ge, r.endDenominator / ge};
}

inline std::vector<ctr::RationalInterval> Canonical(std::vector<ctr::RationalInterval> list, bool reduce) {
    if (reduce)
        for (ctr::RationalInterval& r : list) r = Reduced(r);
    // By value, then by the written fields, so that equal lists sort alike.
    std::sort(list.begin(), list.end(), [](const ctr::RationalInterval& p, const ctr::RationalInterval& q) {
        const Int128 ps = Int128(p.startNumerator) * q.startDenominator,
                     qs = Int128(q.startNumerator) * p.startDenominator;
        if (ps != qs) return ps < qs;
        const Int128 pe = Int128(p.endNumerator) * q.endDenominator, qe = Int128(q.endNumerator) * p.endDenominator;
        if (pe != qe) return pe < qe;
        return std::tie(p.startNumerator, p.startDenominator, p.endNumerator, p.endDenominator) <
               std::tie(q.startNumerator, q.startDenominator, q.endNumerator, q.endDenominator);
    });
    return list;
}

// The triangle test written out plainly in 128-bit arithmetic, for every
// triangle with no hierarchy: the reference the walk must reproduce.
inline std::vector<ctr::RationalInterval> BruteForce(const ctr::BakedTriangles& baked, const ctr::BakedVertex& a,
                                                     const ctr::BakedVertex& b) {
    struct F {
        Int128 n, d;
    };
    const auto less = [](const F& p, const F& q) { return p.n * q.d < q.n * p.d; };
    const auto fraction = [](Int128 n, Int128 d) { return d < 0 ? F{-n, -d} : F{n, d}; };
    std::vector<ctr::RationalInterval> out;
    for (uint32_t t = 0; t < baked.getTriangleQuantity(); ++t) {
        const ctr::BakedVertex* p[3];
        for (int c = 0; c < 3; ++c) p[c] = &baked.getVertices()[baked.getTriangles()[3 * t + c]];
        F s{0, 1}, e{1, 1};
        bool empty = false;
        for (int k = 0; k < 3 && !empty; ++k) {
            const ctr::BakedVertex &P = *p[k], &Q = *p[(k + 1) % 3];
            const auto side = [&](const ctr::BakedVertex& x) {
                return Int128(x.y - P.y) * (Q.x - P.x) + Int128(x.x - P.x) * (P.y - Q.y);
            };
            const Int128 sa = side(a), sb = side(b), d = sb - sa;
            if (d == 0) {
                empty = sa < 0;
                continue;
            }
            F crossing = fraction(sa, sa - sb);
            if (crossing.n < 0) crossing = F{0, 1};
            if (crossing.n > crossing.d) crossing = F{1, 1};
            if (d > 0 && less(s, crossing)) s = crossing;
            if (d < 0 && less(crossing, e)) e = crossing;
        }
        if (empty || !less(s, e)) continue;
        const Wm4::Vector3<int64_t>& n = baked.getPlanes()[t];
        const auto depth = [&](const ctr::BakedVertex& x) {
            return Int128(x.x - p[0]->x) * n[0] + Int128(x.y - p[0]->y) * n[1] + Int128(x.z - p[0]->z) * n[2];
        };
        const Int128 da = depth(a), db = depth(b);
        if (da >= 0 && db >= 0) continue;
        if (da < 0 && db >= 0) {
            const F c = fraction(da, da - db);
            if (less(c, e)) e = c;
        } else if (da >= 0) {
            const F c = fraction(da, da - db);
            if (less(s, c)) s = c;
        }
        if (less(s, e)) out.push_back({int64_t(s.n), int64_t(s.d), int64_t(e.n), int64_t(e.d)});
    }
    return out;
}

}  // namespace ctr_test

#endif
