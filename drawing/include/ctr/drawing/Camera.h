// The camera of a drawing: a view direction (a preset or an eye point) and a
// view window fitted to the model so that it fills the sheet inside a margin.
#ifndef CTR_DRAWING_CAMERA_H
#define CTR_DRAWING_CAMERA_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "Wm4Matrix4.h"
#include "Wm4Vector3.h"
#include "qe/qeTriMesh.h"

#include "ctr/DiscreteProjectionSpace.h"

namespace contour {

enum class ViewPreset { kFront, kBack, kLeft, kRight, kTop, kBottom, kIso };

// Case-sensitive names as the command line takes them; false for others.
bool ParseViewPreset(const std::string& name, ViewPreset& view);
const char* ViewPresetName(ViewPreset view);

struct CameraOptions {
    ViewPreset view = ViewPreset::kIso;
    // An eye point replaces the preset's direction (and, in perspective, sets
    // the distance); the target defaults to the centre of the model's box.
    std::optional<Wm4::Vector3<double>> eye;
    std::optional<Wm4::Vector3<double>> target;
    // Azimuth and elevation in degrees replace the preset: azimuth turns
    // from the front view towards the right one about up, elevation lifts
    // the eye towards up (0, 0 is the front view; iso is 45, 35.2644).
    std::optional<std::array<double, 2>> azimuthElevation;
    // World direction that shows as up on the sheet; the presets are taken
    // around it (with +y up, front looks along -z; with +z up, along +y).
    Wm4::Vector3<double> up = Wm4::Vector3<double>(0.0, 1.0, 0.0);
    // The side of the model that the front view shows (the direction from
    // the model towards the eye), taken across up; unset, ConventionalFront.
    // The other presets turn with it.
    std::optional<Wm4::Vector3<double>> front;
    bool perspective = false;
    // Perspective strength: the camera stands where a lens of this vertical
    // angle takes in the model's bounding sphere.
    double fovDegrees = 30.0;
    double marginMM = 10.0;
};

// The side that drafting conventions show in the front view: +z for a y-up
// model, -y for a z-up one (and the axis that stays most across any other up).
Wm4::Vector3<double> ConventionalFront(const Wm4::Vector3<double>& up);
// The four sides around up, each a quarter turn right of the one before,
// starting with the conventional front.
std::array<Wm4::Vector3<double>, 4> HorizontalSides(const Wm4::Vector3<double>& up);
// "+x", "-y", ... for an axis direction, the three numbers otherwise.
std::string DirectionName(const Wm4::Vector3<double>& direction);

// The up direction of a model file's format convention, by its name: z for
// STL, 3MF and PLY, which CAD programs write z-up (scanned PLY files are
// often y-up and need it said); y for glTF (so defined), OBJ and the others.
Wm4::Vector3<double> FormatUp(const std::string& path);

// Row-vector matrices for DiscreteProjectionSpace::setViewProjection.
struct CameraMatrices {
    Wm4::Matrix4<float> worldToClip;
    Wm4::Matrix4<float> clipToWorld;
};

// Builds the camera for a sheet of the given size. The window has the
// sheet's aspect ratio, so the exporter's best fit maps it onto the whole
// sheet, and every vertex of drawn lands inside the margin. The depth range
// also covers the occluders in front of the camera, so that they can hide
// lines. False with a one-line reason when no camera can be made.
bool FrameCamera(const std::vector<const qe::qeTriMesh*>& drawn, const std::vector<const qe::qeTriMesh*>& occluders,
                 const CameraOptions& options, double pageWidthMM, double pageHeightMM, CameraMatrices& camera,
                 std::string& error);

// The projection space of a camera at the library's default grid.
ctr::DiscreteProjectionSpace ProjectionSpaceOf(const CameraMatrices& camera);

// Where a world point lands in normalised device coordinates, projected in
// float as the library's writers project it; false where it has no finite
// place (on or behind the eye plane of a perspective camera).
bool WorldToDevice(const Wm4::Matrix4<float>& worldToClip, const Wm4::Vector3<float>& worldPos, double& u, double& v);

}  // namespace contour

#endif
