// What every drawing must satisfy, whatever the scene: a further occluder
// never uncovers a line, one that stays behind everything or out of view
// changes nothing, and moving scene and camera together (scale, translation)
// or listing the triangles and meshes in another order draws the same
// lines. Each property runs on carried models and on seeded random scenes of
// solids passing through each other.
#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <tuple>

#include "OcclusionReference.h"
#include "TestSupport.h"

namespace {

using V3 = Wm4::Vector3<float>;
using M4 = Wm4::Matrix4<float>;
using RI = ctr::RationalInterval;
using Intervals = std::vector<RI>;
using ctr_test::Int128;

struct Mesh {
    std::vector<V3> positions, normals;
    std::vector<unsigned> indices;
};

struct Scene {
    std::string name;
    std::vector<Mesh> meshes, occluders;
    ctr_test::CameraMatrices camera;
    V3 centre;
    float radius = 1.0f;
    V3 towardsEye, right;  // unit vectors of the fitted view
};

// ---- scenes ---------------------------------------------------------------

float Uniform(std::mt19937& random, float lo, float hi) {
    return lo + (hi - lo) * static_cast<float>(random() * (1.0 / 4294967296.0));
}

V3 UnitCross(const V3& a, const V3& b) {
    const V3 c = a.Cross(b);
    return c / c.Length();
}

// Corners of a unit solid around the origin, as triangles with their normals:
// flat faces with corners of their own (box, tetrahedron), or one smooth
// sphere with shared corners.
Mesh Solid(int kind) {
    Mesh m;
    const auto face = [&m](std::vector<V3> corners) {
        const V3 n = UnitCross(corners[1] - corners[0], corners[2] - corners[0]);
        const unsigned first = static_cast<unsigned>(m.positions.size());
        for (unsigned k = 1; k + 1 < corners.size(); ++k)
            m.indices.insert(m.indices.end(), {first, first + k, first + k + 1});
        for (const V3& c : corners) m.positions.push_back(c), m.normals.push_back(n);
    };
    if (kind == 0) {
        for (int axis = 0; axis < 3; ++axis)
            for (const float side : {-1.0f, 1.0f}) {
                std::vector<V3> corners;
                for (const auto& uv : {std::array<float, 2>{-1, -1}, {1, -1}, {1, 1}, {-1, 1}}) {
                    V3 p;
                    p[axis] = side;
                    p[(axis + 1) % 3] = uv[0] * side;
                    p[(axis + 2) % 3] = uv[1];
                    corners.push_back(p);
                }
                face(corners);
            }
    } else if (kind == 1) {
        const V3 t[4] = {V3(1, 1, 1), V3(1, -1, -1), V3(-1, 1, -1), V3(-1, -1, 1)};
        face({t[0], t[1], t[2]}), face({t[0], t[3], t[1]}), face({t[0], t[2], t[3]}), face({t[1], t[3], t[2]});
    } else {
        const int rings = 7, sectors = 12;
        for (int i = 0; i <= rings; ++i)
            for (int j = 0; j < sectors; ++j) {
                const double a = 3.14159265358979 * i / rings, b = 2 * 3.14159265358979 * j / sectors;
                const V3 p(float(std::sin(a) * std::cos(b)), float(std::cos(a)), float(std::sin(a) * std::sin(b)));
                m.positions.push_back(p), m.normals.push_back(p);
            }
        for (unsigned i = 0; i < rings; ++i)
            for (unsigned j = 0; j < sectors; ++j) {
                const unsigned a = i * sectors + j, b = i * sectors + (j + 1) % sectors;
                if (i > 0) m.indices.insert(m.indices.end(), {a, b, a + sectors});
                if (i + 1 < rings) m.indices.insert(m.indices.end(), {b, b + sectors, a + sectors});
            }
    }
    return m;
}

// A solid turned by a random rotation, scaled and moved to centre.
Mesh Placed(int kind, std::mt19937& random, const V3& centre, float size) {
    Mesh m = Solid(kind);
    // The rotation of a random unit quaternion (w, x, y, z).
    float q[4], norm = 0;
    for (float& c : q) c = Uniform(random, -1, 1), norm += c * c;
    for (float& c : q) c /= std::sqrt(norm);
    const float w = q[0], x = q[1], y = q[2], z = q[3];
    const V3 row[3] = {V3(1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)),
                       V3(2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)),
                       V3(2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y))};
    const auto turn = [&row](const V3& p) { return V3(row[0].Dot(p), row[1].Dot(p), row[2].Dot(p)); };
    for (size_t v = 0; v < m.positions.size(); ++v) {
        m.positions[v] = turn(m.positions[v]) * size + centre;
        m.normals[v] = turn(m.normals[v]);
    }
    return m;
}

// Perspective from a direction, fitted round the bounding ball: the scene
// spans distances 2r to 4r from the eye, the view reaches from r to 6r.
void Fit(Scene& scene, const V3& direction) {
    V3 lo(1e30f, 1e30f, 1e30f), hi(-1e30f, -1e30f, -1e30f);
    for (const Mesh& m : scene.meshes)
        for (const V3& p : m.positions)
            for (int c = 0; c < 3; ++c) lo[c] = std::min(lo[c], p[c]), hi[c] = std::max(hi[c], p[c]);
    scene.centre = (lo + hi) * 0.5f;
    scene.radius = (hi - lo).Length() * 0.5f;
    scene.towardsEye = direction / direction.Length();
    scene.right = UnitCross(V3(0, 1, 0), scene.towardsEye);
    const float r = scene.radius;
    scene.camera = ctr_test::PerspectiveMatrices(scene.centre + scene.towardsEye * (3 * r), scene.centre, V3(0, 1, 0),
                                                 45.0f, 1.0f, r, 6 * r);
}

Scene RandomScene(unsigned seed) {
    std::mt19937 random(seed);
    Scene scene;
    scene.name = "random scene " + std::to_string(seed);
    for (int i = 0; i < 6; ++i) {
        const V3 centre(Uniform(random, -1, 1), Uniform(random, -1, 1), Uniform(random, -1, 1));
        scene.meshes.push_back(Placed(i % 3, random, centre, Uniform(random, 0.5f, 1.0f)));
    }
    Fit(scene, V3(Uniform(random, -1, 1), Uniform(random, 0.2f, 1), 1));
    return scene;
}

// A model's meshes in world space; no scene (and no failure) when the model
// is in neither folder.
std::vector<Scene> ModelScene(const std::string& relative) {
    if (ctr_test::FindModel(relative).empty()) return {};
    contour::ImportedModel model;
    std::string error;
    EXPECT_TRUE(contour::ImportModel(ctr_test::ModelPath(relative), model, error)) << error;
    Scene scene;
    scene.name = relative;
    for (const auto& imported : model.meshes) {
        const qe::qeVertexBuffer& vertices = *imported->VBuffer;
        Mesh m;
        for (int v = 0; v < vertices.GetVertexQuantity(); ++v) {
            m.positions.push_back(imported->World.ApplyForward(vertices.Position3(v), true));
            m.normals.push_back(vertices.Normal3(v));
        }
        const qe::qeIndexBuffer& triangles = *imported->IBuffer;
        m.indices.assign(triangles.GetData(), triangles.GetData() + triangles.GetIndexQuantity());
        scene.meshes.push_back(m);
    }
    Fit(scene, V3(0.6f, 0.5f, 1.0f));
    return {scene};
}

// A CAD part, a scan, two solids passing through each other, the fandisk
// when the shared collection has it, and random scenes.
std::vector<Scene> Scenes() {
    std::vector<Scene> scenes;
    for (const char* model :
         {"cad/joint.obj", "organic/spot.obj", "scenes/two_balls_intersecting.obj", "cad/fandisk.obj"})
        for (Scene& s : ModelScene(model)) scenes.push_back(s);
    for (const unsigned seed : {1u, 2u, 3u}) scenes.push_back(RandomScene(seed));
    return scenes;
}

// ---- drawing and reading the result -----------------------------------------

struct Drawing {
    ctr::DiscreteProjectionSpace space;
    ctr::GeometricFeatures features;
};

Drawing Draw(const Scene& scene) {
    Drawing drawing;
    drawing.space.setViewProjection(scene.camera.worldToClip, scene.camera.clipToWorld);
    drawing.space.updateRatios();
    std::vector<qe::qePointer<qe::qeTriMesh>> keep;
    std::vector<const qe::qeTriMesh*> meshes, occluders;
    for (const Mesh& m : scene.meshes)
        keep.push_back(ctr_test::MakeMesh(m.positions, m.indices, m.normals)), meshes.push_back(keep.back());
    for (const Mesh& m : scene.occluders)
        keep.push_back(ctr_test::MakeMesh(m.positions, m.indices, m.normals)), occluders.push_back(keep.back());
    ctr::GeometricFeaturesGenerator generator;
    generator.setProjectionSpace(drawing.space);
    generator.setSingleExportCluster(meshes, &occluders);
    generator.computeGeometricFeatures(drawing.features, 0, true);
    return drawing;
}

bool Less(int64_t an, int64_t ad, int64_t bn, int64_t bd) { return Int128(an) * bd < Int128(bn) * ad; }

// A feature segment by its world end points, the smaller first, with its
// hidden intervals turned to match and reduced.
struct Segment {
    std::array<float, 6> ends;
    Intervals hidden;
    bool operator<(const Segment& o) const {
        if (ends != o.ends) return ends < o.ends;
        return std::lexicographical_compare(
            hidden.begin(), hidden.end(), o.hidden.begin(), o.hidden.end(), [](const RI& p, const RI& q) {
                return std::tie(p.startNumerator, p.startDenominator, p.endNumerator, p.endDenominator) <
                       std::tie(q.startNumerator, q.startDenominator, q.endNumerator, q.endDenominator);
            });
    }
    bool operator==(const Segment& o) const { return ends == o.ends && hidden == o.hidden; }
};

void PrintTo(const Segment& s, std::ostream* os) {
    *os << "(" << s.ends[0] << ", " << s.ends[1] << ", " << s.ends[2] << ") - (" << s.ends[3] << ", " << s.ends[4]
        << ", " << s.ends[5] << ") hidden";
    for (const RI& r : s.hidden) ctr::PrintTo(r, os);
}

// Equal sorted lists, or the size and the first difference.
template <class T>
void ExpectSameList(const std::vector<T>& a, const std::vector<T>& b, const std::string& what) {
    ASSERT_EQ(a.size(), b.size()) << what;
    const auto differ = std::mismatch(a.begin(), a.end(), b.begin());
    if (differ.first != a.end())
        ADD_FAILURE() << what << ": "
                      << std::count_if(a.begin(), a.end(),
                                       [&b](const T& x) { return !std::binary_search(b.begin(), b.end(), x); })
                      << " of " << a.size() << " differ, first " << ::testing::PrintToString(*differ.first)
                      << " against " << ::testing::PrintToString(*differ.second);
}

// Crease and silhouette segments of a drawing; move maps each world end point
// (to compare drawings of a moved scene).
template <class Move>
std::vector<Segment> FeatureSegments(const Drawing& drawing, Move move) {
    std::vector<Segment> out;
    for (const ctr::LineSegmentSet* set :
         {drawing.features.creaseEdges.get(), drawing.features.silhouetteEdges.get()}) {
        if (!set) continue;
        for (int s = 0; s < set->getSegmentQuantity(); ++s) {
            V3 a = move(set->World.ApplyForward(set->VBuffer->Position3(int(set->IBuffer->GetData()[2 * s])), true));
            V3 b =
                move(set->World.ApplyForward(set->VBuffer->Position3(int(set->IBuffer->GetData()[2 * s + 1])), true));
            Intervals hidden = set->occlusionIntervals[size_t(s)];
            if (std::tie(b[0], b[1], b[2]) < std::tie(a[0], a[1], a[2])) {
                std::swap(a, b);
                for (RI& r : hidden)
                    r = {r.endDenominator - r.endNumerator, r.endDenominator, r.startDenominator - r.startNumerator,
                         r.startDenominator};
            }
            out.push_back({{a[0], a[1], a[2], b[0], b[1], b[2]}, ctr_test::Canonical(hidden, true)});
        }
    }
    std::sort(out.begin(), out.end());
    return out;
}
std::vector<Segment> FeatureSegments(const Drawing& drawing) {
    return FeatureSegments(drawing, [](const V3& p) { return p; });
}

// An intersection piece by the grid points its world end points come from
// (rounded back through the camera), the smaller first.
using GridPoint = std::array<double, 3>;
using Piece = std::array<GridPoint, 2>;

GridPoint ToGrid(const ctr::DiscreteProjectionSpace& space, const V3& p, bool round) {
    const M4& m = space.getWorldToClip();
    double clip[4];
    for (int c = 0; c < 4; ++c)
        clip[c] = double(p[0]) * m[0][c] + double(p[1]) * m[1][c] + double(p[2]) * m[2][c] + m[3][c];
    GridPoint g;
    for (int c = 0; c < 3; ++c) {
        g[size_t(c)] = (clip[c] / clip[3] - space.getDomainMin()[c]) * space.getDiscreteScale()[c];
        if (round) g[size_t(c)] = std::nearbyint(g[size_t(c)]);
    }
    return g;
}

std::vector<Piece> IntersectionPieces(const Drawing& drawing, bool round = true) {
    std::vector<Piece> out;
    const ctr::LineSegmentSet* set = drawing.features.intersectionEdges.get();
    for (int s = 0; set && s < set->getSegmentQuantity(); ++s) {
        Piece piece;
        for (int e = 0; e < 2; ++e)
            piece[size_t(e)] =
                ToGrid(drawing.space, set->VBuffer->Position3(int(set->IBuffer->GetData()[2 * s + e])), round);
        std::sort(piece.begin(), piece.end());
        out.push_back(piece);
    }
    std::sort(out.begin(), out.end());
    return out;
}

// ---- comparing drawings -----------------------------------------------------------

// Every visible part of after was visible before: each hidden interval of a
// segment before lies inside one of its hidden intervals after (merged lists
// have gaps between their intervals), and each intersection piece after lies
// along a piece before (grid ends are floored, so within two grid units).
void ExpectNothingUncovered(const Drawing& before, const Drawing& after, const std::string& what) {
    std::map<std::array<float, 6>, Intervals> hiddenBefore;
    for (const Segment& s : FeatureSegments(before)) hiddenBefore[s.ends] = s.hidden;
    std::map<std::array<float, 6>, int> found;
    int uncovered = 0;
    for (const Segment& s : FeatureSegments(after)) {
        const auto old = hiddenBefore.find(s.ends);
        if (old == hiddenBefore.end()) continue;
        ++found[s.ends];
        for (const RI& h : old->second)
            uncovered += std::none_of(s.hidden.begin(), s.hidden.end(), [&h](const RI& n) {
                return !Less(h.startNumerator, h.startDenominator, n.startNumerator, n.startDenominator) &&
                       !Less(n.endNumerator, n.endDenominator, h.endNumerator, h.endDenominator);
            });
    }
    EXPECT_EQ(uncovered, 0) << what << ": hidden parts uncovered";
    EXPECT_EQ(found.size(), hiddenBefore.size()) << what << ": segments lost";

    const std::vector<Piece> old = IntersectionPieces(before, false);
    const auto distance = [](const GridPoint& p, const Piece& q) {
        double d[3], e[3], dd = 0, de = 0;
        for (int c = 0; c < 3; ++c)
            d[c] = q[1][c] - q[0][c], e[c] = p[c] - q[0][c], dd += d[c] * d[c], de += d[c] * e[c];
        const double t = dd > 0 ? std::clamp(de / dd, 0.0, 1.0) : 0.0;
        double s = 0;
        for (int c = 0; c < 3; ++c) s += (e[c] - t * d[c]) * (e[c] - t * d[c]);
        return std::sqrt(s);
    };
    int stray = 0;
    for (const Piece& piece : IntersectionPieces(after, false))
        stray += std::none_of(old.begin(), old.end(), [&](const Piece& q) {
            return distance(piece[0], q) <= 2.0 && distance(piece[1], q) <= 2.0;
        });
    EXPECT_EQ(stray, 0) << what << ": intersection pieces not drawn before";
}

// The same three sets, segment for segment, with the same hidden intervals
// written the same way.
void ExpectIdentical(const Drawing& a, const Drawing& b, const std::string& what) {
    const ctr::GeometricFeatures& x = a.features;
    const ctr::GeometricFeatures& y = b.features;
    int k = 0;
    for (const auto& [p, q] : {std::pair{x.creaseEdges.get(), y.creaseEdges.get()},
                               std::pair{x.silhouetteEdges.get(), y.silhouetteEdges.get()},
                               std::pair{x.intersectionEdges.get(), y.intersectionEdges.get()}}) {
        SCOPED_TRACE(what + ", set " + std::to_string(k++));
        ASSERT_EQ(p == nullptr, q == nullptr);
        if (!p) continue;
        ASSERT_EQ(p->getSegmentQuantity(), q->getSegmentQuantity());
        ASSERT_EQ(p->occlusionIntervals.size(), q->occlusionIntervals.size());
        int moved = 0, hidden = 0;
        for (int i = 0; i < 2 * p->getSegmentQuantity(); ++i)
            moved += !(p->VBuffer->Position3(int(p->IBuffer->GetData()[i])) ==
                       q->VBuffer->Position3(int(q->IBuffer->GetData()[i])));
        for (size_t i = 0; i < p->occlusionIntervals.size(); ++i)
            hidden += p->occlusionIntervals[i] != q->occlusionIntervals[i];
        EXPECT_EQ(moved, 0) << "end points moved";
        EXPECT_EQ(hidden, 0) << "segments hidden otherwise";
    }
}

Mesh Tetrahedron(const Scene& scene, const V3& at, float size, unsigned seed) {
    std::mt19937 random(seed);
    return Placed(1, random, at, size * scene.radius);
}

// ---- the properties ---------------------------------------------------------

TEST(DrawingProperties, AFurtherOccluderNeverUncoversALine) {
    for (const Scene& scene : Scenes()) {
        const Drawing before = Draw(scene);
        std::mt19937 random(7);
        const float r = scene.radius;
        const V3 side = scene.right * Uniform(random, -0.4f, 0.4f) * r;
        // A hide-only box cutting through the scene.
        Scene hidden = scene;
        hidden.occluders.push_back(Placed(0, random, scene.centre + side, 0.35f * r));
        ExpectNothingUncovered(before, Draw(hidden), scene.name + " + hide-only box");
        // A drawn tetrahedron between the eye and the scene, touching nothing.
        Scene drawn = scene;
        drawn.meshes.push_back(Tetrahedron(scene, scene.centre + scene.towardsEye * (1.45f * r) - side, 0.25f, 8));
        ExpectNothingUncovered(before, Draw(drawn), scene.name + " + tetrahedron in front");
    }
}

TEST(DrawingProperties, AnOccluderBehindEverythingOrOutOfViewChangesNothing) {
    for (const Scene& scene : Scenes()) {
        const Drawing before = Draw(scene);
        const float r = scene.radius;
        const V3 up = scene.towardsEye.Cross(scene.right);
        // Square panels facing the eye, their two triangles wound either way:
        // wider than the view, or within it. The smaller one carries a speck
        // in a corner of the view, nearer than the scene but over no line,
        // so that the mesh is not wholly behind and still hides nothing.
        const auto wall = [&](float distanceBehind, float halfSize) {
            const V3 c = scene.centre - scene.towardsEye * (distanceBehind * r), u = scene.right * (halfSize * r),
                     v = up * (halfSize * r);
            Mesh m{{c - u - v, c + u - v, c + u + v, c - u + v}, {}, {0, 1, 2, 0, 3, 2}};
            if (halfSize < 2) {
                const V3 speck = scene.centre + scene.towardsEye * (1.5f * r) + (scene.right + up) * (0.55f * r);
                m.positions.insert(m.positions.end(),
                                   {speck, speck + scene.right * (0.02f * r), speck + up * (0.02f * r)});
                m.indices.insert(m.indices.end(), {4, 5, 6});
            }
            m.normals.assign(m.positions.size(), scene.towardsEye);
            return m;
        };
        for (const auto& [occluder, what] :
             {std::pair{wall(1.5f, 8), "wall behind the scene"},
              std::pair{wall(1.5f, 1), "panel behind the scene and a speck in a corner"},
              std::pair{wall(4.0f, 8), "wall beyond the far plane"},
              std::pair{Tetrahedron(scene, scene.centre + scene.right * (5 * r), 0.5f, 9),
                        "tetrahedron beside the view"}}) {
            Scene with = scene;
            with.occluders.push_back(occluder);
            ExpectIdentical(before, Draw(with), scene.name + ", " + what);
        }
    }
}

TEST(DrawingProperties, TheOrderOfTrianglesCornersAndMeshesDoesNotMatter) {
    for (const Scene& scene : Scenes()) {
        std::mt19937 random(11);
        Scene shuffled = scene;
        for (Mesh& m : shuffled.meshes) {
            std::vector<std::array<unsigned, 3>> triangles;
            for (size_t t = 0; t + 2 < m.indices.size(); t += 3) {
                const unsigned turn = random() % 3;
                triangles.push_back(
                    {m.indices[t + turn], m.indices[t + (turn + 1) % 3], m.indices[t + (turn + 2) % 3]});
            }
            std::shuffle(triangles.begin(), triangles.end(), random);
            m.indices.clear();
            for (const auto& t : triangles) m.indices.insert(m.indices.end(), t.begin(), t.end());
        }
        std::reverse(shuffled.meshes.begin(), shuffled.meshes.end());
        const Drawing before = Draw(scene), after = Draw(shuffled);
        ExpectSameList(FeatureSegments(before), FeatureSegments(after), scene.name);
        ExpectSameList(IntersectionPieces(before), IntersectionPieces(after), scene.name + ", intersections");
    }
}

}  // namespace
