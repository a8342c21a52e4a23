// Scenes shared by the benchmark programs: real models loaded once per
// process, a procedural mesh for size series, cameras that frame a model, and
// query edges (the model's own edges and random ones) taken through the
// projection space the way the later stages take feature edges.
#ifndef CTR_BENCH_BENCHSCENES_H
#define CTR_BENCH_BENCHSCENES_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Wm4Matrix4.h"
#include "Wm4Vector3.h"
#include "qe/qeBBox.h"
#include "qe/qeIndexBuffer.h"
#include "qe/qeLinearGenericBVHBuilder.h"
#include "qe/qePointer.h"
#include "qe/qeTriMesh.h"
#include "qe/qeVertexBuffer.h"

#include "ctr/drawing/ModelImport.h"
#include "ctr/drawing/Camera.h"
#include "ctr/BakedTriangles.h"
#include "ctr/BakedVertex.h"
#include "ctr/DiscreteProjectionSpace.h"

namespace bench {

// Models named by their path under the models folder.
constexpr const char* kBunny = "organic/stanford-bunny.obj";
constexpr const char* kArmadillo = "organic/armadillo_86k.ply";
constexpr const char* kIgea1M = "organic/igea_1m_subdivided.ply";

enum class Projection { kPerspective, kOrthographic };

// Loads a model from the models folder once per process and keeps it. A file
// that cannot be read ends the program: a benchmark without its scene has
// nothing to measure.
inline const contour::ImportedModel& LoadModel(const std::string& relativePath) {
    static std::map<std::string, std::unique_ptr<contour::ImportedModel>> cache;
    std::unique_ptr<contour::ImportedModel>& slot = cache[relativePath];
    if (!slot) {
        slot = std::make_unique<contour::ImportedModel>();
        std::string error;
        if (!contour::ImportModel(std::string(CTR_MODELS_DIR) + "/" + relativePath, *slot, error)) {
            std::fprintf(stderr, "cannot load the benchmark model: %s\n", error.c_str());
            std::exit(1);
        }
    }
    return *slot;
}

// A generated mesh, placed at the origin, as the importer would hand it over.
inline contour::ImportedModel ModelOfMesh(const qe::qePointer<qe::qeVertexBuffer>& vertices,
                                          const qe::qePointer<qe::qeIndexBuffer>& indices, const char* name) {
    contour::ImportedModel model;
    qe::qePointer<qe::qeTriMesh> mesh = new qe::qeTriMesh(vertices, indices);
    mesh->UpdateMS(true, false, 0);
    mesh->UpdateGS();
    model.meshes.push_back(mesh);
    model.names.push_back(name);
    model.triangleCount = static_cast<size_t>(mesh->GetTriangleQuantity());
    model.vertexCount = static_cast<size_t>(vertices->GetVertexQuantity());
    model.hasNormals = vertices->GetAttributes().HasNormal();
    return model;
}

// A closed torus with ripples on its surface, 4 * resolution^2 triangles
// (2 * resolution rings of resolution quads each). The ripples make parts of
// the surface hide other parts in any view, as a real model does.
inline contour::ImportedModel MakeRippledTorus(int resolution) {
    const int around = 2 * resolution;
    const int across = resolution;
    const float kPi = 3.14159265358979f;
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    qe::qePointer<qe::qeVertexBuffer> positions = new qe::qeVertexBuffer(attributes, around * across);
    for (int i = 0; i < around; ++i) {
        const float u = 2.0f * kPi * static_cast<float>(i) / static_cast<float>(around);
        for (int j = 0; j < across; ++j) {
            const float v = 2.0f * kPi * static_cast<float>(j) / static_cast<float>(across);
            const float tube = 0.35f + 0.04f * std::sin(13.0f * u) * std::sin(7.0f * v);
            const float ring = 1.0f + tube * std::cos(v);
            positions->Position3(i * across + j) =
                Wm4::Vector3<float>(ring * std::cos(u), ring * std::sin(u), tube * std::sin(v));
        }
    }
    qe::qePointer<qe::qeIndexBuffer> indices =
        new qe::qeIndexBuffer(6 * around * across, qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    unsigned int* out = indices->GetData();
    for (int i = 0; i < around; ++i) {
        for (int j = 0; j < across; ++j) {
            const auto index = [&](int a, int b) {
                return static_cast<unsigned int>(((a % around) * across) + (b % across));
            };
            const unsigned int p00 = index(i, j), p10 = index(i + 1, j), p01 = index(i, j + 1),
                               p11 = index(i + 1, j + 1);
            *out++ = p00, *out++ = p10, *out++ = p11;
            *out++ = p00, *out++ = p11, *out++ = p01;
        }
    }
    return ModelOfMesh(positions, indices, "rippled torus");
}

inline Wm4::Vector3<float> WorldPosition(const qe::qeTriMesh& mesh, int vertex) {
    return mesh.World.ApplyForward(mesh.VBuffer->Position3(vertex), true);
}

// World-space box of every vertex of every mesh.
inline qe::qeBBox ComputeWorldBox(const contour::ImportedModel& model) {
    qe::qeBBox box;
    for (const qe::qePointer<qe::qeTriMesh>& mesh : model.meshes)
        for (int i = 0; i < mesh->VBuffer->GetVertexQuantity(); ++i) box.include(WorldPosition(*mesh, i));
    return box;
}

// The camera of a drawing, framed by the drawing layer as the tool frames
// it: an oblique view of the whole model on a 4:3 page, so that nothing is
// clipped.
inline ctr::DiscreteProjectionSpace MakeFramingSpace(const contour::ImportedModel& model, Projection projection) {
    contour::CameraOptions options;
    options.azimuthElevation = std::array<double, 2>{24.0, 18.0};
    options.perspective = projection == Projection::kPerspective;
    options.fovDegrees = 40.0;
    contour::CameraMatrices camera;
    std::string error;
    if (!contour::FrameCamera(model.meshList(), {}, options, 400.0, 300.0, camera, error)) {
        std::fprintf(stderr, "benchmark camera: %s\n", error.c_str());
        std::exit(1);
    }
    return contour::ProjectionSpaceOf(camera);
}

// A model baked under one camera. The space lives beside the baked triangles,
// which keep a pointer to it; the object is never moved once made.
struct tBakedScene {
    const contour::ImportedModel* model = nullptr;
    ctr::DiscreteProjectionSpace space;
    ctr::BakedTriangles baked;

    tBakedScene() = default;
    tBakedScene(const tBakedScene&) = delete;
    tBakedScene& operator=(const tBakedScene&) = delete;
};

// Timings of broken data mean nothing: a scene that fails its validator ends
// the program.
inline void RequireValid(const ctr::BakedTriangles& baked) {
    std::string why;
    if (!baked.validate(&why)) {
        std::fprintf(stderr, "baked benchmark scene is invalid: %s\n", why.c_str());
        std::exit(1);
    }
}

inline std::unique_ptr<tBakedScene> BakeScene(const contour::ImportedModel& model, Projection projection) {
    auto scene = std::make_unique<tBakedScene>();
    scene->model = &model;
    scene->space = MakeFramingSpace(model, projection);
    scene->baked.setProjectionSpace(&scene->space);
    scene->baked.setMeshes(model.meshList());
    scene->baked.initialize();
    RequireValid(scene->baked);
    return scene;
}

// A procedural torus per resolution, made once per process.
inline const contour::ImportedModel& GetTorus(int resolution) {
    static std::map<int, std::unique_ptr<contour::ImportedModel>> cache;
    std::unique_ptr<contour::ImportedModel>& slot = cache[resolution];
    if (!slot) slot = std::make_unique<contour::ImportedModel>(MakeRippledTorus(resolution));
    return *slot;
}

// A model baked under its framing camera, once per process for each
// projection and split method. The default method is what initialize()
// builds; another method bakes nothing again: the baked data is copied and
// only the hierarchy is rebuilt over it.
inline const tBakedScene& GetBakedScene(const contour::ImportedModel& model, Projection projection,
                                        qe::qeLinearGenericBVHBuilder::SplitMethod method) {
    using tKey = std::tuple<const contour::ImportedModel*, Projection, qe::qeLinearGenericBVHBuilder::SplitMethod>;
    static std::map<tKey, std::unique_ptr<tBakedScene>> cache;
    std::unique_ptr<tBakedScene>& slot = cache[tKey(&model, projection, method)];
    if (slot) return *slot;
    if (method == qe::qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH) {
        slot = BakeScene(model, projection);
        return *slot;
    }
    const tBakedScene& source = GetBakedScene(model, projection, qe::qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH);
    auto scene = std::make_unique<tBakedScene>();
    scene->model = source.model;
    scene->space = source.space;
    scene->baked = source.baked;
    scene->baked.setProjectionSpace(&scene->space);
    scene->baked.buildHierarchy(method);
    RequireValid(scene->baked);
    slot = std::move(scene);
    return *slot;
}

struct tWorldEdge {
    Wm4::Vector3<float> a;
    Wm4::Vector3<float> b;
};

struct tGridEdge {
    ctr::BakedVertex a;
    ctr::BakedVertex b;
};

// Every edge of every mesh once (an edge shared by two triangles of a mesh
// counts once), in world space, in a seeded random order so that a prefix of
// the list is a fair sample of the whole model.
inline std::vector<tWorldEdge> CollectMeshEdges(const contour::ImportedModel& model, uint32_t seed) {
    std::vector<tWorldEdge> edges;
    for (const qe::qePointer<qe::qeTriMesh>& mesh : model.meshes) {
        std::vector<uint64_t> keys;
        keys.reserve(3 * static_cast<size_t>(mesh->GetTriangleQuantity()));
        for (int t = 0; t < mesh->GetTriangleQuantity(); ++t) {
            int corner[3];
            if (!mesh->GetTriangle(t, corner[0], corner[1], corner[2])) continue;
            for (int k = 0; k < 3; ++k) {
                const uint64_t p = static_cast<uint32_t>(corner[k]);
                const uint64_t q = static_cast<uint32_t>(corner[(k + 1) % 3]);
                if (p != q) keys.push_back(std::min(p, q) << 32 | std::max(p, q));
            }
        }
        std::sort(keys.begin(), keys.end());
        keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
        for (const uint64_t key : keys)
            edges.push_back(tWorldEdge{WorldPosition(*mesh, static_cast<int>(key >> 32)),
                                       WorldPosition(*mesh, static_cast<int>(key & 0xFFFFFFFFu))});
    }
    std::mt19937 random(seed);
    std::shuffle(edges.begin(), edges.end(), random);
    return edges;
}

// Seeded random edges in the box: the first end uniform in the box, the
// second at a uniformly random direction and a length up to maxLengthRatio
// times the box diagonal (clamped into the box). They pass through the
// model's volume rather than lying on its surface.
inline std::vector<tWorldEdge> MakeRandomEdges(const qe::qeBBox& box, size_t count, float maxLengthRatio,
                                               uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::normal_distribution<float> gauss(0.0f, 1.0f);
    const Wm4::Vector3<float> extent = box.Max - box.Min;
    const float diagonal = extent.Length();
    std::vector<tWorldEdge> edges(count);
    for (tWorldEdge& edge : edges) {
        for (int axis = 0; axis < 3; ++axis) edge.a[axis] = box.Min[axis] + unit(random) * extent[axis];
        Wm4::Vector3<float> direction(gauss(random), gauss(random), gauss(random));
        direction.Normalize();
        const float length = unit(random) * maxLengthRatio * diagonal;
        for (int axis = 0; axis < 3; ++axis)
            edge.b[axis] = std::clamp(edge.a[axis] + length * direction[axis], box.Min[axis], box.Max[axis]);
    }
    return edges;
}

// Clips and quantises world edges as the occlusion stages do; edges wholly
// outside the view are left out.
inline std::vector<tGridEdge> ProjectEdges(const ctr::DiscreteProjectionSpace& space,
                                           const std::vector<tWorldEdge>& edges) {
    std::vector<tGridEdge> projected;
    projected.reserve(edges.size());
    for (const tWorldEdge& edge : edges) {
        tGridEdge grid;
        float wA = 0.0f, wB = 0.0f;
        const std::pair<float, float> range = space.clipEdgeWorld(edge.a, edge.b, grid.a, grid.b, wA, wB);
        if (range.first <= range.second) projected.push_back(grid);
    }
    return projected;
}

// Node, leaf and depth figures of a baked hierarchy.
struct tHierarchyShape {
    size_t nodes = 0;
    size_t leaves = 0;
    uint32_t depth = 0;
};

inline tHierarchyShape MeasureHierarchy(const ctr::BakedTriangles& baked) {
    tHierarchyShape shape;
    const qe::qeGenericBVH& hierarchy = baked.getHierarchy();
    shape.nodes = hierarchy.getNodes().size();
    for (const qe::qeBVHNode& node : hierarchy.getNodes())
        if (node.isLeaf()) ++shape.leaves;
    shape.depth = hierarchy.computeDepth();
    return shape;
}

}  // namespace bench

#endif
