// The model importer shared by the tool, the tests and the benchmarks: real
// files load with their triangle counts, broken ones fail with a reason.
#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ModelImport.h"
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
                             "malformed/zero_area_triangle.stl", "malformed/nonmanifold_joined_tetrahedra.obj"})
        EXPECT_TRUE(contour::ImportModel(ctr_test::ModelPath(file), model, error)) << file << ": " << error;
}

}  // namespace

namespace {

uint32_t Bits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// Both models hold the same meshes, names, transformations and buffers, bit
// for bit.
void ExpectSameModel(const contour::ImportedModel& a, const contour::ImportedModel& b, const std::string& what) {
    ASSERT_EQ(a.meshes.size(), b.meshes.size()) << what;
    EXPECT_EQ(a.names, b.names) << what;
    EXPECT_EQ(a.triangleCount, b.triangleCount) << what;
    EXPECT_EQ(a.vertexCount, b.vertexCount) << what;
    EXPECT_EQ(a.hasNormals, b.hasNormals) << what;
    for (size_t m = 0; m < a.meshes.size(); ++m) {
        const qe::qeTriMesh& meshA = *a.meshes[m];
        const qe::qeTriMesh& meshB = *b.meshes[m];
        for (int row = 0; row < 4; ++row)
            for (int column = 0; column < 4; ++column) {
                EXPECT_EQ(Bits(meshA.Local.GetMatrix()[row][column]), Bits(meshB.Local.GetMatrix()[row][column]))
                    << what << " mesh " << m;
                EXPECT_EQ(Bits(meshA.World.GetMatrix()[row][column]), Bits(meshB.World.GetMatrix()[row][column]))
                    << what << " mesh " << m;
            }
        const qe::qeVertexBuffer& verticesA = *meshA.VBuffer;
        const qe::qeVertexBuffer& verticesB = *meshB.VBuffer;
        ASSERT_EQ(verticesA.GetVertexQuantity(), verticesB.GetVertexQuantity()) << what << " mesh " << m;
        const bool normals = verticesA.GetAttributes().HasNormal();
        ASSERT_EQ(normals, verticesB.GetAttributes().HasNormal()) << what << " mesh " << m;
        size_t differing = 0;
        for (int v = 0; v < verticesA.GetVertexQuantity(); ++v)
            for (int k = 0; k < 3; ++k) {
                differing += Bits(verticesA.Position3(v)[k]) != Bits(verticesB.Position3(v)[k]);
                if (normals) differing += Bits(verticesA.Normal3(v)[k]) != Bits(verticesB.Normal3(v)[k]);
            }
        EXPECT_EQ(differing, 0u) << what << " mesh " << m << ": coordinates that differ";
        const qe::qeIndexBuffer& indicesA = *meshA.IBuffer;
        const qe::qeIndexBuffer& indicesB = *meshB.IBuffer;
        ASSERT_EQ(indicesA.GetIndexQuantity(), indicesB.GetIndexQuantity()) << what << " mesh " << m;
        EXPECT_TRUE(
            std::equal(indicesA.GetData(), indicesA.GetData() + indicesA.GetIndexQuantity(), indicesB.GetData()))
            << what << " mesh " << m << ": index buffers differ";
    }
}

// Imports a file through the built-in readers and through assimp alone,
// with generated and with stored normals: results and errors must agree.
void ExpectBothReadersAgree(const std::string& path) {
    for (const bool generate : {true, false}) {
        contour::ImportOptions builtIn;
        builtIn.generateNormals = generate;
        contour::ImportOptions general = builtIn;
        general.generalReaderOnly = true;
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
