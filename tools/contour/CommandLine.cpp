#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "ctr/SheetLayout.h"
#include "ctr/SvgText.h"
#include "ctr/Version.h"

namespace contour {

namespace {

// A usage error: what went wrong, reported as one line.
struct tUsageError {
    std::string message;
};

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// A finite decimal number and nothing else (strtod alone would take "nan",
// "inf", leading blanks and trailing junk).
bool parseNumber(const std::string& text, double& value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return false;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size() && std::isfinite(value);
}

std::vector<std::string> split(const std::string& text, const std::string& separators) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (separators.find(c) != std::string::npos)
            pieces.emplace_back();
        else
            pieces.back() += c;
    }
    return pieces;
}

double number(const std::string& option, const std::string& text, double low, double high, bool openLow, bool openHigh,
              const char* unit) {
    double value;
    if (!parseNumber(text, value)) throw tUsageError{option + ": '" + text + "' is not a number"};
    if ((openLow ? value <= low : value < low) || (openHigh ? value >= high : value > high)) {
        char range[128];
        std::snprintf(range, sizeof range, "%s%g, %g%s", openLow ? "(" : "[", low, high, openHigh ? ")" : "]");
        throw tUsageError{option + ": " + text + " is outside " + range + unit};
    }
    return value;
}

Wm4::Vector3<double> point(const std::string& option, const std::string& text) {
    const std::vector<std::string> pieces = split(text, ",");
    Wm4::Vector3<double> result;
    if (pieces.size() == 3 && parseNumber(pieces[0], result[0]) && parseNumber(pieces[1], result[1]) &&
        parseNumber(pieces[2], result[2]))
        return result;
    throw tUsageError{option + ": '" + text + "' is not three numbers X,Y,Z"};
}

unsigned int bitCount(const std::string& text) {
    if (text.empty() || text.size() > 3 ||
        !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); }))
        return 0;
    return static_cast<unsigned int>(std::stoul(text));
}

struct tSheet {
    const char* name;
    double width;
    double height;
};
constexpr tSheet kSheets[] = {{"A0", 841.0, 1189.0},    {"A1", 594.0, 841.0},   {"A2", 420.0, 594.0},
                              {"A3", 297.0, 420.0},     {"A4", 210.0, 297.0},   {"A5", 148.0, 210.0},
                              {"letter", 215.9, 279.4}, {"legal", 215.9, 355.6}};
constexpr const char* kSheetNames = "A0-A5, letter, legal";

void parsePage(const std::string& text, bool landscape, ToolOptions& options) {
    double width = 0.0, height = 0.0;
    std::string label;
    for (const tSheet& sheet : kSheets)
        if (lowercase(text) == lowercase(sheet.name)) width = sheet.width, height = sheet.height, label = sheet.name;
    const bool custom = label.empty();
    if (custom) {
        const std::vector<std::string> pieces = split(text, "xX");
        if (pieces.size() != 2 || !parseNumber(pieces[0], width) || !parseNumber(pieces[1], height))
            throw tUsageError{"--page: '" + text + "' is not " + kSheetNames + " or WIDTHxHEIGHT in millimetres"};
        // The sheet size becomes float coordinates in the file.
        if (!(width > 0.0 && height > 0.0 && width <= 1e5 && height <= 1e5))
            throw tUsageError{"--page: both sides of '" + text + "' must lie in (0, 100000] mm"};
    }
    if (landscape && width < height) std::swap(width, height);
    if (custom) {
        char size[64];
        std::snprintf(size, sizeof size, "%g x %g mm", width, height);
        label = size;
    } else {
        label += landscape ? " landscape" : " portrait";
    }
    options.drawing.pageWidthMM = width;
    options.drawing.pageHeightMM = height;
    options.pageLabel = label;
}

Wm4::ColorRGB parseColor(const std::string& text) {
    static const struct {
        const char* name;
        const char* hex;
    } kNames[] = {{"black", "#000000"}, {"gray", "#808080"},  {"grey", "#808080"},
                  {"red", "#ff0000"},   {"green", "#008000"}, {"blue", "#0000ff"}};
    std::string hex = lowercase(text);
    for (const auto& entry : kNames)
        if (hex == entry.name) hex = entry.hex;
    if (hex.size() == 4 && hex[0] == '#') hex = std::string("#") + hex[1] + hex[1] + hex[2] + hex[2] + hex[3] + hex[3];
    if (hex.size() != 7 || hex[0] != '#' ||
        !std::all_of(hex.begin() + 1, hex.end(), [](unsigned char c) { return std::isxdigit(c); }))
        throw tUsageError{"--color: '" + text + "' is not #RRGGBB, #RGB or black, gray, red, green, blue"};
    float channels[3];
    for (int i = 0; i < 3; ++i) {
        const long value = std::strtol(hex.substr(1 + 2 * i, 2).c_str(), nullptr, 16);
        // The exporter truncates channel * 255, so aim at the middle of the
        // wanted integer.
        channels[i] = (static_cast<float>(value) + 0.5f) / 255.0f;
    }
    return Wm4::ColorRGB(channels[0], channels[1], channels[2]);
}

std::string viewDescription(const CameraOptions& camera) {
    if (camera.eye) return "view from the given eye";
    if (!camera.azimuthElevation) return std::string(ViewPresetName(camera.view)) + " view";
    char text[96];
    std::snprintf(text, sizeof text, "view from azimuth %g, elevation %g degrees", (*camera.azimuthElevation)[0],
                  (*camera.azimuthElevation)[1]);
    return text;
}

const char* kFooter = R"(Output:
  Without -o the drawing goes to MODEL.svg (the first model's name without
  its extension) in the current directory, or demo.svg with --demo; "-o -"
  writes it to standard output. An existing file is replaced only when the
  drawing is complete; on any error it stays as it was. Through a symbolic
  link the file it leads to is replaced; devices and named pipes are written
  directly.

Camera:
  Drawings are parallel (orthographic) projections, as technical drawings
  are; --perspective draws what a lens would see. The view is fitted to the
  model so that it fills the page inside the margin. Directions are taken
  around --up (default +y): --azimuth 0 --elevation 0 is the front view
  (looking along -z with +y up, along +y with --up 0,0,1), azimuth turns
  the eye towards the right view (90 is right, 180 back), elevation lifts it
  towards up (90 is the top view). The presets of --view are front (0, 0),
  right (90, 0), back (180, 0), left (270, 0), top (0, 90), bottom (0, -90)
  and iso (45, 35.2644). --eye replaces the direction (in orthographic views
  only its direction counts).

Lines:
  Creases (edges across which the stored normals turn by more than 5
  degrees) and open borders, silhouettes (where the surface turns away from
  the eye) and the lines where solids pass through each other, drawn where
  no triangle hides them, each once: a crease that a silhouette repeats is
  drawn as the silhouette (unless --keep-common), and a line that a mesh
  holds twice (split normals along a crease) is drawn once. Silhouettes and
  intersections are drawn 0.2 mm wide, creases 0.133 mm. Files without
  normals get normals per smooth fan: the faces around a vertex part where
  two of them meet at more than --smoothing-angle, so edges sharper than
  that show as creases and smooth surface shows none.

CAD files:
  STEP (.step, .stp; AP203, AP214, AP242), IGES (.iges, .igs) and Open
  CASCADE BREP (.brep) files are read with Open CASCADE and drawn with their
  true edges instead of creases: every edge where two faces meet at an
  angle, and the free edges of open face sets. Edges where faces meet
  tangentially (a fillet's rims) are not drawn, as ISO 128 and the creases
  of meshes have it; silhouettes show the rounds. Each face is tessellated
  to within --tolerance (default: a thousandth of the part's diagonal) and
  11.5 degrees per segment. STEP and IGES lengths are read in millimetres,
  whatever unit the file uses; BREP files are taken as other files are.

Layers:
  With --layers, or --hidden, each kind of line is a layer of its own, as
  Inkscape marks layers: hidden lines (bottom), creases, silhouettes and
  intersections, the stroke style set on each layer, so that kinds can be
  switched on and off or plotted one by one. Hidden lines are the parts of
  every line that something hides, cut where the visible parts end, drawn
  half as wide as silhouettes with the dashes of ISO 128 (dash 12, gap 3
  line widths). --arcs gives the layered sheet too, with every curve that
  the fitting finds to be a circular arc, and that is a true circle on the
  page (a circle seen face on), written as SVG arc commands through the
  same end points: smaller files, and circles that CAD programs import as
  circles. Without these options the file is the plain single-group
  drawing.

Sheet:
  --sheet draws a standard multi-view sheet of one part: front, top and side
  views and an iso view, all orthographic and at one scale, the largest of
  the series ... 100:1, 50:1, 20:1, 10:1, 5:1, 2:1, 1:1, 1:2, 1:5, 1:10, ...
  (by powers of ten both ways) at which they fit; --scale 1:2 forces one and
  is refused when the views do not fit at it. The scale is true to the
  model's unit (see Units). Up is the format's convention unless --up is
  given: z for STL, 3MF and PLY (as CAD programs write them; a scan is often
  y-up), y for glTF, OBJ and the others. The front view shows the most
  informative of the four sides around up (the most visible line length,
  then the fewest hidden lines); --front +x, -x, +y, -y, +z or -z names the
  side instead. Views are arranged as ISO 128-30 has it: third angle
  (default) puts the top view above the front view and the view from the
  right on its right; with --projection first the top view goes below the
  front view and the view from the left stands on its right. The iso view
  takes the remaining corner and, as pictorial views do, shows no hidden
  lines unless --iso-hidden is given with --hidden.
  The top view shares the front view's x, the side view its y. A frame and
  a title block (title, part number, drawn by, scale, projection symbol,
  units, date, version) sit in a layer "Sheet"; each kind of line has its
  layer, each view a group in it. The page is A3 landscape unless --page is
  given; --margin sets the frame's distance from the page edges. --view,
  --eye, --azimuth, --elevation and --perspective do not apply.
  SOURCE_DATE_EPOCH, when set, gives the date.

Units:
  glTF files are in metres, as the format defines, and so are Collada files
  as they are read; a 3MF file states its unit. Other files are taken to be
  in millimetres. The drawing takes the first model's unit, and a model in
  another unit is scaled into it, so that mixed files line up; --units
  mm|cm|m|in|ft|um takes every model to be in that unit instead. A part
  under 1 mm or over 100 m across gets a warning naming a likely unit.

Progress and statistics:
  On a terminal a progress bar runs on standard error (not with -q).
  Ctrl-C stops the drawing: any existing output stays as it was and the exit
  status is 130. --stats FILE writes a JSON record of the run: inputs,
  camera matrices, page and fit, segments of each kind before and after
  hiding (and the hidden pieces with --hidden), paths written, the time of
  each phase and the peak memory.

Batch:
  contour batch PART... --out-dir DIR draws one drawing per part with the
  options of a single run: a file is a part, a folder gives its model files
  (OBJ, STL, PLY, OFF, glTF/GLB, FBX, DAE, 3DS, 3MF, X3D, AMF, STEP/STP,
  IGES/IGS, BREP, any case),
  searched recursively in byte-wise order, hidden entries left out. A part
  given as a file is drawn to DIR/NAME.svg, its name without extension as a
  single run names it; a file found in a folder keeps its path below that
  folder (DIR/sub/NAME.svg). A part whose drawing name an earlier part holds
  fails; a file given twice is drawn once. Each drawing has its --stats
  record beside it (NAME.stats.json) with a hash of the options; a rerun
  skips a part whose drawing is newer than its model and occluders and was
  made with the same options (--force draws all). --jobs N parts run at once
  (default one per core); the drawings are those of single runs, byte for
  byte. A part that fails does not stop the others; DIR/report.json (or
  --report) lists every part with its status (drawn, failed, skipped,
  cancelled), reason and time. The exit status is 1 when any part failed.

Exit status: 0 on success, 1 when the drawing fails, 2 for a usage error,
130 when interrupted.

Examples:
  contour --demo -o demo.svg
  contour part.stl --view front --page A3 --landscape
  contour part.stl --azimuth 30 --elevation 20 --up 0,0,1 --stats part.json
  contour engine.glb --perspective --eye 300,200,400 --title "Engine" -o engine.svg
  contour part.obj --occluder cover.obj --crease-width 0.25 --color "#203060"
  contour part.stl --sheet --hidden --title "Bracket" --part-number BR-102 -o part-sheet.svg
)";

// The generated usage line cannot say that --demo replaces the models.
class tFormatter : public CLI::Formatter {
public:
    explicit tFormatter(bool batch) : m_batch(batch) {}
    std::string make_usage(const CLI::App*, std::string) const override {
        if (m_batch) return "Usage: contour batch PART... --out-dir DIR [--jobs N] [--report FILE] [OPTIONS]\n\n";
        return "Usage: contour [OPTIONS] MODEL... [-o OUT.svg]\n       contour --demo [OPTIONS] [-o OUT.svg]\n"
               "       contour batch PART... --out-dir DIR [OPTIONS]\n\n";
    }

private:
    bool m_batch;
};

}  // namespace

int ParseCommandLine(int argc, char** argv, ToolOptions& options) {
    // A batch takes the options of a single run but for its output; "batch"
    // stands where the parser expects the program's name.
    const bool batch = options.batch = argc > 1 && std::string(argv[1]) == "batch";
    if (batch) --argc, ++argv;
    CLI::App app{"Draws the visible edges of triangle meshes as an SVG technical drawing on a page in millimetres.",
                 "contour"};
    app.formatter(std::make_shared<tFormatter>(batch));
    app.footer(kFooter);
    app.set_version_flag("-V,--version", std::string("contour ") +
                                             qeContouringLib::Version::GetDescStringMajorMinorReleaseRevisionDate());

    std::string view = "iso", eye, target, up, fov = "30", page = "A4", margin = "10", bits = "20,20";
    std::string tolerance;
    std::string smoothing = "30", creaseWidth, silhouetteWidth, color, azimuth, elevation;
    bool landscape = false, perspective = false, orthographic = false;
    std::optional<std::string> title, description;
    std::string projection = "third";
    std::string scale, front, units;
    std::optional<std::string> partNumber, drawnBy;
    bool isoHidden = false;

    if (batch) {
        app.add_option("PART", options.models, "Model files, and folders whose model files are drawn (see Batch)")
            ->type_name("PATH");
        app.add_option("--out-dir", options.outDir, "Folder the drawings go to")->type_name("DIR")->required();
        app.add_option("--jobs", options.jobs, "Parts drawn at once (default: one per core)")
            ->type_name("N")
            ->check(CLI::Range(1u, 1024u));
        app.add_option("--report", options.report, "JSON report of the parts (default: DIR/report.json)")
            ->type_name("FILE");
        app.add_flag("--force", options.redrawAll, "Draw every part, also those whose drawing is current");
    } else {
        app.add_option("MODEL", options.models, "Model files (OBJ, STL, PLY, glTF, STEP, IGES and what else assimp reads)")
            ->type_name("FILE");
        app.add_flag("--demo", options.demo, "Draw the built-in demo scene instead of model files");
        app.add_option("-o,--output", options.output, "Output SVG file (see Output below)")->type_name("FILE");
    }
    app.add_option("--occluder", options.occluders, "Mesh file that hides lines but is not drawn; repeatable")
        ->allow_extra_args(false)
        ->type_name("FILE");
    CLI::Option* viewOption = app.add_option("--view", view, "front, back, left, right, top, bottom or iso")
                                  ->type_name("NAME")
                                  ->capture_default_str();
    app.add_option("--azimuth", azimuth, "Degrees about up from the front view towards the right (see Camera)")
        ->type_name("DEG");
    app.add_option("--elevation", elevation, "Degrees from level towards up, in [-90, 90] (see Camera)")
        ->type_name("DEG");
    app.add_option("--eye", eye, "Camera position (overrides --view)")->type_name("X,Y,Z");
    app.add_option("--target", target, "Point looked at (default: the model's centre)")->type_name("X,Y,Z");
    app.add_option("--up", up, "World direction shown upwards (default 0,1,0; see Sheet)")->type_name("X,Y,Z");
    app.add_flag("--orthographic", orthographic, "Parallel projection (default)");
    app.add_flag("--perspective", perspective, "Perspective projection");
    CLI::Option* fovOption = app.add_option("--fov", fov, "Perspective lens angle in degrees, in (0, 180)")
                                 ->type_name("DEG")
                                 ->capture_default_str();
    app.add_flag("--sheet", options.sheet,
                 "Front, top, side and iso views on one sheet at a standard scale, with title block (see Sheet)");
    CLI::Option* projectionOption =
        app.add_option("--projection", projection, "Arrangement of a --sheet's views: third or first (angle)")
            ->type_name("METHOD")
            ->capture_default_str();
    app.add_option("--scale", scale, "Scale of a --sheet, e.g. 1:2 or 5:1 (default: the largest that fits)")
        ->type_name("DRAWN:MODEL");
    app.add_option("--front", front, "Side a --sheet's front view shows: +x, -x, +y, -y, +z or -z (default: chosen)")
        ->type_name("SIDE");
    app.add_flag("--iso-hidden", isoHidden, "Hidden lines in a --sheet's iso view too (with --hidden)");
    app.add_option("--part-number", partNumber, "Part number in a --sheet's title block")->type_name("TEXT");
    app.add_option("--drawn-by", drawnBy, "Name in a --sheet's title block")->type_name("TEXT");
    CLI::Option* pageOption = app.add_option("--page", page, "A0-A5, letter, legal or WIDTHxHEIGHT in mm")
                                  ->type_name("SIZE")
                                  ->capture_default_str();
    app.add_option("--units", units,
                   "Unit of every model's coordinates: mm, cm, m, in, ft or um (default: as the file states, "
                   "else mm)")
        ->type_name("UNIT");
    app.add_flag("--landscape", landscape, "Turn the page so that its longer side is horizontal");
    app.add_option("--margin", margin, "Blank border around the drawing in mm")->type_name("MM")->capture_default_str();
    app.add_option("--title", title, "Title stored in the SVG and a --sheet's title block (default: the file names)");
    app.add_option("--description", description, "Description stored in the SVG");
    app.add_option("--bits", bits, "Grid bits of the visibility computation")->type_name("XY,Z")->capture_default_str();
    app.add_option("--tolerance", tolerance,
                   "CAD files: largest gap between a surface and its triangles, in the part's units")
        ->type_name("LENGTH");
    app.add_option("--smoothing-angle", smoothing,
                   "Files without normals: faces meeting at more than this show a crease")
        ->type_name("DEG")
        ->capture_default_str();
    app.add_option("--crease-width", creaseWidth, "Stroke width of crease lines in mm (default 0.133)")
        ->type_name("MM");
    app.add_option("--silhouette-width", silhouetteWidth,
                   "Stroke width of silhouette and intersection lines in mm (default 0.2)")
        ->type_name("MM");
    app.add_option("--color", color, "Stroke colour: #RRGGBB, #RGB, black, gray, red, green or blue")
        ->type_name("COLOR");
    app.add_flag("--keep-common", options.drawing.keepCommon,
                 "Keep creases that a silhouette repeats (drawn in both styles)");
    app.add_flag("--hidden", options.drawing.hiddenLines,
                 "Draw the hidden lines too, thin and dashed, in a layer of their own (see Layers)");
    app.add_flag("--layers", options.drawing.layers, "Put each kind of line in an Inkscape layer (see Layers)");
    app.add_flag("--arcs", options.drawing.arcs,
                 "Write the circles the fitting finds as SVG arcs where the page shows them round (see Layers)");
    if (!batch)
        app.add_option("--stats", options.statsPath, "Write a JSON record of the run to FILE")->type_name("FILE");
    app.add_flag("-q,--quiet", options.quiet, "No summary and no progress bar on standard error");
    std::string threads;
    app.add_option("--threads", threads, "Threads to compute with (default: one per core); the drawing is the same")
        ->type_name("N");

    if (argc <= 1) {
        std::fputs(app.help().c_str(), stdout);
        return 0;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::fputs(app.help().c_str(), stdout);
        return 0;
    } catch (const CLI::CallForVersion& version) {
        std::printf("%s\n", version.what());
        return 0;
    } catch (const CLI::ParseError& failure) {
        std::fprintf(stderr, "contour: error: %s (try --help)\n", failure.what());
        return 2;
    }

    try {
        if (options.demo && !options.models.empty()) throw tUsageError{"give either --demo or model files, not both"};
        if (!options.demo && options.models.empty())
            throw tUsageError{batch ? "no part given" : "no model file given (or --demo)"};
        if (perspective && orthographic) throw tUsageError{"give either --perspective or --orthographic"};
        if (options.sheet) {
            const std::pair<bool, const char*> ignored[] = {{perspective, "--perspective"},
                                                            {viewOption->count() > 0, "--view"},
                                                            {!eye.empty(), "--eye"},
                                                            {!azimuth.empty(), "--azimuth"},
                                                            {!elevation.empty(), "--elevation"}};
            for (const auto& [given, name] : ignored)
                if (given)
                    throw tUsageError{std::string("--sheet draws fixed orthographic views; ") + name +
                                      " does not apply to it"};
            if (lowercase(projection) == "third")
                options.sheetOptions.projection = ctr::ProjectionMethod::kThirdAngle;
            else if (lowercase(projection) == "first")
                options.sheetOptions.projection = ctr::ProjectionMethod::kFirstAngle;
            else
                throw tUsageError{"--projection: '" + projection + "' is not third or first"};
            if (pageOption->count() == 0) page = "A3", landscape = true;
            if (!scale.empty()) {
                ctr::SheetScale forced;
                if (!ctr::ParseSheetScale(scale, forced))
                    throw tUsageError{"--scale: '" + scale + "' is not DRAWN:MODEL with two whole numbers, e.g. 1:2"};
                options.sheetOptions.scale = forced;
            }
            if (!front.empty()) {
                static const char* const kSides[] = {"+x", "-x", "+y", "-y", "+z", "-z"};
                const auto side = std::find(std::begin(kSides), std::end(kSides), lowercase(front));
                if (side == std::end(kSides)) throw tUsageError{"--front: '" + front + "' is not +x, -x, +y, -y, +z or -z"};
                const int index = static_cast<int>(side - std::begin(kSides));
                Wm4::Vector3<double> direction(0.0, 0.0, 0.0);
                direction[index / 2] = index % 2 == 0 ? 1.0 : -1.0;
                options.sheetOptions.front = direction;
            }
            options.sheetOptions.isoHidden = isoHidden;
            if (isoHidden && !options.drawing.hiddenLines)
                throw tUsageError{"--iso-hidden: the iso view shows hidden lines only where --hidden draws them"};
            if (partNumber) options.sheetOptions.partNumber = *partNumber;
            if (drawnBy) options.sheetOptions.drawnBy = *drawnBy;
        } else if (projectionOption->count() > 0) {
            throw tUsageError{"--projection: only a --sheet has an arrangement of views (add --sheet)"};
        } else {
            const std::pair<bool, const char*> sheetOnly[] = {{!scale.empty(), "--scale"},
                                                              {!front.empty(), "--front"},
                                                              {isoHidden, "--iso-hidden"},
                                                              {partNumber.has_value(), "--part-number"},
                                                              {drawnBy.has_value(), "--drawn-by"}};
            for (const auto& [given, name] : sheetOnly)
                if (given) throw tUsageError{std::string(name) + ": only a --sheet has it (add --sheet)"};
        }
        CameraOptions& camera = options.drawing.camera;
        if (!ParseViewPreset(lowercase(view), camera.view))
            throw tUsageError{"--view: '" + view + "' is not front, back, left, right, top, bottom or iso"};
        if (!azimuth.empty() || !elevation.empty()) {
            if (viewOption->count() > 0) throw tUsageError{"give either --view or --azimuth/--elevation"};
            if (!eye.empty()) throw tUsageError{"give either --eye or --azimuth/--elevation"};
            camera.azimuthElevation = std::array<double, 2>{
                azimuth.empty() ? 0.0 : number("--azimuth", azimuth, -36000.0, 36000.0, false, false, " degrees"),
                elevation.empty() ? 0.0 : number("--elevation", elevation, -90.0, 90.0, false, false, " degrees")};
        }
        if (!eye.empty()) camera.eye = point("--eye", eye);
        if (!target.empty()) camera.target = point("--target", target);
        if (!up.empty()) {
            camera.up = point("--up", up);
            if (!(camera.up.Length() > 0.0)) throw tUsageError{"--up: the direction must not be zero"};
            options.upGiven = true;
            if (options.sheetOptions.front) {
                const Wm4::Vector3<double> unitUp = camera.up / camera.up.Length();
                if (unitUp.Cross(*options.sheetOptions.front).Length() < 1e-6)
                    throw tUsageError{"--front: " + front + " runs along --up " + up};
            }
        }
        camera.perspective = perspective;
        if (fovOption->count() > 0 && !perspective)
            throw tUsageError{"--fov: only a perspective view has a lens angle (add --perspective)"};
        camera.fovDegrees = number("--fov", fov, 0.0, 180.0, true, true, " degrees");
        parsePage(page, landscape, options);
        camera.marginMM = number("--margin", margin, 0.0, 1e5, false, false, " mm");
        if (!(2.0 * camera.marginMM < std::min(options.drawing.pageWidthMM, options.drawing.pageHeightMM)))
            throw tUsageError{"--margin: " + margin + " mm leaves no room on the page"};

        const std::vector<std::string> bitPieces = split(bits, ",");
        const unsigned int xyBits = bitPieces.size() == 2 ? bitCount(bitPieces[0]) : 0;
        const unsigned int zBits = bitPieces.size() == 2 ? bitCount(bitPieces[1]) : 0;
        if (!BitSizesAccepted(xyBits, zBits))
            throw tUsageError{"--bits: '" + bits + "' is refused: XY,Z need XY > 1, Z > 1 and 2*XY + Z <= 59"};
        options.drawing.xyBits = xyBits;
        options.drawing.zBits = zBits;

        if (!tolerance.empty())
            options.import.chordTolerance = number("--tolerance", tolerance, 0.0, 1e12, true, false, "");
        options.import.smoothingAngleDegrees =
            static_cast<float>(number("--smoothing-angle", smoothing, 0.0, 180.0, false, false, " degrees"));
        if (!creaseWidth.empty())
            options.drawing.creaseWidthMM =
                static_cast<float>(number("--crease-width", creaseWidth, 0.0, 100.0, true, false, " mm"));
        if (!silhouetteWidth.empty())
            options.drawing.silhouetteWidthMM =
                static_cast<float>(number("--silhouette-width", silhouetteWidth, 0.0, 100.0, true, false, " mm"));
        if (!color.empty()) options.drawing.color = parseColor(color);
        if (!units.empty()) {
            LengthUnit unit;
            if (!ParseLengthUnit(units, unit))
                throw tUsageError{"--units: '" + units + "' is not mm, cm, m, in, ft or um"};
            options.units = unit;
        }
        if (!threads.empty())
            options.threads = static_cast<unsigned int>(number("--threads", threads, 1.0, 1024.0, false, false, ""));
        if (!threads.empty() && std::to_string(options.threads) != threads)
            throw tUsageError{"--threads: '" + threads + "' is not a whole number from 1 to 1024"};

        std::string names;
        for (const std::string& model : options.models)
            names += (names.empty() ? "" : ", ") + std::filesystem::path(model).filename().string();
        options.drawing.title = ctr::EscapeXmlText(title ? *title : options.demo ? "contour demo" : names, ctr::XmlTextContext::kContent);
        options.drawing.description = ctr::EscapeXmlText(
            description ? *description
            : options.sheet
                ? std::string("front, top, side and iso views, ") +
                      (options.sheetOptions.projection == ctr::ProjectionMethod::kFirstAngle ? "first" : "third") +
                      "-angle projection, orthographic"
                : viewDescription(camera) + ", " + (camera.perspective ? "perspective" : "orthographic"),
            ctr::XmlTextContext::kContent);
        if (options.sheet) {
            options.sheetOptions.title = title ? *title : options.demo ? "contour demo" : names;
            options.sheetOptions.date = SheetDate();
        }
        options.titleGiven = title.has_value();
        if (options.output.empty() && !batch)
            options.output =
                options.demo ? "demo.svg" : std::filesystem::path(options.models[0]).stem().string() + ".svg";
    } catch (const tUsageError& failure) {
        std::fprintf(stderr, "contour: error: %s\n", failure.message.c_str());
        return 2;
    }
    return -1;
}

}  // namespace contour
