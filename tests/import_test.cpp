// The model importer shared by the tool, the tests and the benchmarks: real
// files load with their triangle counts, broken ones fail with a reason.
#include <cmath>
#include <cstdio>
#include <fstream>

#include <gtest/gtest.h>

#include "ModelImport.h"
#include "TestSupport.h"

namespace {

TEST(ModelImport, LoadsTheFormatsOfTheTestModels) {
    struct Expected {
        const char* file;
        size_t meshes;
        size_t triangles;
        bool normals;
    };
    // Counts as published with the models; the glTF assembly places some of
    // its meshes more than once. Normals as the files give them.
    contour::ImportOptions asStored;
    asStored.generateNormals = false;
    for (const Expected& e : {Expected{"cad/fandisk.obj", 1, 12946, false},
                              {"cad/anchor.stl", 1, 1050, true},
                              {"cad/couplingdown.ply", 1, 3714, false},
                              {"organic/armadillo_86k.ply", 1, 86482, false},
                              {"cad/featuretype_vertex_normals.ply", 1, 3476, true},
                              {"scenes/two_balls_intersecting.obj", 2, 7592, false},
                              {"scenes/2CylinderEngine.glb", 115, 121496, true}}) {
        contour::ImportedModel model;
        std::string error;
        ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath(e.file), model, error, asStored))
            << e.file << ": " << error;
        EXPECT_EQ(model.meshes.size(), e.meshes) << e.file;
        EXPECT_EQ(model.triangleCount, e.triangles) << e.file;
        EXPECT_EQ(model.hasNormals, e.normals) << e.file;
        EXPECT_EQ(model.names.size(), model.meshes.size());
    }
}

TEST(ModelImport, JoinsOnlyBitIdenticalCorners) {
    // OBJ corners arrive one per face corner; joining gives back the file's
    // 35,947 positions less the 1,113 that no face uses.
    contour::ImportOptions asStored;
    asStored.generateNormals = false;
    contour::ImportedModel bunny;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath("organic/stanford-bunny.obj"), bunny, error, asStored))
        << error;
    EXPECT_EQ(bunny.vertexCount, 35947u - 1113u);
    // Split normals along creases stay split: 26 positions of the cube carry
    // 54 distinct position and normal pairs.
    contour::ImportedModel cube;
    ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath("cad/cube_split_normals.obj"), cube, error)) << error;
    EXPECT_EQ(cube.vertexCount, 54u);
}

TEST(ModelImport, GeneratedNormalsSplitOnlySharpEdges) {
    // A unit cube stored as positions only, with a roof over its top face
    // folded by 10 degrees: the cube's 90-degree edges split their corners,
    // the shallow fold of the roof does not.
    const std::string path = ::testing::TempDir() + "generated_normals.obj";
    {
        std::ofstream file(path);
        file << "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\n"
                "f 1 4 3\nf 1 3 2\nf 5 6 7\nf 5 7 8\nf 1 2 6\nf 1 6 5\n"
                "f 2 3 7\nf 2 7 6\nf 3 4 8\nf 3 8 7\nf 4 1 5\nf 4 5 8\n"
                "o roof\nv 0 0 3\nv 1 0 3\nv 1 0.5 3.0881\nv 0 0.5 3.0881\nv 1 1 3\nv 0 1 3\n"
                "f 9 10 11\nf 9 11 12\nf 12 11 13\nf 12 13 14\n";
    }
    contour::ImportedModel model;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(path, model, error)) << error;
    ASSERT_EQ(model.meshes.size(), 2u);
    EXPECT_TRUE(model.hasNormals);
    const qe::qeVertexBuffer& cube = *model.meshes[0]->VBuffer;
    ASSERT_EQ(cube.GetVertexQuantity(), 24);
    for (int i = 0; i < 24; ++i) {
        const Wm4::Vector3<float>& n = cube.Normal3(i);
        EXPECT_EQ(std::fabs(n[0]) + std::fabs(n[1]) + std::fabs(n[2]), 1.0f) << "face normal of an axis: " << i;
    }
    EXPECT_EQ(model.meshes[1]->VBuffer->GetVertexQuantity(), 6);
    std::remove(path.c_str());
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
