#include "ctr/drawing/DemoScene.h"

#include <cmath>
#include <vector>

#include "qe/qeAttributes.h"
#include "qe/qeIndexBuffer.h"
#include "qe/qeVertexBuffer.h"

namespace contour {

namespace {

using Vec3 = Wm4::Vector3<float>;

struct tOutlinePoint {
    float x;
    float z;
};

struct tMeshBuilder {
    std::vector<Vec3> positions;
    std::vector<Vec3> normals;
    std::vector<unsigned int> indices;

    unsigned int add(const Vec3& position, const Vec3& normal) {
        positions.push_back(position);
        normals.push_back(normal);
        return static_cast<unsigned int>(positions.size() - 1);
    }
    void triangle(unsigned int a, unsigned int b, unsigned int c) { indices.insert(indices.end(), {a, b, c}); }
};

// A solid prism standing on y = 0 over an outline that turns from +x towards
// -z (counter-clockwise seen from above), triangles wound outwards. Smooth
// sides share one normal per outline point, so only the caps' rims are
// creases; flat sides give each face its own corners and so a crease at
// every vertical edge.
qe::qePointer<qe::qeTriMesh> makePrism(const std::vector<tOutlinePoint>& outline, float height, bool smoothSides,
                                       const Vec3& placement) {
    tMeshBuilder mesh;
    const unsigned int count = static_cast<unsigned int>(outline.size());
    const auto at = [&](unsigned int i, float y) { return Vec3(outline[i % count].x, y, outline[i % count].z); };
    const Vec3 up(0.0f, 1.0f, 0.0f);

    for (const float y : {0.0f, height}) {
        const Vec3 normal = y > 0.0f ? up : -up;
        const unsigned int centre = mesh.add(Vec3(0.0f, y, 0.0f), normal);
        const unsigned int first = mesh.add(at(0, y), normal);
        for (unsigned int i = 0; i < count; ++i) {
            const unsigned int current = first + i;
            const unsigned int next = i + 1 < count ? current + 1 : first;
            if (i + 1 < count) mesh.add(at(i + 1, y), normal);
            if (y > 0.0f)
                mesh.triangle(centre, current, next);
            else
                mesh.triangle(centre, next, current);
        }
    }

    const auto outward = [&](unsigned int i) {
        Vec3 normal(outline[i % count].x, 0.0f, outline[i % count].z);
        normal.Normalize();
        return normal;
    };
    const unsigned int ringStart = static_cast<unsigned int>(mesh.positions.size());
    if (smoothSides)
        for (unsigned int i = 0; i < count; ++i) mesh.add(at(i, 0.0f), outward(i)), mesh.add(at(i, height), outward(i));
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int b0, t0, b1, t1;
        if (smoothSides) {
            b0 = ringStart + 2 * i, t0 = b0 + 1;
            b1 = ringStart + 2 * ((i + 1) % count), t1 = b1 + 1;
        } else {
            Vec3 normal = (at(i + 1, 0.0f) - at(i, 0.0f)).Cross(up);
            normal.Normalize();
            b0 = mesh.add(at(i, 0.0f), normal), b1 = mesh.add(at(i + 1, 0.0f), normal);
            t0 = mesh.add(at(i, height), normal), t1 = mesh.add(at(i + 1, height), normal);
        }
        mesh.triangle(b0, b1, t1);
        mesh.triangle(b0, t1, t0);
    }

    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    attributes.SetNormalChannels(3);
    const int vertexCount = static_cast<int>(mesh.positions.size());
    qe::qePointer<qe::qeVertexBuffer> vertices = new qe::qeVertexBuffer(attributes, vertexCount);
    for (int i = 0; i < vertexCount; ++i) {
        vertices->Position3(i) = mesh.positions[static_cast<size_t>(i)];
        vertices->Normal3(i) = mesh.normals[static_cast<size_t>(i)];
    }
    qe::qePointer<qe::qeIndexBuffer> triangles =
        new qe::qeIndexBuffer(static_cast<int>(mesh.indices.size()), qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    for (size_t i = 0; i < mesh.indices.size(); ++i) triangles->GetData()[i] = mesh.indices[i];
    qe::qePointer<qe::qeTriMesh> result = new qe::qeTriMesh(vertices, triangles);
    result->Local.SetTranslate(placement);
    result->World = result->Local;
    result->WorldIsCurrent = true;
    result->UpdateMS(true, false, 0);
    result->UpdateGS();
    return result;
}

std::vector<tOutlinePoint> regularPolygon(unsigned int sides, float radius, float startDegrees) {
    std::vector<tOutlinePoint> outline;
    for (unsigned int i = 0; i < sides; ++i) {
        const double angle = (startDegrees + 360.0 * i / sides) * 3.14159265358979323846 / 180.0;
        outline.push_back(
            {static_cast<float>(radius * std::cos(angle)), static_cast<float>(-radius * std::sin(angle))});
    }
    return outline;
}

}  // namespace

ImportedModel MakeDemoScene() {
    ImportedModel model;
    const auto place = [&](qe::qePointer<qe::qeTriMesh> mesh, const char* name) {
        model.triangleCount += static_cast<size_t>(mesh->GetTriangleQuantity());
        model.vertexCount += static_cast<size_t>(mesh->VBuffer->GetVertexQuantity());
        model.meshes.push_back(mesh);
        model.names.push_back(name);
    };
    place(makePrism({{2.0f, -1.5f}, {-2.0f, -1.5f}, {-2.0f, 1.5f}, {2.0f, 1.5f}}, 1.0f, false, Vec3(0.0f, 0.0f, 0.0f)),
          "box");
    // The cylinder's foot is sunk into the box: a base lying exactly in the
    // box's top face would leave its rim to ties between coplanar triangles.
    place(makePrism(regularPolygon(64, 0.8f, 0.0f), 1.9f, true, Vec3(0.6f, 0.9f, 0.2f)), "cylinder");
    place(makePrism(regularPolygon(6, 0.7f, 0.0f), 3.4f, false, Vec3(-1.2f, 0.0f, -2.6f)), "prism");
    model.hasNormals = true;
    return model;
}

}  // namespace contour
