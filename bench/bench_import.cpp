// Model import (tools/import): reading the file, joining corners and, for
// files without normals, generating them; the whole ImportModel call.
#include <string>
#include <utility>
#include <vector>

#include "BenchMain.h"
#include "ctr/drawing/ModelImport.h"

namespace {

void Import(benchmark::State& state, const char* relativePath, bool generalReaderOnly) {
    const std::string path = std::string(CTR_MODELS_DIR) + "/" + relativePath;
    contour::ImportOptions options;
    options.generalReaderOnly = generalReaderOnly;
    size_t triangles = 0;
    for (auto _ : state) {
        contour::ImportedModel model;
        std::string error;
        if (!contour::ImportModel(path, model, error, options)) {
            state.SkipWithError(error.c_str());
            return;
        }
        triangles = model.triangleCount;
        benchmark::DoNotOptimize(model.meshes.data());
    }
    state.counters["triangles"] = static_cast<double>(triangles);
}

void ImportFast(benchmark::State& state, const char* path) { Import(state, path, false); }
void ImportGeneral(benchmark::State& state, const char* path) { Import(state, path, true); }

}  // namespace

int main(int argc, char** argv) {
    // The general reader (assimp) is timed on the same files for comparison.
    bench::RegisterGrid({{"import", ImportFast}, {"import_general_reader", ImportGeneral}},
                        {{"igea_1m", "organic/igea_1m_subdivided.ply"},
                         {"bunny", "organic/stanford-bunny.obj"},
                         {"box_holes", "cad-brep/box_holes.obj"},
                         {"cube_split_normals", "cad/cube_split_normals.obj"},
                         {"anchor_stl", "cad/anchor.stl"},
                         {"couplingdown_ascii_ply", "cad/couplingdown.ply"}},
                        0.5);
    return bench::RunBenchmarks(argc, argv);
}
