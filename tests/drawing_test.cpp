// The first drawing from end to end, on a scene made in code: crease lines of
// a box and a cylinder standing in it, hidden by themselves and by a
// hide-only panel, exported as an SVG page and read back.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "ctr/ExportParameters.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/SVGExporter.h"
#include "generator/GeneratorInternal.h"

namespace {

using V3 = Wm4::Vector3<float>;
using Polyline = std::vector<Wm4::Vector2<float>>;

// An upright cylinder with smooth sides and a flat top, open at the bottom.
qe::qePointer<qe::qeTriMesh> Cylinder(const V3& base, float radius, float height, unsigned sides) {
    std::vector<V3> positions, normals;
    std::vector<unsigned> indices;
    for (unsigned i = 0; i < sides; ++i) {
        const double angle = 2.0 * 3.14159265358979 * i / sides;
        const V3 out(static_cast<float>(std::cos(angle)), 0.0f, static_cast<float>(-std::sin(angle)));
        for (const float y : {0.0f, height}) {
            positions.push_back(base + out * radius + V3(0, y, 0));
            normals.push_back(out);
        }
    }
    for (unsigned i = 0; i < sides; ++i) {
        const unsigned a = 2 * i, b = 2 * ((i + 1) % sides);
        indices.insert(indices.end(), {a, b, b + 1, a, b + 1, a + 1});
    }
    // The top cap repeats the rim with the cap's normal: a crease all round.
    const unsigned centre = static_cast<unsigned>(positions.size());
    positions.push_back(base + V3(0, height, 0));
    normals.emplace_back(0.0f, 1.0f, 0.0f);
    for (unsigned i = 0; i < sides; ++i) {
        positions.push_back(positions[2 * i + 1]);
        normals.emplace_back(0.0f, 1.0f, 0.0f);
    }
    for (unsigned i = 0; i < sides; ++i)
        indices.insert(indices.end(), {centre, centre + 1 + i, centre + 1 + (i + 1) % sides});
    return ctr_test::MakeMesh(positions, indices, normals);
}

// The paths of an SVG file written by the exporter: "M x,y L x,y ...".
std::vector<Polyline> ReadPaths(const std::string& text) {
    std::vector<Polyline> paths;
    for (size_t at = text.find("<path d=\""); at != std::string::npos; at = text.find("<path d=\"", at + 1)) {
        std::istringstream in(text.substr(at + 9, text.find('"', at + 9) - at - 9));
        paths.emplace_back();
        char command, comma;
        float x, y;
        while (in >> command >> x >> comma >> y) paths.back().emplace_back(x, y);
    }
    return paths;
}

float Distance(const Wm4::Vector2<float>& p, const Wm4::Vector2<float>& a, const Wm4::Vector2<float>& b) {
    const Wm4::Vector2<float> d = b - a;
    const float length2 = d.Dot(d);
    const float t = length2 > 0 ? std::fmax(0.0f, std::fmin(1.0f, (p - a).Dot(d) / length2)) : 0.0f;
    return (a + d * t - p).Length();
}

// Distance on the sheet from p to the nearest drawn line.
float NearestLine(const std::vector<Polyline>& paths, const Wm4::Vector2<float>& p) {
    float nearest = 1e30f;
    for (const Polyline& path : paths)
        for (size_t i = 0; i + 1 < path.size(); ++i) nearest = std::fmin(nearest, Distance(p, path[i], path[i + 1]));
    return nearest;
}

// Where the exporter puts a world point on the sheet (y down the page).
Wm4::Vector2<float> OnSheet(const ctr::ExportParameters& parameters, const V3& world) {
    const Wm4::Vector4<float> clip =
        Wm4::Vector4<float>(world[0], world[1], world[2], 1.0f) * parameters.getProjectionSpace().getWorldToClip();
    const float u = clip[0] / clip[3], v = clip[1] / clip[3];
    const Wm4::Matrix2<float>& m = parameters.getBestFitTransform();
    return Wm4::Vector2<float>(
        m[0][0] * u + m[0][1] * v + parameters.getPageOffset()[0],
        parameters.getPageSizeInMM()[1] - (m[1][0] * u + m[1][1] * v + parameters.getPageOffset()[1]));
}

TEST(Drawing, CreasesOfABoxAndACylinderWithHiddenPartsRemoved) {
    // Looking down at the box from the front. The cylinder stands sunk into
    // the box top, so that its open foot is hidden inside; the panel stands
    // between the camera and everything right of x = 0.5.
    const auto box = ctr_test::MakeSplitBox(V3(-2, 0, -1.5f), V3(2, 1, 1.5f));
    const auto cylinder = Cylinder(V3(0, 0.9f, 0), 0.6f, 1.6f, 48);
    const auto panel =
        ctr_test::MakeMesh({V3(0.5f, -5, 3), V3(6, -5, 3), V3(6, 8, 3), V3(0.5f, 8, 3)}, {0, 1, 2, 0, 2, 3});
    ctr::DiscreteProjectionSpace space;
    ctr_test::PerspectiveCamera(space, V3(0, 6, 10), V3(0, 0.5f, 0), 40.0f, 1.0f, 1.0f, 40.0f);

    ctr::GeometricFeaturesGenerator generator;
    generator.setProjectionSpace(space);
    const std::vector<const qe::qeTriMesh*> occluders{panel};
    generator.setSingleExportCluster({box, cylinder}, &occluders);
    const qe::qePointer<ctr::LineSegmentSet> creases = generator.getInternal().computeCreaseEdges(0);
    ASSERT_NE(creases, nullptr);
    generator.computeOcclusion(*creases, 0);

    ctr::ExportParameters parameters(space);
    ctr::SVGExporter exporter;
    exporter.setExportParameters(parameters);
    const std::string path = ::testing::TempDir() + "drawing_test.svg";
    ASSERT_TRUE(exporter.openFile(path));
    ASSERT_TRUE(exporter.streamLineSegments(*creases, "crease"));
    ASSERT_TRUE(exporter.closeFile());
    std::ifstream file(path);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::remove(path.c_str());
    const std::vector<Polyline> paths = ReadPaths(text);
    ASSERT_FALSE(paths.empty());
    for (const Polyline& polyline : paths)
        for (const auto& p : polyline) {
            EXPECT_GE(p[0], 0.0f);
            EXPECT_LE(p[0], 210.0f);
            EXPECT_GE(p[1], 0.0f);
            EXPECT_LE(p[1], 297.0f);
        }

    struct Probe {
        V3 point;
        bool drawn;
        const char* what;
    };
    for (const Probe& probe :
         {Probe{V3(-1, 1, 1.5f), true, "front top edge"}, Probe{V3(-2, 0.5f, 1.5f), true, "front left upright"},
          Probe{V3(-1, 0, 1.5f), true, "front bottom edge"},
          Probe{V3(-1.5f, 1, -1.5f), true, "back top edge beside the cylinder"},
          Probe{V3(-0.6f, 2.5f, 0), true, "cylinder rim"},
          Probe{V3(-1, 0, -1.5f), false, "back bottom edge behind the box"},
          Probe{V3(0, 1, -1.5f), false, "back top edge behind the cylinder"},
          Probe{V3(1.5f, 1, 1.5f), false, "front top edge behind the panel"},
          Probe{V3(2, 0.5f, 1.5f), false, "right upright behind the panel"}}) {
        const float distance = NearestLine(paths, OnSheet(parameters, probe.point));
        if (probe.drawn)
            EXPECT_LT(distance, 0.05f) << probe.what;
        else
            EXPECT_GT(distance, 1.0f) << probe.what;
    }
}

}  // namespace
