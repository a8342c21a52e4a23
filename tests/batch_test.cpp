// `contour batch` end to end: a folder of real models with a broken one among
// them, drawn as single runs draw them, skipped when current, and redrawn
// when the options change.
#include <nlohmann/json.hpp>
#include <thread>

#include "TestSupport.h"
#include "ctr/drawing/Batch.h"

namespace {

namespace fs = std::filesystem;
using ContourBatch = ctr_test::ToolTest;

const char* const kParts[] = {"cad/anchor.stl", "cad/couplingdown.ply", "cad/cube_split_normals.obj",
                              "cad/joint.obj", "cad-brep/box_holes.obj"};

std::map<std::string, nlohmann::json> resultsByPath(const std::string& report) {
    std::map<std::string, nlohmann::json> results;
    const nlohmann::json parsed = nlohmann::json::parse(report);
    for (const nlohmann::json& part : parsed["results"]) results[part["path"]] = part;
    return results;
}

TEST_F(ContourBatch, DrawsEveryGoodPartAsASingleRunAndSkipsCurrentOnes) {
    fs::create_directories(folder / "parts" / "sub");
    for (const char* part : kParts) fs::copy_file(ctr_test::ModelPath(part), folder / "parts" / fs::path(part).filename());
    fs::copy_file(ctr_test::ModelPath("malformed/nan_coordinates.obj"), folder / "parts" / "sub" / "broken.obj");
    // Neither a hidden file nor a file of another kind is a part.
    fs::copy_file(ctr_test::ModelPath("cad/joint.obj"), folder / "parts" / ".hidden.obj");
    std::ofstream(folder / "parts" / "notes.txt") << "not a model\n";

    ASSERT_EQ(run("batch parts --out-dir out --jobs 2 --page A5 -q"), 1) << errors;
    EXPECT_NE(errors.find("parts/sub/broken.obj: "), std::string::npos) << errors;
    auto results = resultsByPath(read("out/report.json"));
    ASSERT_EQ(results.size(), std::size(kParts) + 1);
    const nlohmann::json& broken = results["parts/sub/broken.obj"];
    EXPECT_EQ(broken["status"], "failed");
    EXPECT_EQ(broken["output"], "out/sub/broken.svg");
    // The reason is the one a single run gives.
    EXPECT_EQ(run("parts/sub/broken.obj -q -o single.svg"), 1);
    EXPECT_EQ("contour: error: " + broken["reason"].get<std::string>() + "\n", errors);

    std::map<std::string, std::string> drawings;
    for (const char* part : kParts) {
        const std::string stem = fs::path(part).stem().string(), model = "parts/" + fs::path(part).filename().string();
        EXPECT_EQ(results[model]["status"], "drawn") << model;
        ASSERT_EQ(run(model + " --page A5 -q -o single.svg --stats single.json"), 0) << errors;
        drawings[stem] = read("out/" + stem + ".svg");
        EXPECT_EQ(drawings[stem], read("single.svg")) << model;
        // A single run's record carries the same options hash.
        EXPECT_EQ(nlohmann::json::parse(read("out/" + stem + ".stats.json"))["optionsHash"],
                  nlohmann::json::parse(read("single.json"))["optionsHash"]);
    }

    // Current drawings are left alone; the broken part fails again.
    ASSERT_EQ(run("batch parts --out-dir out --page A5 -q"), 1);
    results = resultsByPath(read("out/report.json"));
    for (const char* part : kParts)
        EXPECT_EQ(results["parts/" + fs::path(part).filename().string()]["status"], "skipped") << part;
    // A model newer than its drawing is drawn again, and so is every part
    // when an option changes.
    fs::last_write_time(folder / "parts" / "joint.obj", fs::file_time_type::clock::now() + std::chrono::hours(1));
    ASSERT_EQ(run("batch parts --out-dir out --page A5 -q --report again.json"), 1);
    results = resultsByPath(read("again.json"));
    EXPECT_EQ(results["parts/joint.obj"]["status"], "drawn");
    EXPECT_EQ(results["parts/anchor.stl"]["status"], "skipped");
    ASSERT_EQ(run("batch parts --out-dir out --page A4 -q"), 1);
    for (const auto& [model, result] : resultsByPath(read("out/report.json")))
        EXPECT_EQ(result["status"], model == "parts/sub/broken.obj" ? "failed" : "drawn") << model;
    EXPECT_NE(read("out/anchor.svg"), drawings["anchor"]);
}

TEST_F(ContourBatch, NamesSheetsAndUsage) {
    fs::create_directories(folder / "a");
    fs::create_directories(folder / "b");
    fs::copy_file(ctr_test::ModelPath("cad-brep/box_holes.obj"), folder / "a" / "part.obj");
    fs::copy_file(ctr_test::ModelPath("cad/joint.obj"), folder / "b" / "part.obj");
    // Two models with one name: the first is drawn, the second refused; a
    // file given twice is drawn once. A sheet is the sheet of a single run.
    ASSERT_EQ(run("batch a/part.obj b/part.obj a/../a/part.obj --out-dir out --sheet -q"), 1) << errors;
    const auto results = resultsByPath(read("out/report.json"));
    EXPECT_EQ(results.at("a/part.obj")["status"], "drawn");
    EXPECT_EQ(results.at("b/part.obj")["status"], "failed");
    EXPECT_NE(results.at("b/part.obj")["reason"].get<std::string>().find("a/part.obj"), std::string::npos);
    EXPECT_EQ(results.at("a/../a/part.obj")["status"], "skipped");
    ASSERT_EQ(run("a/part.obj --sheet -q -o single.svg"), 0);
    EXPECT_EQ(read("out/part.svg"), read("single.svg"));

    EXPECT_EQ(run("batch a --out-dir out --jobs 1 --force -q"), 0) << errors;
    EXPECT_EQ(run("batch a --out-dir out -o x.svg"), 2);
    EXPECT_EQ(run("batch a"), 2);
    EXPECT_EQ(run("batch a --out-dir out --jobs 0"), 2);
}

// What a host sees: every part once, on its own thread, counted in order;
// and a cancel asked for at once leaves every part undrawn and no file.
TEST_F(ContourBatch, HostHearsOfEachPartOnItsThreadAndCanCancel) {
    contour::BatchOptions options;
    options.outputFolder = (folder / "out").string();
    options.jobs = 2;
    const std::vector<contour::BatchPart> parts =
        contour::CollectBatchParts({ctr_test::ModelPath("cad/joint.obj"), ctr_test::ModelPath("cad-brep/box_holes.obj"),
                                    (folder / "missing.obj").string()});
    ASSERT_EQ(parts.size(), 3u);
    std::vector<size_t> counts;
    const std::thread::id host = std::this_thread::get_id();
    options.partDone = [&](const contour::PartResult&, size_t done, size_t total) {
        EXPECT_EQ(std::this_thread::get_id(), host);
        EXPECT_EQ(total, 3u);
        counts.push_back(done);
    };
    const std::vector<contour::PartResult> results = contour::RunBatch(parts, options);
    EXPECT_EQ(counts, (std::vector<size_t>{1, 2, 3}));
    EXPECT_EQ(results[0].status, contour::PartStatus::kDrawn);
    EXPECT_EQ(results[0].output, (folder / "out" / "joint.svg").string());
    EXPECT_GT(results[1].drawing.paths, 0u);
    EXPECT_EQ(results[2].status, contour::PartStatus::kFailed);
    EXPECT_NE(results[2].reason.find("missing.obj"), std::string::npos);

    options.outputFolder = (folder / "cancelled").string();
    options.shouldCancel = [] { return true; };
    for (const contour::PartResult& result : contour::RunBatch(parts, options))
        EXPECT_NE(result.status, contour::PartStatus::kDrawn);
    EXPECT_FALSE(fs::exists(folder / "cancelled" / "joint.svg"));
}

}  // namespace
