#include "ctr/drawing/Job.h"

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sys/resource.h>

#include "ctr/drawing/OutputFile.h"
#include "ctr/Version.h"

namespace contour {

namespace {

using Json = nlohmann::ordered_json;

Json matrix(const Wm4::Matrix4<float>& m) {
    Json rows = Json::array();
    for (int row = 0; row < 4; ++row) rows.push_back({m[row][0], m[row][1], m[row][2], m[row][3]});
    return rows;
}

Json kind(const LineKindStats& stats) {
    return {{"found", stats.found},
            {"commonRemoved", stats.commonRemoved},
            {"duplicatesRemoved", stats.duplicatesRemoved},
            {"beforeHiding", stats.beforeHiding()},
            {"visiblePieces", stats.visiblePieces},
            {"inkMM", stats.inkMM},
            {"mergedOnPage", stats.mergedOnPage}};
}

double milliseconds(double seconds) { return seconds * 1000.0; }

}  // namespace

std::string DrawingOptionsHash(const DrawingRequest& asked) {
    // As drawn: a convention the request leaves to the format is part of it.
    DrawingRequest request = asked;
    ApplyFormatConventions(request, request.models.empty() ? std::string() : request.models[0]);
    const CameraOptions& camera = request.drawing.camera;
    const DrawingOptions& drawing = request.drawing;
    const auto vector = [](const Wm4::Vector3<double>& v) { return Json{v[0], v[1], v[2]}; };
    Json options = {
        {"version", qeContouringLib::Version::GetDescStringMajorMinorReleaseRevisionDate()},
        {"demo", request.demo},
        {"occluders", request.occluders},
        {"import", {request.import.generateNormals, request.import.smoothingAngleDegrees, request.import.generalReaderOnly}},
        {"view", ViewPresetName(camera.view)},
        {"eye", camera.eye ? vector(*camera.eye) : Json()},
        {"target", camera.target ? vector(*camera.target) : Json()},
        {"azimuthElevation", camera.azimuthElevation ? Json(*camera.azimuthElevation) : Json()},
        {"up", vector(camera.up)},
        {"perspective", camera.perspective},
        {"fov", camera.fovDegrees},
        {"margin", camera.marginMM},
        {"page", {drawing.pageWidthMM, drawing.pageHeightMM}},
        {"bits", {drawing.xyBits, drawing.zBits}},
        {"title", drawing.title},
        {"description", drawing.description},
        {"creaseWidth", drawing.creaseWidthMM ? Json(*drawing.creaseWidthMM) : Json()},
        {"silhouetteWidth", drawing.silhouetteWidthMM ? Json(*drawing.silhouetteWidthMM) : Json()},
        {"color", drawing.color ? Json{drawing.color->R(), drawing.color->G(), drawing.color->B()} : Json()},
        {"flags", {drawing.keepCommon, drawing.hiddenLines, drawing.layers, drawing.arcs}},
        {"sheet", request.sheet ? Json{request.sheetOptions.projection == ctr::ProjectionMethod::kFirstAngle,
                                       request.sheetOptions.title,
                                       request.sheetOptions.partNumber,
                                       request.sheetOptions.drawnBy,
                                       request.sheetOptions.scale ? request.sheetOptions.scale->label() : "",
                                       request.sheetOptions.front ? vector(*request.sheetOptions.front) : Json(),
                                       request.sheetOptions.isoHidden}
                                : Json()}};
    // Only a forced unit enters, so that drawings made before units were
    // known keep their digest.
    if (request.units) options["units"] = LengthUnitName(*request.units);
    // FNV-1a over the canonical text: stable across builds and hosts, which
    // a library hash is not bound to be.
    uint64_t hash = 14695981039346656037ull;
    for (const unsigned char c : options.dump()) hash = (hash ^ c) * 1099511628211ull;
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

std::string StatsRecord(const DrawingRequest& options, const RunStats& run, const DrawingStats& drawing) {
    Json inputs = Json::array();
    for (const InputStats& input : run.inputs) {
        inputs.push_back({{"file", input.path},
                          {"role", input.role},
                          {"meshes", input.meshes},
                          {"triangles", input.triangles},
                          {"vertices", input.vertices},
                          {"normals", input.normalsGenerated ? "generated" : "stored"},
                          {"statedUnit", input.statedUnit ? Json(LengthUnitName(*input.statedUnit)) : Json()}});
        if (!input.cad) continue;
        Json surfaces = Json::object();
        for (const auto& [kind, count] : input.surfaces) surfaces[kind] = count;
        inputs.back()["cad"] = {{"fileUnit", input.fileUnit.empty() ? Json() : Json(input.fileUnit)},
                                {"surfaces", surfaces},
                                {"edges", {{"drawn", input.sharpEdges}, {"tangent", input.tangentEdges}}},
                                {"warnings", input.readerWarnings}};
    }

    const CameraOptions& camera = options.drawing.camera;
    Json view;
    if (camera.eye)
        view = {{"eye", {(*camera.eye)[0], (*camera.eye)[1], (*camera.eye)[2]}}};
    else if (camera.azimuthElevation)
        view = {{"azimuthDegrees", (*camera.azimuthElevation)[0]}, {"elevationDegrees", (*camera.azimuthElevation)[1]}};
    else if (options.sheet)
        view = {{"sheet", "front, top, side, iso; the matrices are the front view's"}};
    else
        view = {{"preset", ViewPresetName(camera.view)}};
    view["up"] = {camera.up[0], camera.up[1], camera.up[2]};

    Json phases = Json::object();
    phases["import"] = milliseconds(run.importSeconds);
    phases["normals"] = milliseconds(run.normalsSeconds);
    for (const PhaseTime& phase : drawing.phases) phases[phase.name] = milliseconds(phase.seconds);

    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    Json segments = {{"crease", kind(drawing.crease)},
                     {"silhouette", kind(drawing.silhouette)},
                     {"intersection", kind(drawing.intersection)}};
    if (options.drawing.hiddenLines)
        segments["hidden"] = {{"pieces", drawing.hidden.pieces},
                              {"inkMM", drawing.hidden.inkMM},
                              {"mergedOnPage", drawing.hidden.mergedOnPage}};
    const Json record = {
        {"tool",
         {{"name", "contour"}, {"version", qeContouringLib::Version::GetDescStringMajorMinorReleaseRevisionDate()}}},
        {"inputs", inputs},
        {"units", LengthUnitName(run.unit)},
        {"millimetresPerUnit", MillimetresPer(run.unit)},
        {"extentMM", run.extentMM},
        {"unitWarning", run.unitWarning.empty() ? Json() : Json(run.unitWarning)},
        {"camera",
         {{"projection", camera.perspective ? "perspective" : "orthographic"},
          {"view", view},
          {"worldToClip", matrix(drawing.camera.worldToClip)},
          {"clipToWorld", matrix(drawing.camera.clipToWorld)},
          {"gridBits", {options.drawing.xyBits, options.drawing.zBits}}}},
        {"page",
         {{"size", options.pageLabel},
          {"widthMM", options.drawing.pageWidthMM},
          {"heightMM", options.drawing.pageHeightMM},
          {"marginMM", camera.marginMM},
          {"fit", {{drawing.fit[0][0], drawing.fit[0][1]}, {drawing.fit[1][0], drawing.fit[1][1]}}},
          {"offsetMM", {drawing.offset[0], drawing.offset[1]}},
          {"worldUnitsPerMM", drawing.worldUnitsPerMM}}},
        {"segments", segments},
        {"paths", drawing.paths},
        {"output", options.output},
        {"optionsHash", DrawingOptionsHash(options)},
        {"threads", run.threads},
        {"phasesMs", phases},
        {"totalMs", milliseconds(run.totalSeconds)},
        {"peakMemoryMiB", static_cast<double>(usage.ru_maxrss) / 1024.0}};

    Json full = record;
    if (options.sheet)
        full["sheet"] = {
            {"scale", drawing.sheetScale},
            {"scaleForced", options.sheetOptions.scale.has_value()},
            {"front", drawing.sheetFront},
            {"frontChosen", !options.sheetOptions.front.has_value()},
            {"span", drawing.sheetSpan},
            {"areaShare", drawing.sheetAreaShare},
            {"projection",
             options.sheetOptions.projection == ctr::ProjectionMethod::kFirstAngle ? "first angle" : "third angle"},
            {"views", "front, top, side, iso; counts summed, camera and fit of the front view"}};
    return full.dump(2) + '\n';
}

bool WriteStats(const std::string& path, const DrawingRequest& options, const RunStats& run, const DrawingStats& drawing,
                std::string& error) {
    const std::string record = StatsRecord(options, run, drawing);
    AtomicOutput output;
    if (!output.create(path, error)) return false;
    {
        std::ofstream file(output.writePath(), std::ios::binary | std::ios::trunc);
        file << record;
        if (!file.flush()) {
            error = "cannot write the statistics to '" + path + "'";
            return false;
        }
    }
    return output.commit(error);
}

}  // namespace contour
