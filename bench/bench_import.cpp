// Model import (tools/import): reading the file, joining corners and, for
// files without normals, generating them; the whole ImportModel call.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "BenchMain.h"
#include "ctr/drawing/ModelImport.h"

namespace {

void Import(benchmark::State& state, const std::string& path, bool generalReaderOnly) {
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

std::string ModelPath(const char* relative) { return std::string(CTR_MODELS_DIR) + "/" + relative; }
void ImportFast(benchmark::State& state, const char* path) { Import(state, ModelPath(path), false); }
void ImportGeneral(benchmark::State& state, const char* path) { Import(state, ModelPath(path), true); }

// A book of 20,000 pages on one edge, every other page without area, written
// for the run: the normals of an edge of many faces.
void ImportBook(benchmark::State& state) {
    const std::filesystem::path path = std::filesystem::temp_directory_path() / "bench_import_book.obj";
    {
        std::ofstream out(path);
        out << "v 0 0 0\nv 0 0 1\n";
        for (int page = 0; page < 20000; ++page) {
            const double turn = 6.283185307179586 * page / 20000;
            if (page % 2)
                out << "v 0 0 0.5\n";
            else
                out << "v " << std::cos(turn) << " " << std::sin(turn) << " 0.5\n";
        }
        for (int page = 0; page < 20000; ++page) out << "f 1 2 " << page + 3 << "\n";
    }
    Import(state, path.string(), false);
    std::filesystem::remove(path);
}

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
    benchmark::RegisterBenchmark("import/book_20k_pages", ImportBook)->Unit(benchmark::kMillisecond)->MinTime(0.5);
    return bench::RunBenchmarks(argc, argv);
}
