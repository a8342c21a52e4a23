// From meshes and a camera to an SVG file: the library's pipeline as the tool
// drives it.
#ifndef CONTOUR_DRAWING_H
#define CONTOUR_DRAWING_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Wm4ColorRGB.h"
#include "qe/qeTriMesh.h"

#include "Camera.h"
#include "ctr/Executor.h"

namespace contour {

struct DrawingOptions {
    CameraOptions camera;
    double pageWidthMM = 210.0;
    double pageHeightMM = 297.0;
    unsigned int xyBits = 20;
    unsigned int zBits = 20;
    // Written into the file as given: escape XML before (see EscapeXml).
    std::string title;
    std::string description;
    // Unset values keep the exporter's crease style.
    std::optional<float> creaseWidthMM;
    std::optional<float> silhouetteWidthMM;
    std::optional<Wm4::ColorRGB> color;
};

struct DrawingStats {
    size_t creaseSegments = 0;
    size_t silhouetteSegments = 0;
    size_t intersectionSegments = 0;
    size_t paths = 0;
};

// Whether the projection space takes these bit sizes (the library's default
// sizes are always taken, although setVoxelBitSize refuses to set them again).
bool BitSizesAccepted(unsigned int xyBits, unsigned int zBits);

// Text safe inside an XML element: markup characters escaped, control
// characters that XML forbids replaced by blanks.
std::string EscapeXml(const std::string& text);

// Draws the lines of meshes, hidden where meshes or occluders cover them, into
// the SVG file svgPath (created or truncated). False with a one-line reason.
// With an executor the library's parallel steps run on it; the file is the
// same either way.
bool DrawToSVG(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>& occluders,
               const DrawingOptions& options, const std::string& svgPath, DrawingStats& stats, std::string& error,
               ctr::Executor* executor = nullptr);

}  // namespace contour

#endif
