// Registration and the main function shared by the benchmark programs.
#ifndef CTR_BENCHMAIN_H
#define CTR_BENCHMAIN_H

#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

using tModelBody = void (*)(benchmark::State&, const char*);

// One benchmark per stage and model, named stage/model, each given the
// model's path; times in milliseconds.
inline void RegisterGrid(const std::vector<std::pair<const char*, tModelBody>>& stages,
                         const std::vector<std::pair<const char*, const char*>>& models, double minTime) {
    for (const auto& [stageName, body] : stages)
        for (const auto& [modelName, path] : models)
            benchmark::RegisterBenchmark((std::string(stageName) + "/" + modelName).c_str(), body, path)
                ->Unit(benchmark::kMillisecond)
                ->MinTime(minTime);
}

// Runs what is registered; unknown options are refused.
inline int RunBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace bench

#endif
