// The model importer shared by the tool, the tests and the benchmarks: real
// files load with their triangle counts, broken ones fail with a reason.
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
    // its meshes more than once.
    for (const Expected& e : {Expected{"cad/fandisk.obj", 1, 12946, false},
                              {"cad/anchor.stl", 1, 1050, true},
                              {"cad/couplingdown.ply", 1, 3714, false},
                              {"organic/armadillo_86k.ply", 1, 86482, false},
                              {"cad/featuretype_vertex_normals.ply", 1, 3476, true},
                              {"scenes/two_balls_intersecting.obj", 2, 7592, false},
                              {"scenes/2CylinderEngine.glb", 115, 121496, true}}) {
        contour::ImportedModel model;
        std::string error;
        ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath(e.file), model, error)) << e.file << ": " << error;
        EXPECT_EQ(model.meshes.size(), e.meshes) << e.file;
        EXPECT_EQ(model.triangleCount, e.triangles) << e.file;
        EXPECT_EQ(model.hasNormals, e.normals) << e.file;
        EXPECT_EQ(model.names.size(), model.meshes.size());
    }
}

TEST(ModelImport, JoinsOnlyBitIdenticalCorners) {
    // OBJ corners arrive one per face corner; joining gives back the file's
    // 35,947 positions less the 1,113 that no face uses.
    contour::ImportedModel bunny;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath("organic/stanford-bunny.obj"), bunny, error)) << error;
    EXPECT_EQ(bunny.vertexCount, 35947u - 1113u);
    // Split normals along creases stay split: 26 positions of the cube carry
    // 54 distinct position and normal pairs.
    contour::ImportedModel cube;
    ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath("cad/cube_split_normals.obj"), cube, error)) << error;
    EXPECT_EQ(cube.vertexCount, 54u);
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
