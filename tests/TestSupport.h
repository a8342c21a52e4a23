// Builders shared by the test files: inline meshes, cameras and model paths.
#ifndef CTR_TESTSUPPORT_H
#define CTR_TESTSUPPORT_H

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Wm4Matrix4.h"
#include "Wm4Vector2.h"
#include "Wm4Vector3.h"
#include "Wm4Vector4.h"
#include "qe/qeAttributes.h"
#include "qe/qeIndexBuffer.h"
#include "qe/qePointer.h"
#include "qe/qeTriMesh.h"
#include "qe/qeVertexBuffer.h"

#include "ctr/drawing/Camera.h"
#include "ctr/drawing/ModelImport.h"
#include "ctr/BakedTriangles.h"
#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"

// Readable failure messages for the value types (found by GoogleTest through
// argument-dependent lookup).
namespace Wm4 {
inline void PrintTo(const Vector3<float>& v, std::ostream* os) {
    *os << "(" << v[0] << ", " << v[1] << ", " << v[2] << ")";
}
}  // namespace Wm4

namespace ctr {
inline void PrintTo(const BakedVertex& v, std::ostream* os) { *os << "{" << v.x << ", " << v.y << ", " << v.z << "}"; }
}  // namespace ctr

namespace ctr_test {

// A triangle mesh over copies of the given arrays (three indices per
// triangle). Normals are stored when given, one per position.
inline qe::qePointer<qe::qeTriMesh> MakeMesh(const std::vector<Wm4::Vector3<float>>& positions,
                                             const std::vector<unsigned int>& indices,
                                             const std::vector<Wm4::Vector3<float>>& normals = {}) {
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    if (!normals.empty()) attributes.SetNormalChannels(3);
    const int vertexCount = static_cast<int>(positions.size());
    qe::qePointer<qe::qeVertexBuffer> vertices = new qe::qeVertexBuffer(attributes, vertexCount);
    for (int i = 0; i < vertexCount; ++i) {
        vertices->Position3(i) = positions[static_cast<size_t>(i)];
        if (!normals.empty()) vertices->Normal3(i) = normals[static_cast<size_t>(i)];
    }
    qe::qePointer<qe::qeIndexBuffer> triangles =
        new qe::qeIndexBuffer(static_cast<int>(indices.size()), qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    for (size_t i = 0; i < indices.size(); ++i) triangles->GetData()[i] = indices[i];
    qe::qePointer<qe::qeTriMesh> mesh = new qe::qeTriMesh(vertices, triangles);
    mesh->UpdateMS();
    return mesh;
}

// The features of a cluster drawn through space, common segments removed,
// with the hidden pieces of its intersection lines.
struct DrawnFeatures {
    ctr::GeometricFeatures features;
    qe::qePointer<ctr::LineSegmentSet> hiddenIntersections;
};

inline DrawnFeatures ComputeFeatures(const ctr::DiscreteProjectionSpace& space,
                                     const std::vector<const qe::qeTriMesh*>& meshes) {
    ctr::GeometricFeaturesGenerator generator;
    generator.setProjectionSpace(space);
    generator.setSingleExportCluster(meshes, nullptr);
    DrawnFeatures drawn;
    generator.computeGeometricFeatures(drawn.features, 0, true, &drawn.hiddenIntersections);
    return drawn;
}

// A matrix pair for setViewProjection: worldToClip and the clipToWorld that
// undoes it, both for row vectors (clip = (x, y, z, 1) * worldToClip).
struct CameraMatrices {
    Wm4::Matrix4<float> worldToClip;
    Wm4::Matrix4<float> clipToWorld;
};

// Look-at view: the camera sits at eye, looks at target with up roughly up,
// and views down its own -z (so NDC depth -1 is the near side). Callers keep
// target - eye and up independent.
inline CameraMatrices LookAt(const Wm4::Vector3<float>& eye, const Wm4::Vector3<float>& target,
                             const Wm4::Vector3<float>& up) {
    const auto normalised = [](const Wm4::Vector3<float>& v) { return v / v.Length(); };
    const Wm4::Vector3<float> forward = normalised(target - eye);
    const Wm4::Vector3<float> right = normalised(forward.Cross(up));
    const Wm4::Vector3<float> upward = right.Cross(forward);
    // Camera x, y, z are the dot products with right, upward and -forward:
    // those vectors form the columns; the inverse has them as rows.
    CameraMatrices view;
    view.worldToClip = Wm4::Matrix4<float>(right[0], upward[0], -forward[0], 0.0f,  //
                                           right[1], upward[1], -forward[1], 0.0f,  //
                                           right[2], upward[2], -forward[2], 0.0f,  //
                                           -eye.Dot(right), -eye.Dot(upward), eye.Dot(forward), 1.0f);
    view.clipToWorld = Wm4::Matrix4<float>(right[0], right[1], right[2], 0.0f,           //
                                           upward[0], upward[1], upward[2], 0.0f,        //
                                           -forward[0], -forward[1], -forward[2], 0.0f,  //
                                           eye[0], eye[1], eye[2], 1.0f);
    return view;
}

// Perspective projection onto the cube [-1, 1]^3 (near plane at depth -1),
// after the look-at view; aspect is width / height.
inline CameraMatrices PerspectiveMatrices(const Wm4::Vector3<float>& eye, const Wm4::Vector3<float>& target,
                                          const Wm4::Vector3<float>& up, float fovYDegrees, float aspect,
                                          float nearDistance, float farDistance) {
    const float focal = 1.0f / std::tan(fovYDegrees * 3.14159265358979f / 360.0f);
    const float a = (nearDistance + farDistance) / (nearDistance - farDistance);
    const float b = 2.0f * nearDistance * farDistance / (nearDistance - farDistance);
    // Camera (x, y, z, 1) -> (focal x / aspect, focal y, a z + b, -z); the
    // inverse takes (X, Y, Z, W) to (aspect X / focal, Y / focal, -W, (Z + a W) / b).
    const Wm4::Matrix4<float> projection(focal / aspect, 0, 0, 0, 0, focal, 0, 0, 0, 0, a, -1, 0, 0, b, 0);
    const Wm4::Matrix4<float> inverse(aspect / focal, 0, 0, 0, 0, 1.0f / focal, 0, 0, 0, 0, 0, 1.0f / b, 0, 0, -1,
                                      a / b);
    const CameraMatrices view = LookAt(eye, target, up);
    return {view.worldToClip * projection, inverse * view.clipToWorld};
}

// Orthographic projection of the box halfWidth x halfHeight around the view
// axis, depths nearDistance to farDistance in front of the eye.
inline CameraMatrices OrthoMatrices(const Wm4::Vector3<float>& eye, const Wm4::Vector3<float>& target,
                                    const Wm4::Vector3<float>& up, float halfWidth, float halfHeight,
                                    float nearDistance, float farDistance) {
    const float depth = farDistance - nearDistance;
    const Wm4::Matrix4<float> projection(1.0f / halfWidth, 0, 0, 0, 0, 1.0f / halfHeight, 0, 0, 0, 0, -2.0f / depth, 0,
                                         0, 0, -(farDistance + nearDistance) / depth, 1);
    const Wm4::Matrix4<float> inverse(halfWidth, 0, 0, 0, 0, halfHeight, 0, 0, 0, 0, -0.5f * depth, 0, 0, 0,
                                      -0.5f * (farDistance + nearDistance), 1);
    const CameraMatrices view = LookAt(eye, target, up);
    return {view.worldToClip * projection, inverse * view.clipToWorld};
}

// A box from lo to hi, two triangles per face, whose faces have their own
// corners carrying the face normal (split corners, as CAD hands them over).
inline qe::qePointer<qe::qeTriMesh> MakeSplitBox(const Wm4::Vector3<float>& lo, const Wm4::Vector3<float>& hi) {
    std::vector<Wm4::Vector3<float>> positions, normals;
    std::vector<unsigned int> indices;
    for (int axis = 0; axis < 3; ++axis)
        for (int side = 0; side < 2; ++side) {
            const unsigned int first = static_cast<unsigned int>(positions.size());
            Wm4::Vector3<float> normal(0.0f, 0.0f, 0.0f);
            normal[axis] = side ? 1.0f : -1.0f;
            const int u = (axis + 1) % 3, v = (axis + 2) % 3;
            for (int k = 0; k < 4; ++k) {
                Wm4::Vector3<float> p;
                p[axis] = side ? hi[axis] : lo[axis];
                p[u] = (k == 1 || k == 2) ? hi[u] : lo[u];
                p[v] = k >= 2 ? hi[v] : lo[v];
                positions.push_back(p);
                normals.push_back(normal);
            }
            indices.insert(indices.end(), {first, first + 1, first + 2, first, first + 2, first + 3});
        }
    return MakeMesh(positions, indices, normals);
}

// Fill space with the camera and refresh its scales (the bit sizes already
// set in space are kept).
inline void PerspectiveCamera(ctr::DiscreteProjectionSpace& space, const Wm4::Vector3<float>& eye,
                              const Wm4::Vector3<float>& target, float fovYDegrees = 60.0f, float aspect = 1.0f,
                              float nearDistance = 0.1f, float farDistance = 100.0f,
                              const Wm4::Vector3<float>& up = Wm4::Vector3<float>(0.0f, 1.0f, 0.0f)) {
    const CameraMatrices camera = PerspectiveMatrices(eye, target, up, fovYDegrees, aspect, nearDistance, farDistance);
    space.setViewProjection(camera.worldToClip, camera.clipToWorld);
    space.updateRatios();
}

inline void OrthoCamera(ctr::DiscreteProjectionSpace& space, const Wm4::Vector3<float>& eye,
                        const Wm4::Vector3<float>& target, float halfWidth, float halfHeight, float nearDistance = 0.1f,
                        float farDistance = 100.0f,
                        const Wm4::Vector3<float>& up = Wm4::Vector3<float>(0.0f, 1.0f, 0.0f)) {
    const CameraMatrices camera = OrthoMatrices(eye, target, up, halfWidth, halfHeight, nearDistance, farDistance);
    space.setViewProjection(camera.worldToClip, camera.clipToWorld);
    space.updateRatios();
}

// Test models come from two folders: the small ones the suite always needs
// are carried in tests/models (CTR_TEST_MODELS_DIR), the large ones only in
// the shared collection beside the checkout (CTR_MODELS_DIR), which a clone
// may not have. Both use the same subfolders and file names.

// Path of a model, the carried copy first, or empty when neither folder has it.
inline std::string FindModel(const std::string& relative) {
    for (const char* folder : {CTR_TEST_MODELS_DIR, CTR_MODELS_DIR}) {
        std::string path = std::string(folder) + "/" + relative;
        std::error_code error;
        if (std::filesystem::is_regular_file(path, error)) return path;
    }
    return std::string();
}

// Path of a model, e.g. ModelPath("organic/spot.obj"). A missing model still
// gets a path (in the shared folder), so that the loader's error names it.
inline std::string ModelPath(const std::string& relative) {
    std::string path = FindModel(relative);
    return path.empty() ? std::string(CTR_MODELS_DIR) + "/" + relative : path;
}

inline std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// A model imported with generated normals; the test fails when it does not load.
inline contour::ImportedModel LoadModel(const std::string& relative) {
    contour::ImportedModel model;
    std::string error;
    EXPECT_TRUE(contour::ImportModel(ModelPath(relative), model, error)) << relative << ": " << error;
    return model;
}

// A line set over its own copy of the points (no index buffer when empty).
inline qe::qePointer<ctr::LineSegmentSet> LineSet(const std::vector<Wm4::Vector3<float>>& positions,
                                                  const std::vector<unsigned>& indices) {
    qe::qePointer<ctr::LineSegmentSet> set = new ctr::LineSegmentSet;
    set->VBuffer = MakeMesh(positions, {})->VBuffer;
    if (indices.empty()) return set;
    set->IBuffer = new qe::qeIndexBuffer(static_cast<int>(indices.size()), qe::qeIndexBuffer::IBT_LINE_LIST);
    for (size_t i = 0; i < indices.size(); ++i) set->IBuffer->GetData()[i] = indices[i];
    return set;
}

// The index buffer of a set (empty without one).
inline std::vector<unsigned> Indices(const ctr::LineSegmentSet& set) {
    if (!set.IBuffer) return {};
    return std::vector<unsigned>(set.IBuffer->GetData(), set.IBuffer->GetData() + set.IBuffer->GetIndexQuantity());
}

// The meshes baked through space, checked by the baking's own validation.
inline ctr::BakedTriangles Bake(const ctr::DiscreteProjectionSpace& space,
                                const std::vector<const qe::qeTriMesh*>& meshes) {
    ctr::BakedTriangles baked;
    baked.setProjectionSpace(&space);
    baked.setMeshes(meshes);
    baked.initialize();
    std::string why;
    EXPECT_TRUE(baked.validate(&why)) << why;
    return baked;
}

// A rippled torus of 4 r^2 triangles around the y axis, radii 2 and 0.7.
inline qe::qePointer<qe::qeTriMesh> MakeTorus(int r) {
    std::vector<Wm4::Vector3<float>> positions;
    std::vector<unsigned int> indices;
    for (int i = 0; i < r; ++i)
        for (int j = 0; j < 2 * r; ++j) {
            const float u = 6.2831853f * static_cast<float>(i) / static_cast<float>(r);
            const float v = 3.14159265f * static_cast<float>(j) / static_cast<float>(r);
            const float tube = 0.7f + 0.05f * std::sin(7.0f * u) * std::cos(5.0f * v);
            positions.emplace_back((2.0f + tube * std::cos(v)) * std::cos(u), tube * std::sin(v),
                                   (2.0f + tube * std::cos(v)) * std::sin(u));
            const auto at = [r](int a, int b) { return static_cast<unsigned>((a % r) * 2 * r + b % (2 * r)); };
            indices.insert(indices.end(), {at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j), at(i + 1, j + 1), at(i, j + 1)});
        }
    return MakeMesh(positions, indices);
}

// The centre and radius of the meshes' world bounding box.
struct Bounds {
    Wm4::Vector3<float> centre;
    float radius;
};
inline Bounds MeshBounds(const std::vector<const qe::qeTriMesh*>& meshes) {
    Wm4::Vector3<float> lo(1e30f, 1e30f, 1e30f), hi(-1e30f, -1e30f, -1e30f);
    for (const qe::qeTriMesh* mesh : meshes)
        for (int i = 0; i < mesh->VBuffer->GetVertexQuantity(); ++i) {
            const Wm4::Vector3<float> p = mesh->World.ApplyForward(mesh->VBuffer->Position3(i), true);
            for (int a = 0; a < 3; ++a) lo[a] = std::min(lo[a], p[a]), hi[a] = std::max(hi[a], p[a]);
        }
    return {(lo + hi) * 0.5f, std::max(0.5f * (hi - lo).Length(), 1e-3f)};
}

// A camera on the meshes from direction (scaled by the bounding radius r),
// framed as the tool frames its views: the window fitted to the meshes on a
// page of the given aspect (width / height), parallel, or in perspective
// with the eye right there.
inline void FrameMeshes(ctr::DiscreteProjectionSpace& space, const std::vector<const qe::qeTriMesh*>& meshes,
                        const Wm4::Vector3<float>& direction, bool perspective, float fovYDegrees = 50.0f,
                        float aspect = 1.0f) {
    const Bounds b = MeshBounds(meshes);
    const Wm4::Vector3<float> eye = b.centre + direction * b.radius;
    contour::CameraOptions options;
    options.eye = Wm4::Vector3<double>(eye[0], eye[1], eye[2]);
    options.target = Wm4::Vector3<double>(b.centre[0], b.centre[1], b.centre[2]);
    options.perspective = perspective;
    options.fovDegrees = fovYDegrees;
    contour::CameraMatrices camera;
    std::string error;
    ASSERT_TRUE(contour::FrameCamera(meshes, {}, options, 200.0 * aspect, 200.0, camera, error)) << error;
    space = contour::ProjectionSpaceOf(camera);
}

// One command of an SVG path as the writers print them (M x,y, L x,y and
// A r,r 0 0 s x,y): its letter, its end point as written and read, and for
// an arc the radius and sweep flag.
struct SvgCommand {
    char letter;
    std::string end;
    double x = 0.0, y = 0.0, radius = 0.0;
    int sweep = 0;
};
using SvgPath = std::vector<SvgCommand>;

// The paths of one layer (group id) of a file, or of the whole text.
inline std::vector<SvgPath> ParsePaths(const std::string& svg, const std::string& layer = "") {
    size_t from = 0, to = svg.size();
    if (!layer.empty()) {
        from = svg.find("<g id=\"" + layer + "\"");
        if (from == std::string::npos) return {};
        to = svg.find("</g>", from);
    }
    const auto point = [](const std::string& text, double& x, double& y) {
        char* end = nullptr;
        x = std::strtod(text.c_str(), &end);
        y = *end == ',' ? std::strtod(end + 1, nullptr) : NAN;
    };
    std::vector<SvgPath> paths;
    for (size_t at = svg.find(" d=\"", from); at < to; at = svg.find(" d=\"", at + 1)) {
        std::istringstream data(svg.substr(at + 4, svg.find('"', at + 4) - at - 4));
        SvgPath path;
        for (std::string token; data >> token;) {
            SvgCommand command{token[0], token.substr(1)};
            if (command.letter == 'A') {
                double ignored;
                point(command.end, command.radius, ignored);
                std::string rotation, large;
                data >> rotation >> large >> command.sweep >> command.end;
                EXPECT_EQ(rotation + large, "00");
            }
            point(command.end, command.x, command.y);
            path.push_back(command);
        }
        paths.push_back(path);
    }
    return paths;
}

#ifdef CONTOUR_TOOL
// Runs the contour tool in a scratch folder of its own per test, so that
// the tests may run in parallel.
class ToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
        folder = std::filesystem::temp_directory_path() /
                 ("contour_" + std::to_string(getpid()) + "_" + test->test_suite_name() + "_" + test->name());
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    // The exit code; arguments go to the shell as written, standard error
    // lands in errors, standard output in stdout.txt.
    int run(const std::string& arguments) {
        const std::string command = "cd '" + folder.string() + "' && SOURCE_DATE_EPOCH=1717113600 '" CONTOUR_TOOL "' " +
                                    arguments + " 2>stderr.txt >stdout.txt";
        const int status = std::system(command.c_str());
        errors = ReadFile(folder / "stderr.txt");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string read(const std::string& name) const { return ReadFile(folder / name); }
    static std::string model(const std::string& relative) { return "'" + ModelPath(relative) + "'"; }

    std::filesystem::path folder;
    std::string errors;
};
#endif

}  // namespace ctr_test

// Ends the current test as skipped when a model is in neither folder: for the
// tests on the large models that only the shared collection holds.
#define CTR_SKIP_WITHOUT_MODEL(relative)                                                     \
    do {                                                                                     \
        if (ctr_test::FindModel(relative).empty())                                           \
            GTEST_SKIP() << (relative) << " not found in " << CTR_MODELS_DIR << "; skipped"; \
    } while (false)

#endif
