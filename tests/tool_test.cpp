// End-to-end runs of the contour tool on real model files: drawings land on
// the page inside the margin, occluders hide lines, and bad input fails with
// one message while leaving existing files alone.
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "TestSupport.h"

namespace {

namespace fs = std::filesystem;
using ContourTool = ctr_test::ToolTest;

// The points of a drawing, path by path, and its page size from the view box.
struct tDrawing {
    bool header = false;
    double width = 0.0, height = 0.0;
    std::vector<ctr_test::SvgPath> paths;
    std::vector<std::pair<double, double>> points;
};

tDrawing readDrawing(const std::string& text) {
    tDrawing drawing;
    drawing.header = text.rfind("<?xml version=\"1.0\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\"", 0) == 0 &&
                     text.find("</svg>\n") != std::string::npos;
    const size_t box = text.find("viewBox=\"0 0 ");
    if (box != std::string::npos) std::sscanf(text.c_str() + box + 13, "%lf %lf", &drawing.width, &drawing.height);
    drawing.paths = ctr_test::ParsePaths(text);
    for (const auto& path : drawing.paths)
        for (const auto& command : path) drawing.points.emplace_back(command.x, command.y);
    return drawing;
}

// The straight pieces of a drawing, each with its smaller end first, sorted.
std::vector<std::array<double, 4>> sortedSegments(const tDrawing& drawing) {
    std::vector<std::array<double, 4>> segments;
    for (const auto& path : drawing.paths)
        for (size_t i = 1; i < path.size(); ++i) {
            std::pair<double, double> a{path[i - 1].x, path[i - 1].y}, b{path[i].x, path[i].y};
            if (b < a) std::swap(a, b);
            segments.push_back({a.first, a.second, b.first, b.second});
        }
    std::sort(segments.begin(), segments.end());
    return segments;
}

// The file from the first group on: what the camera and the lines make.
std::string drawingBody(const std::string& text) { return text.substr(std::min(text.find("<g "), text.size())); }

// Every point lies inside the margin; returns the drawing's bounds.
void expectInsideMargin(const tDrawing& drawing, double margin, double bounds[4], const std::string& what) {
    const double slack = 1e-3;
    bounds[0] = bounds[1] = 1e30, bounds[2] = bounds[3] = -1e30;
    size_t outside = 0;
    for (const auto& [x, y] : drawing.points) {
        if (!(x >= margin - slack && x <= drawing.width - margin + slack && y >= margin - slack &&
              y <= drawing.height - margin + slack) &&
            outside++ == 0)
            ADD_FAILURE() << what << ": (" << x << ", " << y << ") is off the page or in the margin";
        bounds[0] = std::min(bounds[0], x), bounds[1] = std::min(bounds[1], y);
        bounds[2] = std::max(bounds[2], x), bounds[3] = std::max(bounds[3], y);
    }
    EXPECT_EQ(outside, 0u) << what;
}

TEST_F(ContourTool, DrawsRealModelsInsideTheMargin) {
    struct tCase {
        std::string arguments;
        double width, height, margin;
    };
    const tCase cases[] = {
        {model("cad/couplingdown.ply") + " -o out.svg", 210, 297, 10},
        {model("cad-brep/box_holes.obj") + " --view top --orthographic --page A3 --landscape -o out.svg", 420, 297, 10},
        {model("scenes/two_balls_intersecting.obj") + " --view right --page 300x200 --margin 4 -q -o out.svg", 300, 200,
         4},
        {"--demo --azimuth -30 --elevation 60 --page A0 --landscape -o out.svg", 1189, 841, 10},
        {"--demo --view back --perspective --fov 60 --page letter --title 'A & B' -o out.svg", 215.9, 279.4, 10},
    };
    for (const tCase& c : cases) {
        ASSERT_EQ(run(c.arguments), 0) << c.arguments << "\n" << errors;
        const tDrawing drawing = readDrawing(read("out.svg"));
        EXPECT_TRUE(drawing.header) << c.arguments;
        EXPECT_NEAR(drawing.width, c.width, 1e-3) << c.arguments;
        EXPECT_NEAR(drawing.height, c.height, 1e-3) << c.arguments;
        EXPECT_GT(drawing.paths.size(), 0u) << c.arguments;
        EXPECT_GE(drawing.points.size(), 2 * drawing.paths.size()) << c.arguments;  // a move and a line at least
        double bounds[4];
        expectInsideMargin(drawing, c.margin, bounds, c.arguments);
    }
    // Escaped, so that the file stays well-formed.
    EXPECT_NE(read("out.svg").find("<title>A &amp; B</title>"), std::string::npos);
}

// The outer corners of the holed box are crease vertices, so a tight fit
// shows: the drawing is centred and reaches the margin along one axis.
TEST_F(ContourTool, FitsThePerspectiveViewToThePage) {
    ASSERT_EQ(run(model("cad-brep/box_holes.obj") + " --perspective --margin 15 -q -o out.svg"), 0);
    const tDrawing drawing = readDrawing(read("out.svg"));
    double b[4];
    expectInsideMargin(drawing, 15, b, "box_holes");
    EXPECT_NEAR(0.5 * (b[0] + b[2]), 105.0, 0.05);
    EXPECT_NEAR(0.5 * (b[1] + b[3]), 148.5, 0.05);
    EXPECT_TRUE(std::abs(b[0] - 15) < 0.05 || std::abs(b[1] - 15) < 0.05) << b[0] << ", " << b[1];
}

// Seen from the front, an occluder in front of the scene's left half (world
// x < 0, which the centred fit puts left of the page's middle) hides every
// line there, and covering everything leaves an empty page.
TEST_F(ContourTool, OccludersHideLinesWithoutBeingDrawn) {
    const auto writeQuad = [&](const char* name, float xMax) {
        std::ofstream(folder / name) << "v -10 -10 5\nv " << xMax << " -10 5\nv " << xMax << " 10 5\nv -10 10 5\n"
                                     << "f 1 2 3\nf 1 3 4\n";
    };
    writeQuad("left.obj", 0.0f);
    writeQuad("all.obj", 10.0f);
    const std::string front = "--demo --view front --orthographic -o out.svg";

    ASSERT_EQ(run(front), 0);
    tDrawing open = readDrawing(read("out.svg"));
    const size_t leftPoints = std::count_if(open.points.begin(), open.points.end(),
                                            [&](const auto& p) { return p.first < 0.5 * open.width - 1.0; });
    EXPECT_GT(leftPoints, 0u);

    ASSERT_EQ(run(front + " --occluder left.obj"), 0);
    const tDrawing half = readDrawing(read("out.svg"));
    EXPECT_GT(half.paths.size(), 0u);
    for (const auto& [x, y] : half.points) ASSERT_GE(x, 0.5 * half.width - 1e-3) << y;

    ASSERT_EQ(run(front + " --occluder all.obj --occluder left.obj"), 0) << errors;
    EXPECT_EQ(readDrawing(read("out.svg")).paths.size(), 0u);
    EXPECT_NE(errors.find("warning"), std::string::npos);
}

// From the front, the line where the two balls meet runs down the page's
// middle. A hide-only panel over the lower half of the scene cuts it at the
// middle, and with --hidden what the panel covers is on the hidden layer; a
// panel over everything leaves no intersection line.
TEST_F(ContourTool, OccludersHideIntersectionLines) {
    const auto writeQuad = [&](const char* name, float yMax) {
        std::ofstream(folder / name) << "v -20 -20 20\nv 20 -20 20\nv 20 " << yMax << " 20\nv -20 " << yMax
                                     << " 20\nf 1 2 3\nf 1 3 4\n";
    };
    writeQuad("lower.obj", 0.0f);
    writeQuad("all.obj", 20.0f);
    const std::string balls = model("scenes/two_balls_intersecting.obj") + " --view front --layers --hidden -o out.svg";
    const auto layer = [&](const char* id) {
        std::vector<std::pair<double, double>> points;
        for (const auto& path : ctr_test::ParsePaths(read("out.svg"), id))
            for (const auto& command : path) points.emplace_back(command.x, command.y);
        return points;
    };
    const auto lowest = [](const std::vector<std::pair<double, double>>& points) {
        double y = 0.0;
        for (const auto& p : points) y = std::max(y, p.second);
        return y;
    };
    const double middle = 148.5;

    ASSERT_EQ(run(balls), 0) << errors;
    const auto open = layer("intersections");
    EXPECT_GT(lowest(open), middle + 20.0);

    ASSERT_EQ(run(balls + " --occluder lower.obj"), 0) << errors;
    EXPECT_NEAR(lowest(layer("intersections")), middle, 0.05);
    const auto hidden = layer("hidden");
    for (const auto& [x, y] : open) {
        if (y < middle + 0.05) continue;
        const bool kept = std::any_of(hidden.begin(), hidden.end(),
                                      [&](const auto& h) { return std::hypot(h.first - x, h.second - y) < 2e-3; });
        ASSERT_TRUE(kept) << x << ", " << y;
    }

    ASSERT_EQ(run(balls + " --occluder all.obj"), 0) << errors;
    EXPECT_TRUE(layer("intersections").empty());
}

TEST_F(ContourTool, BadInputFailsWithOneMessageAndKeepsTheOutput) {
    struct tCase {
        std::string arguments;
        int exitCode;
        const char* message;
    };
    const tCase cases[] = {
        {"missing.obj", 1, "missing.obj"},
        {model("malformed/empty.stl"), 1, "empty.stl"},
        {model("malformed/nan_coordinates.obj"), 1, "finite"},
        {model("malformed/header_bomb.ply"), 1, "declares"},
        {"pipe.obj", 1, "not a regular file"},
        {"--demo --occluder " + model("malformed/truncated_binary.stl"), 1, "truncated_binary.stl"},
        {"--demo --page 0x100", 2, "--page"},
        {"--demo --page -210x297", 2, "--page"},
        {"--demo --page B9", 2, "--page"},
        {"--demo --bits 30,30", 2, "--bits"},
        {"--demo --bits 20,x", 2, "--bits"},
        {"--demo --fov nan", 2, "--fov"},
        {"--demo --fov 180", 2, "--fov"},
        {"--demo --perspective --fov 180", 2, "--fov"},
        {"--demo --threads 0", 2, "--threads"},
        {"--demo --threads 2.5", 2, "--threads"},
        {"--demo --view sideways", 2, "--view"},
        {"--demo --perspective --eye 0,0,10 --target 0,0,20", 1, "behind the eye"},
        {"--demo --fov 40", 2, "--fov"},
        {"--demo --view top --azimuth 10", 2, "--azimuth"},
        {"--demo --eye 1,2,3 --elevation 10", 2, "--elevation"},
        {"--demo --elevation 90.5", 2, "--elevation"},
        {"--demo --stats no/such/folder/run.json", 1, "no/such/folder"},
        {"--demo --eye 1,2", 2, "--eye"},
        {"--demo --margin 150", 2, "--margin"},
        {"--demo --no-such-option", 2, "no-such-option"},
        {"", 2, "no model"},
        // A sheet is always parallel and shows the standard views.
        {model("cad-brep/box_holes.obj") + " --sheet --perspective", 2, "--perspective does not apply"},
        {model("cad-brep/box_holes.obj") + " --sheet --view top", 2, "--view does not apply"},
        {model("cad-brep/box_holes.obj") + " --sheet --eye 1,2,3", 2, "--eye does not apply"},
        {model("cad-brep/box_holes.obj") + " --sheet --azimuth 30", 2, "--azimuth does not apply"},
        {model("cad-brep/box_holes.obj") + " --projection first", 2, "--projection"},
        {model("cad-brep/box_holes.obj") + " --sheet --projection second", 2, "--projection"},
    };
    ASSERT_EQ(::mkfifo((folder / "pipe.obj").c_str(), 0600), 0);
    std::vector<tCase> all(std::begin(cases), std::end(cases));
#ifndef __SANITIZE_ADDRESS__
    // Address-sanitized builds read with assimp in-process, where its abort
    // would end the tool.
    all.push_back({model("malformed/face_without_corners.ply"), 1, "face_without_corners.ply"});
#endif
    for (const tCase& c : all) {
        std::ofstream(folder / "out.svg") << "precious";
        EXPECT_EQ(run("-q " + c.arguments + " -o out.svg"), c.exitCode) << c.arguments;
        EXPECT_EQ(errors.rfind("contour: error: ", 0), 0u) << c.arguments << ": " << errors;
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
        EXPECT_NE(errors.find(c.message), std::string::npos) << c.arguments << ": " << errors;
        EXPECT_EQ(read("out.svg"), "precious") << c.arguments;
    }
    // A model is never overwritten by its own drawing.
    fs::copy_file(ctr_test::ModelPath("cad-brep/box_holes.obj"), folder / "part.obj");
    EXPECT_EQ(run("part.obj -o ./part.obj"), 1);
    EXPECT_EQ(read("part.obj"), ctr_test::ReadFile(ctr_test::ModelPath("cad-brep/box_holes.obj")));
    // Nothing but the files made here is left behind: no temporary.
    size_t entries = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder)) ++entries;
    EXPECT_EQ(entries, 5u);  // out.svg, part.obj, pipe.obj, stdout.txt, stderr.txt
}

// Output as a shell user expects it: a drawing named after its model, a new
// file with the permissions the umask leaves, a replaced one with its own,
// standard output written through a temporary that does not outlive the
// run, and short colours widened digit by digit.
TEST_F(ContourTool, WritesOutputAsTheShellWould) {
    const mode_t mask = ::umask(022);
    EXPECT_EQ(run("--demo -q -o new.svg"), 0) << errors;
    ::umask(mask);
    EXPECT_EQ(fs::status(folder / "new.svg").permissions(), fs::perms(0644));
    // Without -o, the drawing is named after the model.
    fs::copy_file(ctr_test::ModelPath("cad-brep/box_holes.obj"), folder / "part.obj");
    EXPECT_EQ(run("part.obj -q"), 0) << errors;
    EXPECT_TRUE(fs::exists(folder / "part.svg"));
    // A drawing that replaces a file keeps that file's permissions.
    fs::permissions(folder / "new.svg", fs::perms(0600));
    EXPECT_EQ(run("--demo -q -o new.svg"), 0) << errors;
    EXPECT_EQ(fs::status(folder / "new.svg").permissions(), fs::perms(0600));
    // A relative output's temporary is made beside it: from a folder on
    // another file system than the root's, one made anywhere else could not
    // be renamed into place.
    struct stat root {
    }, shm{};
    if (::stat("/", &root) == 0 && ::stat("/dev/shm", &shm) == 0 && root.st_dev != shm.st_dev) {
        const fs::path elsewhere = fs::path("/dev/shm") / folder.filename();
        fs::create_directories(elsewhere);
        EXPECT_EQ(std::system(("cd '" + elsewhere.string() + "' && '" CONTOUR_TOOL "' --demo -q -o here.svg").c_str()),
                  0);
        EXPECT_TRUE(fs::exists(elsewhere / "here.svg"));
        fs::remove_all(elsewhere);
    }

    fs::create_directory(folder / "tmp");
    ::setenv("TMPDIR", (folder / "tmp").c_str(), 1);
    EXPECT_EQ(run("--demo -q --color '#fa0' -o -"), 0) << errors;
    ::unsetenv("TMPDIR");
    EXPECT_TRUE(fs::is_empty(folder / "tmp"));
    EXPECT_NE(read("stdout.txt").find("stroke=\"rgb(255,170,0)\""), std::string::npos);
}

// Output goes where a shell user expects it to: through a chain of links
// to the file at its end (the links stay, the file keeps its permissions),
// to the file a dangling link names (beside the link), and straight into a
// named pipe or a device node, which stay what they are.
TEST_F(ContourTool, WritesThroughLinksIntoPipesAndDevices) {
    ASSERT_EQ(run("--demo -q -o plain.svg"), 0) << errors;
    const std::string drawing = read("plain.svg");
    fs::create_directory(folder / "sub");
    std::ofstream(folder / "sub/real.svg") << "old";
    fs::permissions(folder / "sub/real.svg", fs::perms(0600));
    fs::create_symlink("sub/real.svg", folder / "link.svg");
    fs::create_symlink("link.svg", folder / "chain.svg");
    fs::create_symlink("new.svg", folder / "sub/dangling.svg");
    EXPECT_EQ(run("--demo -q -o chain.svg"), 0) << errors;
    EXPECT_EQ(run("--demo -q -o sub/dangling.svg"), 0) << errors;
    EXPECT_TRUE(fs::is_symlink(folder / "chain.svg") && fs::is_symlink(folder / "link.svg") &&
                fs::is_symlink(folder / "sub/dangling.svg"));
    EXPECT_TRUE(read("sub/real.svg") == drawing) << read("sub/real.svg").substr(0, 80);
    EXPECT_EQ(fs::status(folder / "sub/real.svg").permissions(), fs::perms(0600));
    EXPECT_TRUE(read("sub/new.svg") == drawing) << read("sub/new.svg").substr(0, 80);
    size_t entries = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder / "sub")) ++entries;
    EXPECT_EQ(entries, 3u);  // real.svg, dangling.svg, new.svg

    // Held open for reading and writing here, the pipe lets the tool open it
    // at once and keeps the drawing, which fits in its buffer.
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0644), 0);
    const int pipe = ::open((folder / "pipe").c_str(), O_RDWR | O_NONBLOCK);
    EXPECT_EQ(run("--demo -q -o pipe"), 0) << errors;
    std::string received(1 << 16, '\0');
    received.resize(static_cast<size_t>(std::max<ssize_t>(::read(pipe, received.data(), received.size()), 0)));
    ::close(pipe);
    EXPECT_TRUE(received == drawing) << received.substr(0, 80);
    EXPECT_TRUE(fs::is_fifo(fs::symlink_status(folder / "pipe")));
    // A node like /dev/null, made here so that a fault cannot break the real
    // one; only root may make it.
    if (::mknod((folder / "null").c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0) {
        EXPECT_EQ(run("--demo -q -o null"), 0) << errors;
        EXPECT_TRUE(fs::is_character_file(fs::symlink_status(folder / "null")));
    }
}

// Meshes with split normals hold each crease once per side, and a box's
// creases are also its silhouettes: every line still reaches the page once.
TEST_F(ContourTool, DrawsEachLineOnce) {
    for (const std::string& arguments : {model("cad-brep/box_holes.obj"), model("cad/cube_split_normals.obj"),
                                         std::string("--demo"), model("cad/couplingdown.ply")}) {
        ASSERT_EQ(run(arguments + " -q -o out.svg"), 0) << arguments;
        const std::vector<std::array<double, 4>> segments = sortedSegments(readDrawing(read("out.svg")));
        ASSERT_FALSE(segments.empty()) << arguments;
        EXPECT_EQ(std::adjacent_find(segments.begin(), segments.end()), segments.end()) << arguments;
    }
    // Kept, the creases that silhouettes repeat come back in the crease style.
    ASSERT_EQ(run(model("cad-brep/box_holes.obj") + " -q -o out.svg"), 0);
    const size_t paths = readDrawing(read("out.svg")).paths.size();
    ASSERT_EQ(run(model("cad-brep/box_holes.obj") + " --keep-common -q -o out.svg"), 0);
    EXPECT_EQ(readDrawing(read("out.svg")).paths.size(), 2 * paths);
}

// Lines where solids pass through each other are outlines of the part and
// take the silhouette style, not the thinner crease style.
TEST_F(ContourTool, DrawsIntersectionsInTheSilhouetteStyle) {
    ASSERT_EQ(
        run(model("scenes/two_balls_intersecting.obj") + " --crease-width 0.1 --silhouette-width 0.5 -q -o out.svg"),
        0);
    const std::string text = read("out.svg");
    size_t groups = 0;
    for (size_t at = text.find("<g "); at != std::string::npos; at = text.find("<g ", at + 1)) {
        ++groups;
        EXPECT_NE(text.substr(at, text.find('>', at) - at).find("stroke-width=\"0.5\""), std::string::npos);
    }
    EXPECT_EQ(groups, 2u) << "silhouettes and intersections, no creases on smooth balls";
}

// Azimuth turns from the front view towards the right one, elevation towards
// up; the presets are the named directions of the same convention.
TEST_F(ContourTool, AzimuthAndElevationFollowTheViews) {
    const std::string part = model("cad/couplingdown.ply") + " -q";
    const auto body = [&](const std::string& view) {
        EXPECT_EQ(run(part + " " + view + " -o out.svg"), 0) << view;
        return drawingBody(read("out.svg"));
    };
    EXPECT_EQ(body("--azimuth 0 --elevation 0"), body("--view front"));
    EXPECT_EQ(body("--elevation 90"), body("--view top"));
    EXPECT_NE(body("--azimuth 90"), body("--view front"));

    ASSERT_EQ(run(part + " --view iso -o iso.svg"), 0);
    // Technical drawings are parallel projections unless asked otherwise.
    EXPECT_NE(read("iso.svg").find("orthographic"), std::string::npos);
}

TEST_F(ContourTool, WritesAStatisticsRecord) {
    ASSERT_EQ(run(model("cad-brep/box_holes.obj") + " --page A5 --stats run.json -q -o out.svg"), 0);
    const nlohmann::json record = nlohmann::json::parse(read("run.json"));
    EXPECT_EQ(record["inputs"][0]["triangles"], 1796);
    EXPECT_EQ(record["inputs"][0]["normals"], "stored");
    EXPECT_EQ(record["page"]["widthMM"], 148.0);
    EXPECT_EQ(record["camera"]["projection"], "orthographic");
    EXPECT_EQ(record["paths"], readDrawing(read("out.svg")).paths.size());
    const nlohmann::json& silhouettes = record["segments"]["silhouette"];
    EXPECT_GT(silhouettes["duplicatesRemoved"], 0);
    EXPECT_EQ(silhouettes["beforeHiding"],
              silhouettes["found"].get<int>() - silhouettes["duplicatesRemoved"].get<int>());
    EXPECT_GT(silhouettes["inkMM"], 0.0);
    EXPECT_TRUE(record["phasesMs"].contains("visible pieces"));
    EXPECT_GT(record["peakMemoryMiB"], 0.0);
}

// Ctrl-C stops the drawing through the library's cancel query, and kill -9
// stops it at once: either way the old file stays and no temporary is left. The mesh is large enough for the signal
// to arrive while the tool works.
TEST_F(ContourTool, InterruptKeepsTheOutput) {
    {
        std::ofstream mesh(folder / "big.obj");
        constexpr int n = 400;
        for (int i = 0; i <= n; ++i)
            for (int j = 0; j <= n; ++j)
                mesh << "v " << i << ' ' << std::sin(0.3 * i) * std::cos(0.2 * j) << ' ' << j << '\n';
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) {
                const int a = i * (n + 1) + j + 1, b = a + n + 1;
                mesh << "f " << a << ' ' << b << ' ' << a + 1 << "\nf " << a + 1 << ' ' << b << ' ' << b + 1 << '\n';
            }
    }
    std::ofstream(folder / "out.svg") << "precious";
    const std::string mesh = (folder / "big.obj").string(), output = (folder / "out.svg").string();
    const auto start = [&] {
        const pid_t child = fork();
        if (child == 0) {
            execl(CONTOUR_TOOL, CONTOUR_TOOL, "-q", "--threads", "1", mesh.c_str(), "-o", output.c_str(),
                  static_cast<char*>(nullptr));
            _exit(127);
        }
        return child;
    };
    const auto entries = [&] {
        size_t count = 0;
        for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder)) ++count;
        return count;
    };

    // Killed outright once it has made its output, the tool leaves nothing:
    // the drawing has no name until it is complete. Made, it is a new name
    // in the folder or, unnamed, a file the tool holds open there.
    pid_t child = start();
    ASSERT_GT(child, 0);
    bool made = false;
    // Sanitizer builds take seconds to get there.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!made && std::chrono::steady_clock::now() < deadline) {
        usleep(1000);
        made = entries() > 2;
        std::error_code ignored;
        for (const auto& open : fs::directory_iterator("/proc/" + std::to_string(child) + "/fd", ignored)) {
            const std::string file = fs::read_symlink(open, ignored).string();
            made |= file.rfind(folder.string() + "/#", 0) == 0;
        }
    }
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(made) << "the tool ended before it made its output";
    EXPECT_EQ(entries(), 2u);  // big.obj, out.svg

    child = start();
    ASSERT_GT(child, 0);
    // The interrupt must find the tool's handler in place: sanitizer builds
    // take a while to get there.
    const auto catchesInterrupt = [&] {
        std::ifstream process("/proc/" + std::to_string(child) + "/status");
        for (std::string line; std::getline(process, line);)
            if (line.rfind("SigCgt:", 0) == 0) return (std::stoull(line.substr(7), nullptr, 16) & (1ull << (SIGINT - 1))) != 0;
        return false;
    };
    const auto handlerDeadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!catchesInterrupt() && std::chrono::steady_clock::now() < handlerDeadline) usleep(1000);
    usleep(100000);
    kill(child, SIGINT);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_EQ(read("out.svg"), "precious");
    EXPECT_EQ(entries(), 2u);
}

}  // namespace
