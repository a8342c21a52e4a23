// The model importer shared by the tool, the tests and the benchmarks: real
// files load with their triangle counts, broken ones fail with a reason.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ctr/drawing/ThreadPool.h"
#include "NumberScan.h"
#include "ScratchArray.h"
#include "TestSupport.h"

namespace {

// Counts as published with the models. Normals as the files give them.
void ExpectCounts(const char* file, size_t meshes, size_t triangles, bool normals) {
    contour::ImportOptions asStored;
    asStored.generateNormals = false;
    contour::ImportedModel model;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath(file), model, error, asStored)) << file << ": " << error;
    EXPECT_EQ(model.meshes.size(), meshes) << file;
    EXPECT_EQ(model.triangleCount, triangles) << file;
    EXPECT_EQ(model.hasNormals, normals) << file;
    EXPECT_EQ(model.names.size(), model.meshes.size());
}

TEST(ModelImport, LoadsTheFormatsOfTheTestModels) {
    ExpectCounts("cad/joint.obj", 1, 446, false);
    ExpectCounts("cad/anchor.stl", 1, 1050, true);
    ExpectCounts("cad/couplingdown.ply", 1, 3714, false);
    ExpectCounts("cad/featuretype_vertex_normals.ply", 1, 3476, true);
    ExpectCounts("scenes/two_balls_intersecting.obj", 2, 7592, false);
    ExpectCounts("organic/spot.obj", 1, 5856, false);
}

TEST(ModelImport, LoadsTheLargeTestModels) {
    CTR_SKIP_WITHOUT_MODEL("organic/armadillo_86k.ply");
    CTR_SKIP_WITHOUT_MODEL("scenes/2CylinderEngine.glb");
    ExpectCounts("organic/armadillo_86k.ply", 1, 86482, false);
    // The glTF assembly places some of its meshes more than once.
    ExpectCounts("scenes/2CylinderEngine.glb", 115, 121496, true);
}

TEST(ModelImport, JoinsOnlyBitIdenticalCorners) {
    // Split normals along creases stay split: 26 positions of the cube carry
    // 54 distinct position and normal pairs.
    std::string error;
    contour::ImportedModel cube;
    ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath("cad/cube_split_normals.obj"), cube, error)) << error;
    EXPECT_EQ(cube.vertexCount, 54u);
}

TEST(ModelImport, JoiningDropsPositionsNoFaceUses) {
    // OBJ corners arrive one per face corner; joining gives back the file's
    // 35,947 positions less the 1,113 that no face uses.
    CTR_SKIP_WITHOUT_MODEL("organic/stanford-bunny.obj");
    contour::ImportOptions asStored;
    asStored.generateNormals = false;
    contour::ImportedModel bunny;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath("organic/stanford-bunny.obj"), bunny, error, asStored))
        << error;
    EXPECT_EQ(bunny.vertexCount, 35947u - 1113u);
}

TEST(ModelImport, BrokenFilesFailWithAReason) {
    for (const char* file :
         {"malformed/empty.stl", "malformed/empty_solid.stl", "malformed/truncated_binary.stl",
          "malformed/out_of_range_indices.obj", "malformed/nan_coordinates.obj", "malformed/no_such_file.obj"}) {
        contour::ImportedModel model;
        std::string error;
        EXPECT_FALSE(contour::ImportModel(ctr_test::ModelPath(file), model, error)) << file;
        EXPECT_NE(error.find(file), std::string::npos) << "the reason names the file: " << error;
        EXPECT_TRUE(model.meshes.empty());
    }
    contour::ImportedModel model;
    std::string error;
    EXPECT_FALSE(contour::ImportModel(ctr_test::ModelPath("malformed/nan_coordinates.obj"), model, error));
    EXPECT_NE(error.find("not a finite number"), std::string::npos) << error;
    // Legal but unusual files load.
    for (const char* file : {"malformed/binary_header_starts_with_solid.stl", "malformed/negative_indices.obj",
                             "malformed/zero_area_triangle.stl", "malformed/nonmanifold_joined_tetrahedra.obj",
                             "malformed/relative_indices_in_range.obj"})
        EXPECT_TRUE(contour::ImportModel(ctr_test::ModelPath(file), model, error)) << file << ": " << error;
}

// Files made to break readers: assimp's abort on a face without corners,
// headers that claim billions of elements, numbers that assimp would misread
// and text it would quote at length. Each is refused at once with one short
// printable line that names the file and, for a refused number, its line.
TEST(ModelImport, HostileFilesAreRefusedWithAShortReason) {
    const std::pair<const char*, const char*> cases[] = {
        {"malformed/face_without_corners.ply", "crashed"},
        {"malformed/header_bomb.ply", "declares 999999999 'vertex' elements"},
        {"malformed/header_bomb_4g.ply", "declares 4000000000"},
        {"malformed/header_bomb_faces.ply", "declares 18446744073709551617 'face' elements"},
        {"malformed/header_bomb.off", "declares 999999999 vertices"},
        {"malformed/misread_hex_float.obj", "line 1: '0x1p3'"},
        {"malformed/misread_overlong_number.obj", "line 3: '123456789012345678901234'"},
        {"malformed/long_token.stl", "\"zzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz...\""},
    };
    for (const char* spelling : {"0x1p3", "1.5.5", "1,5", "2e", "1e0x", "18446744073709551616"})
        EXPECT_TRUE(contour::importer::isMisreadNumber(spelling, spelling + std::strlen(spelling))) << spelling;
    for (const char* spelling : {"+5", "5.", "-.5", "1e-5", "18446744073709551615", "0000000000000000000001", "nan"})
        EXPECT_FALSE(contour::importer::isMisreadNumber(spelling, spelling + std::strlen(spelling))) << spelling;
    for (const auto& [file, reason] : cases) {
#ifdef __SANITIZE_ADDRESS__
        // Read in-process there: assimp's abort would end the test.
        if (std::strstr(file, "face_without_corners")) continue;
#endif
        contour::ImportedModel model;
        std::string error;
        EXPECT_FALSE(contour::ImportModel(ctr_test::ModelPath(file), model, error)) << file;
        EXPECT_NE(error.find(file), std::string::npos) << error;
        EXPECT_NE(error.find(reason), std::string::npos) << error;
        EXPECT_LT(error.size(), 300u) << error;
        EXPECT_TRUE(std::all_of(error.begin(), error.end(), [](char c) { return c >= 0x20 && c < 0x7f; })) << error;
    }
}

// The header checks, not the memory they would spare, stop the bombs: in a
// process whose address space is capped well below what the headers claim,
// every bomb still ends in a refusal rather than an abort.
TEST(ModelImport, HeaderBombsFailWithinAMemoryLimit) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers reserve more address space than the limit allows";
#else
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        rlimit limit;
        limit.rlim_cur = limit.rlim_max = rlim_t{1} << 30;
        if (::setrlimit(RLIMIT_AS, &limit) != 0) ::_exit(2);
        int refused = 0;
        for (const char* file : {"malformed/header_bomb.ply", "malformed/header_bomb_4g.ply", "malformed/header_bomb.off",
                                 "malformed/face_without_corners.ply"}) {
            contour::ImportedModel model;
            std::string error;
            if (!contour::ImportModel(ctr_test::ModelPath(file), model, error) && !error.empty()) ++refused;
        }
        ::_exit(refused == 4 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "the child died of signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
#endif
}

// A FIFO is refused by its type before anything opens it: opening it would
// wait for a writer that never comes.
TEST(ModelImport, NonRegularFilesAreRefusedAtOnce) {
    const std::filesystem::path fifo =
        std::filesystem::temp_directory_path() / ("contour_fifo_" + std::to_string(::getpid()) + ".obj");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {fifo.string(), std::string("/dev/null"), std::string("/")}) {
        contour::ImportedModel model;
        std::string error;
        EXPECT_FALSE(contour::ImportModel(path, model, error));
        EXPECT_NE(error.find(path.back() == '/' ? "directory" : "not a regular file"), std::string::npos) << error;
    }
    std::filesystem::remove(fifo);
}

}  // namespace

namespace {

// Both models hold the same meshes, names, transformations and buffers, bit
// for bit.
void ExpectSameModel(const contour::ImportedModel& a, const contour::ImportedModel& b, const std::string& what) {
    ASSERT_EQ(a.meshes.size(), b.meshes.size()) << what;
    EXPECT_EQ(a.names, b.names) << what;
    EXPECT_EQ(a.triangleCount, b.triangleCount) << what;
    EXPECT_EQ(a.vertexCount, b.vertexCount) << what;
    EXPECT_EQ(a.hasNormals, b.hasNormals) << what;
    // Placements, then vertex and index buffers, compared bit for bit.
    const auto bytes = [](const auto* data, size_t count) {
        return std::string(reinterpret_cast<const char*>(data), count * sizeof(*data));
    };
    for (size_t m = 0; m < a.meshes.size(); ++m) {
        const qe::qeTriMesh &p = *a.meshes[m], &q = *b.meshes[m];
        EXPECT_EQ(bytes(&p.Local.GetMatrix()[0][0], 16) + bytes(&p.World.GetMatrix()[0][0], 16),
                  bytes(&q.Local.GetMatrix()[0][0], 16) + bytes(&q.World.GetMatrix()[0][0], 16))
            << what << " mesh " << m;
        ASSERT_EQ(p.VBuffer->GetAttributes().HasNormal(), q.VBuffer->GetAttributes().HasNormal()) << what;
        std::string vertices[2];
        for (const qe::qeTriMesh* mesh : {&p, &q})
            for (int v = 0; v < mesh->VBuffer->GetVertexQuantity(); ++v)
                vertices[mesh == &q] += bytes(&mesh->VBuffer->Position3(v)[0], 3) +
                                        (mesh->VBuffer->GetAttributes().HasNormal() ? bytes(&mesh->VBuffer->Normal3(v)[0], 3) : "");
        EXPECT_TRUE(vertices[0] == vertices[1]) << what << " mesh " << m << ": vertices differ";
        EXPECT_TRUE(bytes(p.IBuffer->GetData(), size_t(p.IBuffer->GetIndexQuantity())) ==
                    bytes(q.IBuffer->GetData(), size_t(q.IBuffer->GetIndexQuantity())))
            << what << " mesh " << m << ": index buffers differ";
    }
}

// Imports a file through the built-in readers (making normals on two
// threads) and through assimp alone (on one), with generated and with stored
// normals: results and errors must agree.
void ExpectBothReadersAgree(const std::string& path) {
    static contour::ThreadPool pool(2);
    for (const bool generate : {true, false}) {
        contour::ImportOptions general;
        general.generateNormals = generate;
        general.generalReaderOnly = true;
        contour::ImportOptions builtIn = general;
        builtIn.generalReaderOnly = false;
        builtIn.executor = &pool;
        contour::ImportedModel fast;
        contour::ImportedModel reference;
        std::string fastError;
        std::string referenceError;
        const bool fastOk = contour::ImportModel(path, fast, fastError, builtIn);
        const bool referenceOk = contour::ImportModel(path, reference, referenceError, general);
        const std::string what = path + (generate ? " (generated normals)" : " (stored normals)");
        ASSERT_EQ(fastOk, referenceOk) << what << ": " << fastError << referenceError;
        EXPECT_EQ(fastError, referenceError) << what;
        ExpectSameModel(fast, reference, what);
    }
}

std::vector<std::string> FilesWithExtensions(const std::string& folder) {
    std::vector<std::string> files;
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) return files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, error)) {
        std::string extension = entry.path().extension().string();
        std::transform(extension.begin(), extension.end(), extension.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        // Files spelling numbers that assimp misreads are refused by the
        // built-in readers on purpose; assimp alone reads them wrong.
        if (entry.path().filename().string().rfind("misread_", 0) == 0) continue;
#ifdef __SANITIZE_ADDRESS__
        // Read in-process there: assimp's abort would end the test.
        if (entry.path().filename() == "face_without_corners.ply") continue;
#endif
        if (entry.is_regular_file() && (extension == ".obj" || extension == ".ply" || extension == ".stl"))
            files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

TEST(ModelImport, BuiltInReadersMatchAssimpOnEveryModel) {
    // The carried models, then those of the shared collection that are not
    // copies of them.
    std::vector<std::string> files = FilesWithExtensions(CTR_TEST_MODELS_DIR);
    ASSERT_FALSE(files.empty()) << "no models in " << CTR_TEST_MODELS_DIR;
    const std::string carried = std::string(CTR_TEST_MODELS_DIR) + "/";
    std::set<std::string> relatives;
    for (const std::string& file : files) relatives.insert(file.substr(carried.size()));
    const std::string shared = std::string(CTR_MODELS_DIR) + "/";
    for (const std::string& file : FilesWithExtensions(CTR_MODELS_DIR))
        if (relatives.count(file.substr(shared.size())) == 0) files.push_back(file);
    for (const std::string& file : files) ExpectBothReadersAgree(file);
}

}  // namespace
