// Fuzz target: a small scene drawn as the tool draws a model. The bytes give
// the drawing options, a camera (a preset or an azimuth and elevation, up,
// parallel or perspective, an eye point) and up to a dozen triangles on a
// 4 x 4 x 4 integer grid, where shared, degenerate, coplanar and crossing
// triangles are common. The triangles go through the importer's corner
// joining and normals, into one or two meshes and an occluder; the view is
// framed, computed and written as the single-view file or the layered sheet.
// Checked: nothing crashes, every piece lies inside the page's margin, and
// the file holds no number that is not finite.
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "FuzzSupport.h"
#include "Welding.h"
#include "ctr/ExportParameters.h"
#include "ctr/SVGExporter.h"
#include "ctr/SheetWriter.h"
#include "ctr/drawing/Camera.h"
#include "ctr/drawing/Drawing.h"
#include "ctr/drawing/ModelImport.h"

namespace {

class tBytes {
public:
    tBytes(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    uint8_t next() {
        if (m_size == 0) return 0;
        --m_size;
        return *m_data++;
    }
    size_t left() const { return m_size; }

private:
    const uint8_t* m_data;
    size_t m_size;
};

// Triangles [begin, end) of the grid as one mesh, through the importer's
// corner joining and generated normals; null without triangles.
qe::qePointer<qe::qeTriMesh> makeMesh(const std::vector<contour::importer::tVec3>& corners, size_t begin, size_t end,
                                      float smoothingAngle) {
    if (begin >= end) return nullptr;
    contour::importer::tSourceMesh source;
    source.positions.resize(3 * (end - begin));
    source.corners.resize(3 * (end - begin));
    for (size_t c = 0; c < 3 * (end - begin); ++c) {
        source.positions[c] = corners[3 * begin + c];
        source.corners[c] = static_cast<unsigned int>(c);
    }
    contour::ImportOptions options;
    options.smoothingAngleDegrees = smoothingAngle;
    contour::importer::tBuffers buffers;
    std::string error;
    FUZZ_REQUIRE(contour::importer::convertMesh(source, 0, options, false, buffers, error), "conversion: %s",
                 error.c_str());
    contour::ImportedModel model;
    contour::importer::placeMesh(model, buffers, contour::importer::tRows(false), "grid");
    return model.meshes[0];
}

// Every end of the segments of set lies on the page, placed as the exporter
// places it, inside the margin: the lines lie on the drawn triangles, whose
// corners the camera frames inside it. A perspective eye in or beside the
// model frames the lens's view instead, which fills the whole page. Ends
// that the grid places (those of intersection lines) may stray by a cell,
// and rounding by a hair.
void checkOnPage(const qe::qePointer<ctr::LineSegmentSet>& set, const contour::CameraMatrices& camera,
                 const ctr::ExportParameters& parameters, double margin, unsigned int xyBits, const char* kind) {
    if (!set || !set->IBuffer) return;
    FUZZ_REQUIRE(set->VBuffer, "%s: indices without vertices", kind);
    const Wm4::Matrix2<float>& fit = parameters.getBestFitTransform();
    const Wm4::Vector2<float>& offset = parameters.getPageOffset();
    const Wm4::Vector2<float>& page = parameters.getPageSizeInMM();
    const double low = margin - (1e-3 + 2.0 / std::ldexp(1.0, static_cast<int>(xyBits))) * (page[0] + page[1]);
    const int vertexCount = set->VBuffer->GetVertexQuantity();
    for (int i = 0; i < set->IBuffer->GetIndexQuantity(); ++i) {
        const unsigned int index = set->IBuffer->GetData()[i];
        FUZZ_REQUIRE(index < static_cast<unsigned int>(vertexCount), "%s: index %u of %d vertices", kind, index,
                     vertexCount);
        const Wm4::Vector3<float> world =
            set->World.ApplyForward(set->VBuffer->Position3(static_cast<int>(index)), true);
        double u = 0.0, v = 0.0;
        FUZZ_REQUIRE(contour::WorldToDevice(camera.worldToClip, world, u, v), "%s: end %d has no place on the page",
                     kind, i);
        const double x = fit[0][0] * u + fit[0][1] * v + offset[0];
        const double y = fit[1][0] * u + fit[1][1] * v + offset[1];
        FUZZ_REQUIRE(x >= low && x <= page[0] - low && y >= low && y <= page[1] - low,
                     "%s: end %d at (%g, %g) mm is outside the %g mm margin of the %g x %g page", kind, i, x, y, margin,
                     double(page[0]), double(page[1]));
    }
}

// The path data of the file: numbers, commands and separators only.
void checkSvg(const std::string& svg) {
    static const std::string kPathData = " d=\"";
    for (size_t at = svg.find(kPathData); at != std::string::npos; at = svg.find(kPathData, at)) {
        at += kPathData.size();
        const size_t end = svg.find('"', at);
        FUZZ_REQUIRE(end != std::string::npos, "path data without an end");
        const std::string data = svg.substr(at, end - at);
        FUZZ_REQUIRE(data.find_first_not_of("0123456789.-+eMLAZmlaz ,") == std::string::npos, "path data '%s'",
                     data.c_str());
    }
    FUZZ_REQUIRE(svg.find("</svg>") != std::string::npos, "the file is not complete");
}

// The single-view file goes through a file of this process.
std::string exporterFile() {
    static const std::string path =
        (std::filesystem::temp_directory_path() / ("ctr-fuzz-drawing-" + std::to_string(::getpid()) + ".svg")).string();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tBytes in(data, size);

    const uint8_t flags = in.next();
    const uint8_t view = in.next();
    const uint8_t camera = in.next();
    const uint8_t grid = in.next();
    const uint8_t split = in.next();

    contour::DrawingOptions options;
    options.hiddenLines = flags & 1;
    options.layers = flags & 2;
    options.arcs = flags & 4;
    options.keepCommon = flags & 8;
    options.camera.perspective = flags & 16;
    if (flags & 32) std::swap(options.pageWidthMM, options.pageHeightMM);
    if (view % 10 < 7) {
        options.camera.view = static_cast<contour::ViewPreset>(view % 10);
    } else {
        // Multiples of 15 degrees: views along an axis or a diagonal.
        options.camera.azimuthElevation = std::array<double, 2>{15.0 * (view / 10 % 24), 15.0 * (camera % 13) - 90.0};
    }
    static const Wm4::Vector3<double> kUps[] = {{0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}, {1.0, 0.0, 0.0}, {0.0, -1.0, 1.0}};
    options.camera.up = kUps[camera / 13 % 4];
    static const double kFields[] = {30.0, 5.0, 90.0, 170.0};
    options.camera.fovDegrees = kFields[camera / 52 % 4];
    if (flags & 64) {
        const uint8_t at = in.next();
        options.camera.eye = Wm4::Vector3<double>(at % 8 - 2.0, at / 8 % 8 - 2.0, in.next() % 8 - 2.0);
    }
    // The default grid, a very coarse one where everything coincides, and
    // the budget's extremes.
    static const unsigned int kBits[][2] = {{20, 20}, {2, 2}, {4, 3}, {8, 8}, {12, 30}, {24, 11}, {10, 39}, {19, 21}};
    options.xyBits = kBits[grid % 8][0];
    options.zBits = kBits[grid % 8][1];
    static const float kAngles[] = {30.0f, 0.0f, 89.0f, 180.0f};
    const float smoothingAngle = kAngles[grid / 8 % 4];

    std::vector<contour::importer::tVec3> corners;
    while (in.left() >= 9 && corners.size() < 36)
        for (int k = 0; k < 3; ++k) {
            const uint8_t x = in.next(), y = in.next(), z = in.next();
            corners.push_back({float(x % 4), float(y % 4), float(z % 4)});
        }
    const size_t triangles = corners.size() / 3;
    // The last triangle hides without being drawn, and the others form one
    // or two meshes.
    const size_t drawn = (flags & 128) && triangles > 1 ? triangles - 1 : triangles;
    const size_t first = split % (drawn + 1);
    std::vector<qe::qePointer<qe::qeTriMesh>> meshes{makeMesh(corners, 0, first, smoothingAngle),
                                                     makeMesh(corners, first, drawn, smoothingAngle)};
    const qe::qePointer<qe::qeTriMesh> occluder = makeMesh(corners, drawn, triangles, smoothingAngle);
    std::vector<const qe::qeTriMesh*> meshList, occluders;
    for (const qe::qePointer<qe::qeTriMesh>& mesh : meshes)
        if (mesh) meshList.push_back(mesh);
    if (occluder) occluders.push_back(occluder);
    if (meshList.empty()) return 0;

    contour::CameraMatrices matrices;
    std::string error;
    // Refused cameras (all corners on one point, an eye on the target, a
    // model behind the eye) are the tool's usage errors.
    if (!contour::FrameCamera(meshList, occluders, options.camera, options.pageWidthMM, options.pageHeightMM, matrices,
                              error))
        return 0;
    contour::ViewLines lines;
    contour::DrawingStats stats;
    // A lens that sees the model as a point has no scale to the page, and
    // that is the only way the view may fail.
    if (!contour::ComputeView(meshList, occluders, options, matrices, contour::FitToPage(options), lines, stats, error,
                              nullptr, nullptr)) {
        FUZZ_REQUIRE(error.find("no extent") != std::string::npos, "the view failed: %s", error.c_str());
        return 0;
    }
    const ctr::ExportParameters& parameters = *lines.parameters;
    const double margin = options.camera.perspective && options.camera.eye ? 0.0 : options.camera.marginMM;
    checkOnPage(lines.creases, matrices, parameters, margin, options.xyBits, "creases");
    checkOnPage(lines.silhouettes, matrices, parameters, margin, options.xyBits, "silhouettes");
    checkOnPage(lines.intersections, matrices, parameters, margin, options.xyBits, "intersections");
    for (const qe::qePointer<ctr::LineSegmentSet>& hidden : lines.hidden)
        checkOnPage(hidden, matrices, parameters, margin, options.xyBits, "hidden");
    for (const contour::LineKindStats* kind : {&stats.crease, &stats.silhouette, &stats.intersection})
        FUZZ_REQUIRE(std::isfinite(kind->inkMM) && kind->inkMM >= 0.0 && kind->found >= kind->beforeHiding(),
                     "line statistics");
    FUZZ_REQUIRE(std::isfinite(stats.hidden.inkMM), "hidden line statistics");

    if (options.layered()) {
        ctr::SheetWriter sheet;
        contour::StyleSheet(sheet, options);
        sheet.addView(parameters);
        FUZZ_REQUIRE(contour::AddViewLines(sheet, lines), "the sheet refused lines");
        std::ostringstream svg;
        FUZZ_REQUIRE(sheet.write(svg), "the sheet was not written");
        checkSvg(svg.str());
    } else {
        ctr::SVGExporter exporter;
        exporter.setExportParameters(parameters);
        FUZZ_REQUIRE(exporter.openFile(exporterFile()), "cannot open %s", exporterFile().c_str());
        for (const auto& [set, style] :
             {std::make_pair(lines.creases, "crease"), std::make_pair(lines.silhouettes, "silhouette"),
              std::make_pair(lines.intersections, "silhouette")})
            FUZZ_REQUIRE(!set || exporter.streamLineSegments(*set, style), "the %s lines were not written", style);
        FUZZ_REQUIRE(exporter.closeFile(), "the file was not closed");
        std::ifstream file(exporterFile(), std::ios::binary);
        std::ostringstream svg;
        svg << file.rdbuf();
        std::remove(exporterFile().c_str());
        checkSvg(svg.str());
    }
    return 0;
}
