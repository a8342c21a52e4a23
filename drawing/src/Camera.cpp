#include "ctr/drawing/Camera.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <limits>

#include "Matrix4d.h"
#include "Wm4Vector4.h"

namespace contour {

namespace {

using Vec3 = Wm4::Vector3<double>;
using Mat4 = Matrix4d;

constexpr double kPi = 3.14159265358979323846;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct tPresetName {
    const char* name;
    ViewPreset view;
};
constexpr tPresetName kPresets[] = {{"front", ViewPreset::kFront}, {"back", ViewPreset::kBack},
                                    {"left", ViewPreset::kLeft},   {"right", ViewPreset::kRight},
                                    {"top", ViewPreset::kTop},     {"bottom", ViewPreset::kBottom},
                                    {"iso", ViewPreset::kIso}};

Vec3 normalized(const Vec3& v) {
    const double length = v.Length();
    return length > 0.0 ? v / length : Vec3(0.0, 0.0, 0.0);
}

// The framing has to see the same float world positions that baking
// transforms, so the transformation is applied in float before widening.
template <class Visit>
void forEachWorldVertex(const std::vector<const qe::qeTriMesh*>& meshes, Visit&& visit) {
    for (const qe::qeTriMesh* mesh : meshes) {
        if (!mesh || !mesh->VBuffer) continue;
        const qe::qeVertexBuffer& vertices = *mesh->VBuffer;
        for (int i = 0; i < vertices.GetVertexQuantity(); ++i) {
            const Wm4::Vector3<float> p = mesh->World.ApplyForward(vertices.Position3(i), true);
            if (std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2])) visit(Vec3(p[0], p[1], p[2]));
        }
    }
}

Mat4 multiply(const Mat4& a, const Mat4& b) {
    Mat4 product{};
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 4; ++col)
            for (int k = 0; k < 4; ++k) product[row][col] += a[row][k] * b[k][col];
    return product;
}

bool toFloat(const Mat4& in, Wm4::Matrix4<float>& out) {
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 4; ++col) {
            out[row][col] = static_cast<float>(in[row][col]);
            if (!std::isfinite(out[row][col])) return false;
        }
    return true;
}

// Direction from the target to the eye and the world direction shown as up.
void viewDirection(const CameraOptions& options, const Vec3& target, Vec3& back, Vec3& imageUp) {
    const Vec3 up = normalized(options.up);
    const Vec3 reference = options.front ? *options.front : ConventionalFront(up);
    const Vec3 front = normalized(reference - up * reference.Dot(up));
    const Vec3 right = up.Cross(front);
    imageUp = up;
    if (options.eye) {
        back = normalized(*options.eye - target);
        // Looking straight along up leaves the picture's rotation open; take
        // it as the top or bottom view would.
        if (up.Cross(back).Length() < 1e-9) imageUp = back.Dot(up) > 0.0 ? -front : front;
        return;
    }
    if (options.azimuthElevation) {
        const double azimuth = (*options.azimuthElevation)[0] * kPi / 180.0;
        const double elevation = (*options.azimuthElevation)[1] * kPi / 180.0;
        const Vec3 level = front * std::cos(azimuth) + right * std::sin(azimuth);
        back = level * std::cos(elevation) + up * std::sin(elevation);
        // The direction in which the eye would rise: up itself until the eye
        // stands over the target, where it keeps the azimuth's turn.
        imageUp = up * std::cos(elevation) - level * std::sin(elevation);
        return;
    }
    switch (options.view) {
        case ViewPreset::kFront:
            back = front;
            break;
        case ViewPreset::kBack:
            back = -front;
            break;
        case ViewPreset::kRight:
            back = right;
            break;
        case ViewPreset::kLeft:
            back = -right;
            break;
        case ViewPreset::kTop:
            back = up, imageUp = -front;
            break;
        case ViewPreset::kBottom:
            back = -up, imageUp = front;
            break;
        case ViewPreset::kIso:
            back = normalized(front + right + up);
            break;
    }
}

}  // namespace

Wm4::Vector3<double> ConventionalFront(const Wm4::Vector3<double>& up) {
    // The axis that stays most across the up direction: +z for y-up models,
    // -y for z-up ones, as drafting conventions have it.
    const Vec3 unitUp = normalized(up);
    return std::fabs(unitUp[2]) < 0.9 ? Vec3(0.0, 0.0, 1.0) : Vec3(0.0, -1.0, 0.0);
}

std::array<Wm4::Vector3<double>, 4> HorizontalSides(const Wm4::Vector3<double>& up) {
    const Vec3 unitUp = normalized(up);
    const Vec3 reference = ConventionalFront(unitUp);
    const Vec3 front = normalized(reference - unitUp * reference.Dot(unitUp));
    // Axis-aligned directions stay exact: the cross product of two unit axes
    // is a unit axis, bit for bit.
    const Vec3 right = unitUp.Cross(front);
    return {front, right, -front, -right};
}

std::string DirectionName(const Wm4::Vector3<double>& direction) {
    static const char* const kAxes[3][2] = {{"+x", "-x"}, {"+y", "-y"}, {"+z", "-z"}};
    for (int axis = 0; axis < 3; ++axis) {
        const bool alone = direction[(axis + 1) % 3] == 0.0 && direction[(axis + 2) % 3] == 0.0;
        if (alone && direction[axis] != 0.0) return kAxes[axis][direction[axis] > 0.0 ? 0 : 1];
    }
    char text[96];
    std::snprintf(text, sizeof text, "%.6g,%.6g,%.6g", direction[0], direction[1], direction[2]);
    return text;
}

Wm4::Vector3<double> FormatUp(const std::string& path) {
    const size_t dot = path.find_last_of("./");
    std::string extension = dot != std::string::npos && path[dot] == '.' ? path.substr(dot + 1) : std::string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char* zUp : {"stl", "3mf", "ply"})
        if (extension == zUp) return Vec3(0.0, 0.0, 1.0);
    return Vec3(0.0, 1.0, 0.0);
}

ctr::DiscreteProjectionSpace ProjectionSpaceOf(const CameraMatrices& camera) {
    ctr::DiscreteProjectionSpace space;
    space.setViewProjection(camera.worldToClip, camera.clipToWorld);
    space.updateRatios();
    return space;
}

bool WorldToDevice(const Wm4::Matrix4<float>& worldToClip, const Wm4::Vector3<float>& worldPos, double& u, double& v) {
    const Wm4::Vector4<float> clip = Wm4::Vector4<float>(worldPos[0], worldPos[1], worldPos[2], 1.0f) * worldToClip;
    u = clip[0] / clip[3], v = clip[1] / clip[3];
    return std::isfinite(u) && std::isfinite(v);
}

bool ParseViewPreset(const std::string& name, ViewPreset& view) {
    for (const tPresetName& preset : kPresets)
        if (name == preset.name) {
            view = preset.view;
            return true;
        }
    return false;
}

const char* ViewPresetName(ViewPreset view) {
    for (const tPresetName& preset : kPresets)
        if (preset.view == view) return preset.name;
    return "?";
}

bool FrameCamera(const std::vector<const qe::qeTriMesh*>& drawn, const std::vector<const qe::qeTriMesh*>& occluders,
                 const CameraOptions& options, double pageWidthMM, double pageHeightMM, CameraMatrices& camera,
                 std::string& error) {
    const double usableWidth = pageWidthMM - 2.0 * options.marginMM;
    const double usableHeight = pageHeightMM - 2.0 * options.marginMM;
    if (!(usableWidth > 0.0 && usableHeight > 0.0)) {
        error = "the margin leaves no room on the page";
        return false;
    }
    if (options.perspective && !(options.fovDegrees > 0.0 && options.fovDegrees < 180.0)) {
        error = "the field of view must lie between 0 and 180 degrees";
        return false;
    }
    const double halfFov = options.fovDegrees * kPi / 360.0;

    Vec3 boxMin(kInfinity, kInfinity, kInfinity), boxMax(-kInfinity, -kInfinity, -kInfinity);
    forEachWorldVertex(drawn, [&](const Vec3& p) {
        for (int axis = 0; axis < 3; ++axis) {
            boxMin[axis] = std::min(boxMin[axis], p[axis]);
            boxMax[axis] = std::max(boxMax[axis], p[axis]);
        }
    });
    if (!(boxMin[0] <= boxMax[0])) {
        error = "the model has no vertex to frame";
        return false;
    }
    const Vec3 target = options.target ? *options.target : (boxMin + boxMax) * 0.5;
    double radius = 0.0;
    forEachWorldVertex(drawn, [&](const Vec3& p) { radius = std::max(radius, (p - target).Length()); });
    if (!(radius > 0.0)) {
        error = "the model has no extent: all its vertices are one point";
        return false;
    }
    if (options.front && normalized(options.up).Cross(normalized(*options.front)).Length() < 1e-6) {
        error = "the front direction runs along the up direction";
        return false;
    }
    if (options.eye && (*options.eye - target).Length() == 0.0) {
        error = "the eye and the target are the same point";
        return false;
    }

    Vec3 back, imageUp;
    viewDirection(options, target, back, imageUp);
    const Vec3 right = normalized(imageUp.Cross(back));
    const Vec3 upward = back.Cross(right);
    const Vec3 eye = options.eye           ? *options.eye
                     : options.perspective ? target + back * (radius / std::sin(halfFov))
                                           : target;

    // Window in camera x and y (slopes x/depth and y/depth in perspective).
    double minX = kInfinity, maxX = -kInfinity, minY = kInfinity, maxY = -kInfinity;
    bool allInFront = true;
    const double minDepth = 1e-4 * radius;
    forEachWorldVertex(drawn, [&](const Vec3& p) {
        const Vec3 d = p - eye;
        double x = d.Dot(right), y = d.Dot(upward);
        if (options.perspective) {
            const double depth = -d.Dot(back);
            if (!(depth > minDepth)) {
                allInFront = false;
                return;
            }
            x /= depth, y /= depth;
        }
        minX = std::min(minX, x), maxX = std::max(maxX, x);
        minY = std::min(minY, y), maxY = std::max(maxY, y);
    });
    double centreX = 0.0, centreY = 0.0, halfWidth, halfHeight;
    if (allInFront) {
        // Window units per sheet millimetre, so that the model fills the
        // usable area along its limiting axis.
        double perMM = std::max((maxX - minX) / usableWidth, (maxY - minY) / usableHeight);
        // A model seen exactly end-on projects to a point; any scale shows it.
        if (!(perMM > 0.0))
            perMM = 2.0 * (options.perspective ? std::tan(halfFov) : radius) / std::min(usableWidth, usableHeight);
        centreX = 0.5 * (minX + maxX), centreY = 0.5 * (minY + maxY);
        halfWidth = 0.5 * perMM * pageWidthMM;
        halfHeight = 0.5 * perMM * pageHeightMM;
    } else {
        // The eye stands inside or beside the model: show the lens's view.
        halfHeight = std::tan(halfFov);
        halfWidth = halfHeight * pageWidthMM / pageHeightMM;
    }

    // Depth range: the drawn meshes and whatever of the occluders lies in
    // front of the eye.
    double nearDepth = kInfinity, farDepth = -kInfinity;
    const auto includeDepth = [&](const Vec3& p) {
        const double depth = -(p - eye).Dot(back);
        if (options.perspective && !(depth > minDepth)) return;
        nearDepth = std::min(nearDepth, depth), farDepth = std::max(farDepth, depth);
    };
    forEachWorldVertex(drawn, includeDepth);
    forEachWorldVertex(occluders, includeDepth);
    if (!(nearDepth <= farDepth)) {
        error = "the model lies wholly behind the eye";
        return false;
    }
    // Padding keeps the nearest and farthest vertices off the clip planes.
    const double pad = 0.01 * (farDepth - nearDepth) + 1e-3 * radius;
    double nearPlane = nearDepth - pad, farPlane = farDepth + pad;
    if (options.perspective) nearPlane = std::max(nearPlane, 1e-4 * farPlane);

    // Row vectors: camera (x, y, z) = ((p - eye).right, (p - eye).upward,
    // (p - eye).back), looking down its own -z.
    Mat4 view{};
    for (int axis = 0; axis < 3; ++axis) {
        view[axis][0] = right[axis];
        view[axis][1] = upward[axis];
        view[axis][2] = back[axis];
    }
    view[3] = {-eye.Dot(right), -eye.Dot(upward), -eye.Dot(back), 1.0};

    Mat4 projection{};
    const double depthSpan = farPlane - nearPlane;
    if (options.perspective) {
        // Off-centre frustum over the slope window: x/depth = centreX maps to
        // device x 0, the window's edges to -1 and 1; depth near to -1.
        projection[0][0] = 1.0 / halfWidth;
        projection[1][1] = 1.0 / halfHeight;
        projection[2][0] = centreX / halfWidth;
        projection[2][1] = centreY / halfHeight;
        projection[2][2] = -(farPlane + nearPlane) / depthSpan;
        projection[2][3] = -1.0;
        projection[3][2] = -2.0 * farPlane * nearPlane / depthSpan;
    } else {
        projection[0][0] = 1.0 / halfWidth;
        projection[1][1] = 1.0 / halfHeight;
        projection[3][0] = -centreX / halfWidth;
        projection[3][1] = -centreY / halfHeight;
        projection[2][2] = -2.0 / depthSpan;
        projection[3][2] = -(farPlane + nearPlane) / depthSpan;
        projection[3][3] = 1.0;
    }
    const Mat4 worldToClip = multiply(view, projection);
    Mat4 clipToWorld;
    if (!InvertMatrix(worldToClip, clipToWorld) || !toFloat(worldToClip, camera.worldToClip) ||
        !toFloat(clipToWorld, camera.clipToWorld)) {
        error = "the camera cannot be represented in single precision (model too large or too small)";
        return false;
    }
    return true;
}

}  // namespace contour
