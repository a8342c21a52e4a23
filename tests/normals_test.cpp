// Generated normals seen through the crease rule: on models stored without
// normals, an edge is drawn exactly when its two faces meet at more than the
// smoothing angle, and never across a smooth surface.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <utility>

#include "SmoothNormals.h"
#include "TestSupport.h"

namespace {

using Vector3d = Wm4::Vector3<double>;
using Edge = std::pair<uint32_t, uint32_t>;  // welded position ids, smaller first

const bool kNotCancelled = false;
const qe::qeCancelInterfaceProxyReadOnly kNeverCancel(kNotCancelled);
const double kCosLimit = std::cos(30.0 * 3.14159265358979323846 / 180.0);

uint32_t Bits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// A mesh's triangles over positions welded bit for bit, with each face's
// direction computed as the importer does (zero for a face without area).
struct Welded {
    std::vector<uint32_t> idOfVertex;
    std::vector<std::array<uint32_t, 3>> faces;
    std::vector<Vector3d> direction;
    std::map<Edge, std::vector<size_t>> facesOfEdge;

    explicit Welded(const qe::qeTriMesh& mesh) {
        const qe::qeVertexBuffer& vertices = *mesh.VBuffer;
        std::map<std::array<uint32_t, 3>, uint32_t> ids;
        for (int v = 0; v < vertices.GetVertexQuantity(); ++v) {
            const Wm4::Vector3<float>& p = vertices.Position3(v);
            idOfVertex.push_back(ids.emplace(std::array<uint32_t, 3>{Bits(p[0]), Bits(p[1]), Bits(p[2])},
                                             static_cast<uint32_t>(ids.size()))
                                     .first->second);
        }
        const unsigned int* indices = mesh.IBuffer->GetData();
        for (int c = 0; c < mesh.IBuffer->GetIndexQuantity(); c += 3) {
            const auto at = [&](int k) {
                const Wm4::Vector3<float>& p = vertices.Position3(static_cast<int>(indices[c + k]));
                return Vector3d(p[0], p[1], p[2]);
            };
            const Vector3d weighted = (at(1) - at(0)).Cross(at(2) - at(0));
            const double length = weighted.Length();
            direction.push_back(length > 0.0 ? weighted / length : Vector3d(0.0, 0.0, 0.0));
            faces.push_back({idOfVertex[indices[c]], idOfVertex[indices[c + 1]], idOfVertex[indices[c + 2]]});
            for (int k = 0; k < 3; ++k) {
                const uint32_t a = faces.back()[static_cast<size_t>(k)],
                               b = faces.back()[static_cast<size_t>((k + 1) % 3)];
                if (a != b) facesOfEdge[{std::min(a, b), std::max(a, b)}].push_back(faces.size() - 1);
            }
        }
    }

    bool degenerate(size_t f) const { return direction[f] == Vector3d(0.0, 0.0, 0.0); }
};

// Imports the file and compares the drawn creases with the dihedral angles of
// its interior edges; returns the number of sharp edges left undrawn because
// each of their ends has no other sharp edge (the fan wraps round there).
size_t ExpectCreasesFollowTheAngle(const std::string& relative) {
    contour::ImportedModel model;
    std::string error;
    EXPECT_TRUE(contour::ImportModel(ctr_test::ModelPath(relative), model, error)) << relative << ": " << error;
    size_t wrapped = 0;
    for (const auto& mesh : model.meshes) {
        const Welded welded(*mesh);
        const qe::qePointer<ctr::LineSegmentSet> creases =
            ctr::LineSegmentSet::GetCreaseEdgesFromTriMesh(mesh, kNeverCancel, 5.0f, false);
        std::set<Edge> drawn;
        if (creases)
            for (int s = 0; s < creases->getSegmentQuantity(); ++s) {
                const uint32_t a = welded.idOfVertex[creases->IBuffer->GetData()[2 * s]];
                const uint32_t b = welded.idOfVertex[creases->IBuffer->GetData()[2 * s + 1]];
                drawn.insert({std::min(a, b), std::max(a, b)});
            }
        // Ends at which a sharp edge may wrap: every edge there interior and
        // manifold, no face without area, exactly one sharp edge.
        std::map<uint32_t, int> sharpAt;
        std::set<uint32_t> irregular;
        std::vector<Edge> sharp;
        for (const auto& entry : welded.facesOfEdge) {
            const std::vector<size_t>& faces = entry.second;
            const Edge& edge = entry.first;
            if (faces.size() != 2 || welded.degenerate(faces[0]) || welded.degenerate(faces[1])) {
                irregular.insert(edge.first);
                irregular.insert(edge.second);
                continue;
            }
            if (welded.direction[faces[0]].Dot(welded.direction[faces[1]]) >= kCosLimit) {
                EXPECT_EQ(drawn.count(edge), 0u)
                    << relative << ": crease drawn across a smooth edge " << edge.first << "-" << edge.second;
            } else {
                sharp.push_back(edge);
                ++sharpAt[edge.first];
                ++sharpAt[edge.second];
            }
        }
        size_t missing = 0;
        for (const Edge& edge : sharp) {
            if (drawn.count(edge)) continue;
            const auto wraps = [&](uint32_t end) { return sharpAt[end] == 1 && irregular.count(end) == 0; };
            if (wraps(edge.first) && wraps(edge.second))
                ++wrapped;
            else
                ++missing;
        }
        EXPECT_EQ(missing, 0u) << relative << ": sharp edges not drawn, of " << sharp.size();
    }
    return wrapped;
}

TEST(GeneratedNormals, CreasesAreExactlyTheSharpEdges) {
    // Noisy scans and CAD parts stored as positions only and as STL facets;
    // the scans only where the large models are at hand.
    for (const char* file : {"cad/anchor.stl", "cad/couplingdown.ply", "cad/joint.obj", "organic/spot.obj",
                             "organic/stanford-bunny.obj", "organic/armadillo_86k.ply", "cad/fandisk.obj"}) {
        if (ctr_test::FindModel(file).empty()) continue;
        const size_t wrapped = ExpectCreasesFollowTheAngle(file);
        RecordProperty(std::string("wrapped ") + file, static_cast<int>(wrapped));
    }
}

}  // namespace

namespace {

// A big face and a small one meeting at 20 degrees share one smooth fan: the
// fan's normal leans towards the big face, as an area-weighted mean does,
// not halfway, as a mean of unit normals would.
TEST(GeneratedNormals, FansWeighTheirFacesByArea) {
    const std::string path = ::testing::TempDir() + std::to_string(getpid()) + "_fan.obj";
    std::ofstream(path) << "v 0 0 0\nv 10 0 0\nv 0 10 0\nv 0 -1 -0.36397\nf 1 2 3\nf 1 4 2\n";
    contour::ImportedModel model;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(path, model, error)) << error;
    std::remove(path.c_str());
    ASSERT_EQ(model.meshes.size(), 1u);
    const qe::qeVertexBuffer& vertices = *model.meshes[0]->VBuffer;
    const Vector3d weighted = Vector3d(0.0, 0.0, 100.0) + Vector3d(0.0, -3.6397, 10.0);
    size_t checked = 0;
    for (int v = 0; v < vertices.GetVertexQuantity(); ++v) {
        const Wm4::Vector3<float>& p = vertices.Position3(v);
        if (p[2] != 0.0f || p[1] != 0.0f) continue;  // the shared edge's two ends
        const Wm4::Vector3<float>& n = vertices.Normal3(v);
        EXPECT_NEAR(n[1], weighted[1] / weighted.Length(), 1e-5) << "at x = " << p[0];
        EXPECT_NEAR(n[2], weighted[2] / weighted.Length(), 1e-5) << "at x = " << p[0];
        ++checked;
    }
    EXPECT_EQ(checked, 2u);
}

}  // namespace

namespace {

using contour::importer::tSourceMesh;
using contour::importer::tVec3;
using Normal = Wm4::Vector3<float>;

bool SameBits(const Normal& a, const Normal& b) {
    return Bits(a[0]) == Bits(b[0]) && Bits(a[1]) == Bits(b[1]) && Bits(a[2]) == Bits(b[2]);
}

// Each corner's generated normal, through the smooth slots the importer makes
// (whose positions must be the corners').
std::vector<Normal> SlotNormals(const tSourceMesh& mesh, float angle) {
    std::vector<unsigned int> slot(mesh.corners.size());
    contour::importer::tSmoothVertices slots;
    contour::importer::makeSmoothSlots(mesh, angle, slot.data(), slots);
    std::vector<Normal> normals;
    for (size_t c = 0; c < slot.size(); ++c) {
        const tVec3& p = mesh.positions[slots.source[slot[c]]];
        const tVec3& q = mesh.positions[mesh.corners[c]];
        EXPECT_TRUE(Bits(p.x) == Bits(q.x) && Bits(p.y) == Bits(q.y) && Bits(p.z) == Bits(q.z)) << "corner " << c;
        normals.push_back(slots.normal[slot[c]]);
    }
    return normals;
}

// The fans by their definition, pair by pair: two corners at one position are
// neighbours when their faces have a second position in common; neighbours
// with directions join within the angle, directionless ones join each other,
// and a directionless fan then hangs on its first neighbour with a direction.
std::vector<Normal> AllPairsNormals(const tSourceMesh& mesh, float angle) {
    const size_t n = mesh.corners.size();
    std::map<std::array<uint32_t, 3>, uint32_t> ids;
    std::vector<uint32_t> at(n);
    for (size_t c = 0; c < n; ++c) {
        const tVec3& p = mesh.positions[mesh.corners[c]];
        at[c] = ids.emplace(std::array<uint32_t, 3>{Bits(p.x), Bits(p.y), Bits(p.z)}, ids.size()).first->second;
    }
    std::vector<Vector3d> weighted(n / 3), direction(n / 3);
    for (size_t f = 0; f < n / 3; ++f) {
        const auto p = [&](size_t k) {
            const tVec3& q = mesh.positions[mesh.corners[3 * f + k]];
            return Vector3d(q.x, q.y, q.z);
        };
        weighted[f] = (p(1) - p(0)).Cross(p(2) - p(0));
        const double length = weighted[f].Length();
        direction[f] = length > 0.0 ? weighted[f] / length : Vector3d(0.0, 0.0, 0.0);
    }
    const auto directed = [&](size_t c) { return direction[c / 3] != Vector3d(0.0, 0.0, 0.0); };
    std::vector<size_t> parent(n);
    for (size_t c = 0; c < n; ++c) parent[c] = c;
    const auto find = [&](size_t c) {
        while (parent[c] != c) c = parent[c];
        return c;
    };
    const auto unite = [&](size_t a, size_t b) { parent[std::max(find(a), find(b))] = std::min(find(a), find(b)); };
    const double cosLimit = std::cos(static_cast<double>(angle) * 3.14159265358979323846 / 180.0);
    std::vector<std::pair<size_t, size_t>> hangers;
    for (size_t a = 0; a < n; ++a)
        for (size_t b = a + 1; b < n; ++b) {
            bool neighbours = false;
            for (size_t i = 0; i < 3; ++i)
                for (size_t j = 0; j < 3; ++j)
                    neighbours = neighbours || (at[a - a % 3 + i] == at[b - b % 3 + j] && at[a - a % 3 + i] != at[a]);
            if (at[a] != at[b] || !neighbours) continue;
            if (directed(a) && directed(b)) {
                if (direction[a / 3].Dot(direction[b / 3]) >= cosLimit) unite(a, b);
            } else if (!directed(a) && !directed(b)) {
                unite(a, b);
            } else {
                hangers.emplace_back(directed(a) ? b : a, directed(a) ? a : b);
            }
        }
    std::map<size_t, size_t> hangOn;
    for (const auto& hanger : hangers) {
        const auto entry = hangOn.emplace(find(hanger.first), hanger.second).first;
        entry->second = std::min(entry->second, hanger.second);
    }
    for (const auto& entry : hangOn) unite(entry.first, entry.second);
    // Sums in corner order; a fan without a direction takes its position's.
    std::vector<Vector3d> fanSum(n, Vector3d(0.0, 0.0, 0.0)), positionSum(ids.size(), Vector3d(0.0, 0.0, 0.0));
    std::vector<bool> fanDirected(n, false);
    for (size_t c = 0; c < n; ++c) {
        fanSum[find(c)] += weighted[c / 3];
        positionSum[at[c]] += weighted[c / 3];
        fanDirected[find(c)] = fanDirected[find(c)] || directed(c);
    }
    std::vector<Normal> normals;
    for (size_t c = 0; c < n; ++c) {
        const Vector3d& sum = fanDirected[find(c)] ? fanSum[find(c)] : positionSum[at[c]];
        const double length = sum.Length();
        normals.push_back(length > 0.0
                              ? Normal(static_cast<float>(sum[0] / length), static_cast<float>(sum[1] / length),
                                       static_cast<float>(sum[2] / length))
                              : Normal(0.0f, 0.0f, 0.0f));
    }
    return normals;
}

// Books of many pages around one or two spines, some pages without area (the
// far corner on the spine, or a repeated corner), some repeated in another
// corner order, pages bunched in a few sheaves, and faces between the pages
// that make fans at a spine end, and spokes: the importer, which takes the pages of a
// long spine in turn around it instead of pair by pair, gives the very
// normals that comparing every pair gives.
TEST(GeneratedNormals, ManyFacesAtAnEdgeMatchTheirPairwiseDefinition) {
    std::mt19937 random(5);
    const auto uniform = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    for (int round = 0; round < 60; ++round) {
        tSourceMesh mesh;
        std::vector<std::array<unsigned int, 3>> faces;
        const auto vertex = [&](const Vector3d& p) {
            mesh.positions.push_back(
                tVec3{static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])});
            return static_cast<unsigned int>(mesh.positions.size() - 1);
        };
        const auto point = [&] { return Vector3d(uniform(-1, 1), uniform(-1, 1), uniform(-1, 1)); };
        for (int spine = 1 + round % 2; spine > 0; --spine) {
            const Vector3d a = point(), b = point();
            const unsigned int ia = vertex(a), ib = vertex(b);
            Vector3d u = (b - a).Cross(point()), v = (b - a).Cross(u);
            u.Normalize();
            v.Normalize();
            std::vector<double> sheaves(1 + random() % 3);
            for (double& sheaf : sheaves) sheaf = uniform(0.0, 6.3);
            std::vector<unsigned int> tips;
            for (int page = 20 + static_cast<int>(random() % 40); page > 0; --page) {
                const double kind = uniform(0, 1);
                const Vector3d onSpine = a + uniform(0, 1) * (b - a);
                if (kind < 0.15) {
                    faces.push_back({ia, ib, vertex(onSpine)});
                } else if (kind < 0.2) {
                    faces.push_back({ib, ia, ib});
                } else if (kind < 0.3 && !tips.empty()) {
                    faces.push_back({tips[random() % tips.size()], ia, ib});
                } else {
                    const double turn = sheaves[random() % sheaves.size()] + uniform(-0.4, 0.4);
                    tips.push_back(vertex(onSpine + uniform(0.2, 2.0) * (std::cos(turn) * u + std::sin(turn) * v)));
                    faces.push_back(kind < 0.65 ? std::array<unsigned int, 3>{ia, ib, tips.back()}
                                                : std::array<unsigned int, 3>{ib, ia, tips.back()});
                }
            }
            for (int fan = static_cast<int>(random() % 12); fan > 0 && tips.size() > 1; --fan)
                faces.push_back({ia, tips[random() % tips.size()], tips[random() % tips.size()]});
        }
        // Spokes from the origin: faces with all three corners on one spoke
        // have exactly no area; they meet each other and faces with a
        // direction at single edges.
        const unsigned int origin = vertex(Vector3d(0.0, 0.0, 0.0));
        for (int spoke = static_cast<int>(random() % 4); spoke > 0; --spoke) {
            const unsigned int tip = vertex(point());
            const tVec3 end = mesh.positions[tip];
            const unsigned int on[3] = {tip, vertex(Vector3d(end.x, end.y, end.z) / 2.0),
                                        vertex(Vector3d(end.x, end.y, end.z) / 4.0)};
            for (const unsigned int at : on)
                if (random() % 3) faces.push_back({origin, at, vertex(point())});
            for (int flat = static_cast<int>(random() % 3); flat > 0; --flat)
                faces.push_back({origin, on[random() % 3], on[random() % 3]});
        }
        std::shuffle(faces.begin(), faces.end(), random);
        for (const auto& face : faces)
            for (const unsigned int corner : face) mesh.corners.push_back(corner);
        const float angle =
            round % 10 == 0 ? 180.0f * static_cast<float>(round % 20 == 0) : static_cast<float>(uniform(0, 180));
        const std::vector<Normal> expected = AllPairsNormals(mesh, angle), got = SlotNormals(mesh, angle);
        for (size_t c = 0; c < expected.size(); ++c)
            ASSERT_TRUE(SameBits(got[c], expected[c]))
                << "round " << round << ", angle " << angle << ", corner " << c << ": "
                << ::testing::PrintToString(got[c]) << " instead of " << ::testing::PrintToString(expected[c]);
    }
}

// A book of 20,000 pages on one spine, every other page without area, the
// others in two sheaves 60 degrees apart; and the apex of a pyramid of
// 100,000 faces, every other one without area. Comparing every pair took
// seconds and a gigabyte for the book. The spine ends get one normal per
// sheaf, the directionless pages that of the sheaf of the first page; the
// apex one per side, and a directionless face that of the face before it.
TEST(GeneratedNormals, AnEdgeOrAVertexOfManyFaces) {
    tSourceMesh book;
    book.positions.push_back(tVec3{0.0f, 0.0f, 0.0f});
    book.positions.push_back(tVec3{0.0f, 0.0f, 1.0f});
    constexpr double kDegree = 3.14159265358979323846 / 180.0;
    for (unsigned int page = 0; page < 20000; ++page) {
        const double turn = (page % 4 == 2 ? 100.0 : 0.0) + 40.0 * (page / 4) / 4999.0;
        book.positions.push_back(page % 2 ? tVec3{0.0f, 0.0f, 0.5f}
                                          : tVec3{static_cast<float>(std::cos(turn * kDegree)),
                                                  static_cast<float>(std::sin(turn * kDegree)), 0.5f});
        for (const unsigned int corner : {0u, 1u, page + 2}) book.corners.push_back(corner);
    }
    const std::vector<Normal> leaves = SlotNormals(book, 30.0f);
    for (const double middle : {20.0, 120.0}) {
        const size_t corner = middle > 90.0 ? 6 : 0;  // of the first page of the sheaf
        EXPECT_NEAR(leaves[corner][0], -std::sin(middle * kDegree), 1e-6);
        EXPECT_NEAR(leaves[corner][1], std::cos(middle * kDegree), 1e-6);
    }
    for (size_t c = 0; c < leaves.size(); ++c) {
        if (c % 3 == 2) continue;  // a page's own corner
        ASSERT_TRUE(SameBits(leaves[c], leaves[c % 3 + (c / 3 % 4 == 2 ? 6 : 0)])) << "corner " << c;
    }

    tSourceMesh pyramid;
    constexpr unsigned int kPerSide = 12500, kRim = 4 * kPerSide;
    pyramid.positions.push_back(tVec3{0.0f, 0.0f, 1.0f});
    for (unsigned int i = 0; i < kRim; ++i) {
        const float along = -1.0f + 2.0f * static_cast<float>(i % kPerSide) / kPerSide;
        const tVec3 side[4] = {{along, -1.0f, 0.0f}, {1.0f, along, 0.0f}, {-along, 1.0f, 0.0f}, {-1.0f, -along, 0.0f}};
        pyramid.positions.push_back(side[i / kPerSide]);
    }
    for (unsigned int i = 0; i < kRim; ++i) {
        const tVec3& rim = pyramid.positions[1 + i];
        pyramid.positions.push_back(tVec3{rim.x / 2, rim.y / 2, 0.5f});  // halfway up the edge to the apex
        for (const unsigned int corner : {0u, 1 + i, 1 + (i + 1) % kRim, 0u, 1 + i, 1 + kRim + i})
            pyramid.corners.push_back(corner);
    }
    const std::vector<Normal> apex = SlotNormals(pyramid, 30.0f);
    for (unsigned int i = 0; i < kRim; ++i) {
        const Normal& face = apex[6 * i];
        const Vector3d outward[4] = {{0.0, -1.0, 1.0}, {1.0, 0.0, 1.0}, {0.0, 1.0, 1.0}, {-1.0, 0.0, 1.0}};
        for (int k = 0; k < 3; ++k) ASSERT_NEAR(face[k], outward[i / kPerSide][k] / std::sqrt(2.0), 1e-6) << i;
        ASSERT_TRUE(SameBits(face, apex[i % kPerSide ? 6 * (i - 1) : 6 * i])) << "face " << i;
        ASSERT_TRUE(SameBits(apex[6 * i + 3], apex[6 * (i == 0 ? 0 : i - 1)])) << "directionless face after " << i;
    }
}

}  // namespace
