// Generated normals seen through the crease rule: on models stored without
// normals, an edge is drawn exactly when its two faces meet at more than the
// smoothing angle, and never across a smooth surface.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <utility>

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
