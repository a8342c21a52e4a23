#include "Drawing.h"

#include <fstream>
#include <iterator>

#include "Wm4Vector2.h"
#include "qe/qePointer.h"

#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/ExportParameters.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"
#include "ctr/SVGExporter.h"

namespace contour {

namespace {

size_t countSegments(const qe::qePointer<ctr::LineSegmentSet>& set) {
    return set ? static_cast<size_t>(set->getSegmentQuantity()) : 0;
}

size_t countPaths(const std::string& svgPath) {
    std::ifstream in(svgPath, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t count = 0;
    for (size_t at = text.find("<path"); at != std::string::npos; at = text.find("<path", at + 5)) ++count;
    return count;
}

}  // namespace

bool BitSizesAccepted(unsigned int xyBits, unsigned int zBits) {
    ctr::DiscreteProjectionSpace probe;
    return (xyBits == probe.getXYBitSize() && zBits == probe.getZBitSize()) || probe.setVoxelBitSize(xyBits, zBits);
}

std::string EscapeXml(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                const auto code = static_cast<unsigned char>(c);
                escaped += code < 0x20 && c != '\t' && c != '\n' && c != '\r' ? ' ' : c;
        }
    }
    return escaped;
}

bool DrawToSVG(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
               const DrawingOptions& options, const std::string& svgPath, DrawingStats& stats, std::string& error,
               ctr::Executor* executor) {
    CameraMatrices camera;
    if (!FrameCamera(meshes, occluders, options.camera, options.pageWidthMM, options.pageHeightMM, camera, error))
        return false;
    ctr::DiscreteProjectionSpace space;
    space.setViewProjection(camera.worldToClip, camera.clipToWorld);
    space.updateRatios();
    // The space starts with the default sizes, which setVoxelBitSize would
    // refuse to set again.
    if ((options.xyBits != space.getXYBitSize() || options.zBits != space.getZBitSize()) &&
        !space.setVoxelBitSize(options.xyBits, options.zBits)) {
        error =
            "the library refuses the bit sizes " + std::to_string(options.xyBits) + "," + std::to_string(options.zBits);
        return false;
    }

    ctr::GeometricFeaturesGenerator generator;
    generator.setProjectionSpace(space);
    generator.setExecutor(executor);
    generator.setSingleExportCluster(meshes, &occluders);
    // Creases that a silhouette repeats are drawn once, as silhouettes.
    ctr::GeometricFeatures features;
    generator.computeGeometricFeatures(features, 0, true);
    stats.creaseSegments = countSegments(features.creaseEdges);
    stats.silhouetteSegments = countSegments(features.silhouetteEdges);
    stats.intersectionSegments = countSegments(features.intersectionEdges);

    ctr::ExportParameters parameters(space);
    parameters.setPageSizeInMM(
        Wm4::Vector2<float>(static_cast<float>(options.pageWidthMM), static_cast<float>(options.pageHeightMM)));
    parameters.computeBestFitTransform();
    ctr::SVGExporter exporter;
    exporter.setExportParameters(parameters);
    exporter.setTitle(options.title);
    exporter.setDescription(options.description);
    ctr::SVGLineStyle crease = exporter.getLineStyle("crease");
    if (options.creaseWidthMM) crease.width = *options.creaseWidthMM;
    if (options.color) crease.color = *options.color;
    exporter.setLineStyle("crease", crease);
    ctr::SVGLineStyle silhouette = exporter.getLineStyle("silhouette");
    if (options.silhouetteWidthMM) silhouette.width = *options.silhouetteWidthMM;
    if (options.color) silhouette.color = *options.color;
    exporter.setLineStyle("silhouette", silhouette);

    if (!exporter.openFile(svgPath)) {
        error = "cannot write '" + svgPath + "'";
        return false;
    }
    if (!exporter.streamGeometricFeatures(features) || !exporter.closeFile()) {
        error = "writing '" + svgPath + "' failed";
        return false;
    }
    stats.paths = countPaths(svgPath);
    return true;
}

}  // namespace contour
