#include "ctr/drawing/Batch.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "ctr/drawing/OutputFile.h"
#include "ctr/drawing/ThreadPool.h"
#include "ctr/SvgText.h"
#include "ctr/Version.h"

namespace contour {

namespace {

namespace fs = std::filesystem;

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool isModelFile(const fs::path& path) {
    const std::vector<std::string>& taken = BatchModelExtensions();
    return std::find(taken.begin(), taken.end(), lowercase(path.extension().string())) != taken.end();
}

// The model files below folder, by their path below it, sorted byte-wise so
// that the order (and which of two equal names wins) does not depend on the
// file system. Hidden entries are left out: editors' and tools' droppings,
// and the temporaries of drawings being written into a folder inside.
std::vector<fs::path> modelsBelow(const fs::path& folder, std::string& error) {
    std::vector<fs::path> found;
    std::error_code code;
    fs::recursive_directory_iterator walk(folder, fs::directory_options::skip_permission_denied, code);
    for (; !code && walk != fs::recursive_directory_iterator(); walk.increment(code)) {
        const fs::path& path = walk->path();
        if (path.filename().string().rfind('.', 0) == 0) {
            if (walk->is_directory(code)) walk.disable_recursion_pending();
            continue;
        }
        std::error_code ignored;
        if (walk->is_regular_file(ignored) && isModelFile(path)) found.push_back(path.lexically_relative(folder));
    }
    if (code) error = "cannot read the folder '" + folder.string() + "': " + code.message();
    std::sort(found.begin(), found.end(),
              [](const fs::path& a, const fs::path& b) { return a.generic_string() < b.generic_string(); });
    return found;
}

// What a running part asks whether to stop: the batch's flag, which only the
// calling thread sets.
class StopFlag : public DrawingMonitor {
public:
    explicit StopFlag(const std::atomic<bool>& stop) : m_stop(stop) {}
    void phaseStarted(const char*) override {}
    bool shouldCancel() override { return m_stop.load(std::memory_order_relaxed); }
    void setTotalProgress(double) override {}
    void advanceProgress(double) override {}

private:
    const std::atomic<bool>& m_stop;
};

// Newer than every input and made with the same options, as its record says.
bool isCurrent(const DrawingRequest& request) {
    std::error_code code;
    const fs::file_time_type drawn = fs::last_write_time(request.output, code);
    if (code || !fs::is_regular_file(request.output, code)) return false;
    std::vector<std::string> inputs = request.models;
    inputs.insert(inputs.end(), request.occluders.begin(), request.occluders.end());
    for (const std::string& input : inputs) {
        const fs::file_time_type changed = fs::last_write_time(input, code);
        if (code || !(drawn > changed)) return false;
    }
    std::ifstream file(request.statsPath, std::ios::binary);
    const nlohmann::json record = nlohmann::json::parse(file, nullptr, false);
    if (record.is_discarded() || !record.is_object()) return false;
    const auto hash = record.find("optionsHash");
    return hash != record.end() && hash->is_string() && *hash == DrawingOptionsHash(request);
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

PartResult drawPart(const BatchPart& part, const BatchOptions& options, unsigned int threads,
                    const std::atomic<bool>& stop) {
    const auto start = std::chrono::steady_clock::now();
    DrawingRequest request = BatchPartRequest(options, part);
    if (!request.threads) request.threads = threads;
    PartResult result;
    result.model = part.model;
    result.output = request.output;
    result.statsPath = request.statsPath;
    if (!part.refusal.empty()) {
        result.status = part.repeated ? PartStatus::kSkipped : PartStatus::kFailed;
        result.reason = part.refusal;
        return result;
    }
    if (stop.load()) {
        result.reason = "cancelled before it started";
        return result;
    }
    try {
        if (!options.redrawAll && isCurrent(request)) {
            result.status = PartStatus::kSkipped;
            result.reason = "the drawing is newer than the model and made with the same options";
            result.seconds = secondsSince(start);
            return result;
        }
        const fs::path folder = fs::path(request.output).parent_path();
        if (!folder.empty()) {
            // Parts in one subfolder would race to make it.
            static std::mutex folders;
            std::lock_guard<std::mutex> lock(folders);
            std::error_code code;
            fs::create_directories(folder, code);
            if (code) {
                result.status = PartStatus::kFailed;
                result.reason = "cannot make the folder '" + folder.string() + "': " + code.message();
                return result;
            }
        }
        StopFlag monitor(stop);
        const JobOutcome outcome = RunDrawingJob(request, result.run, result.drawing, result.reason, &monitor);
        result.status = outcome == JobOutcome::kDrawn    ? PartStatus::kDrawn
                        : outcome == JobOutcome::kFailed ? PartStatus::kFailed
                                                         : PartStatus::kCancelled;
        if (outcome == JobOutcome::kCancelled) result.reason = "cancelled";
    } catch (const std::exception& failure) {
        result.status = PartStatus::kFailed;
        result.reason = failure.what();
    }
    result.seconds = secondsSince(start);
    return result;
}

}  // namespace

const std::vector<std::string>& BatchModelExtensions() {
    // The built-in readers' formats and the mesh formats that assimp reads
    // and CAD and DCC programs commonly write; anything else can still be
    // given as a file.
    static const std::vector<std::string> extensions = {".obj", ".stl", ".ply", ".off", ".gltf", ".glb",
                                                        ".fbx", ".dae", ".3ds", ".3mf", ".x3d", ".amf",
                                                        ".step", ".stp", ".iges", ".igs", ".brep"};
    return extensions;
}

std::vector<BatchPart> CollectBatchParts(const std::vector<std::string>& paths) {
    std::vector<BatchPart> parts;
    for (const std::string& path : paths) {
        std::error_code code;
        if (!fs::is_directory(path, code)) {
            // Named as a single run names its drawing.
            parts.push_back(BatchPart{path, fs::path(path).stem().string(), "", false});
            continue;
        }
        std::string error;
        for (const fs::path& relative : modelsBelow(path, error))
            parts.push_back(BatchPart{(fs::path(path) / relative).string(),
                                      fs::path(relative).replace_extension().generic_string(), "", false});
        if (!error.empty()) parts.push_back(BatchPart{path, fs::path(path).filename().string(), error, false});
    }
    std::map<std::string, size_t> names, files;
    for (size_t i = 0; i < parts.size(); ++i) {
        BatchPart& part = parts[i];
        if (!part.refusal.empty()) continue;
        std::error_code code;
        const fs::path canonical = fs::weakly_canonical(part.model, code);
        const auto [file, newFile] = files.emplace(code ? part.model : canonical.string(), i);
        const auto [name, newName] = names.emplace(part.name, i);
        if (!newFile) {
            part.repeated = true;
            part.refusal = "the same file as '" + parts[file->second].model + "', drawn once";
        } else if (!newName) {
            part.refusal = "its drawing would replace that of '" + parts[name->second].model + "' (same name)";
        }
    }
    return parts;
}

const char* PartStatusName(PartStatus status) {
    switch (status) {
        case PartStatus::kDrawn: return "drawn";
        case PartStatus::kFailed: return "failed";
        case PartStatus::kSkipped: return "skipped";
        case PartStatus::kCancelled: break;
    }
    return "cancelled";
}

DrawingRequest BatchPartRequest(const BatchOptions& options, const BatchPart& part) {
    DrawingRequest request = options.request;
    request.demo = false;
    request.models = {part.model};
    const std::string base = (fs::path(options.outputFolder) / part.name).string();
    request.output = base + ".svg";
    request.statsPath = base + ".stats.json";
    if (options.titleFromModel) {
        const std::string title = fs::path(part.model).filename().string();
        request.drawing.title = ctr::EscapeXmlText(title, ctr::XmlTextContext::kContent);
        if (request.sheet) request.sheetOptions.title = title;
    }
    return request;
}

std::vector<PartResult> RunBatch(const std::vector<BatchPart>& parts, const BatchOptions& options) {
    const size_t total = parts.size();
    std::vector<PartResult> results(total);
    const unsigned int cores = ThreadPool::DefaultThreadCount();
    const unsigned int jobs = static_cast<unsigned int>(
        std::max<size_t>(1, std::min<size_t>(total, options.jobs ? options.jobs : cores)));
    // Parts share the cores; the drawing is the same with any number of
    // threads, so this only decides the speed.
    const unsigned int threadsPerPart = std::max(1u, cores / jobs);

    std::atomic<bool> stop{false};
    std::atomic<size_t> next{0};
    std::mutex mutex;
    std::condition_variable ended;
    std::deque<size_t> finished;
    const auto work = [&] {
        for (size_t i; (i = next.fetch_add(1)) < total;) {
            PartResult result = drawPart(parts[i], options, threadsPerPart, stop);
            std::lock_guard<std::mutex> lock(mutex);
            results[i] = std::move(result);
            finished.push_back(i);
            ended.notify_one();
        }
    };
    const auto askHost = [&] {
        if (!stop.load() && options.shouldCancel && options.shouldCancel()) stop.store(true);
    };
    // A host that has already asked to stop gets no part started.
    askHost();
    std::vector<std::thread> workers;
    for (unsigned int j = 0; j < jobs; ++j) workers.emplace_back(work);

    // The host hears of every part, and is asked whether to stop, on this
    // thread only: a host with a lock of its own (an interpreter) needs no
    // care for the workers.
    try {
        for (size_t done = 0; done < total;) {
            std::deque<size_t> batch;
            {
                std::unique_lock<std::mutex> lock(mutex);
                ended.wait_for(lock, std::chrono::milliseconds(50), [&] { return !finished.empty(); });
                batch.swap(finished);
            }
            for (const size_t i : batch) {
                ++done;
                if (options.partDone) options.partDone(results[i], done, total);
            }
            askHost();
        }
    } catch (...) {
        stop.store(true);
        for (std::thread& worker : workers) worker.join();
        throw;
    }
    for (std::thread& worker : workers) worker.join();
    return results;
}

bool WriteBatchReport(const std::string& path, const std::vector<PartResult>& results, double seconds,
                      std::string& error) {
    using Json = nlohmann::ordered_json;
    Json parts = Json::array();
    std::map<std::string, size_t> counts = {{"drawn", 0}, {"failed", 0}, {"skipped", 0}, {"cancelled", 0}};
    for (const PartResult& result : results) {
        ++counts[PartStatusName(result.status)];
        parts.push_back({{"path", result.model},
                         {"output", result.output},
                         {"status", PartStatusName(result.status)},
                         {"reason", result.reason},
                         {"seconds", result.seconds}});
    }
    const Json report = {
        {"tool",
         {{"name", "contour"}, {"version", qeContouringLib::Version::GetDescStringMajorMinorReleaseRevisionDate()}}},
        {"parts", parts.size()},
        {"drawn", counts["drawn"]},
        {"failed", counts["failed"]},
        {"skipped", counts["skipped"]},
        {"cancelled", counts["cancelled"]},
        {"seconds", seconds},
        {"results", parts}};
    AtomicOutput output;
    if (!output.create(path, error)) return false;
    {
        std::ofstream file(output.writePath(), std::ios::binary | std::ios::trunc);
        file << report.dump(2) << '\n';
        if (!file.flush()) {
            error = "cannot write the report to '" + path + "'";
            return false;
        }
    }
    return output.commit(error);
}

}  // namespace contour
