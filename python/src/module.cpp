// The compiled half of the Python package: inputs checked and copied while
// the interpreter is held, the drawing computed on a thread of its own while
// it is not, and the results handed back as text and arrays. The keyword
// handling and the documentation live in the package's Python half.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ctr/drawing/Batch.h"
#include "ctr/drawing/Camera.h"
#include "ctr/SheetLayout.h"
#include "ctr/drawing/HostDrawing.h"
#include "ctr/drawing/Job.h"
#include "ctr/drawing/ModelImport.h"
#include "ctr/drawing/OutputFile.h"
#include "ctr/drawing/ThreadPool.h"
#include "ctr/LineSegmentSet.h"
#include "ctr/SvgText.h"

namespace py = pybind11;

namespace {

// One input as the worker takes it: a file to import, or arrays copied out
// of the interpreter's objects.
struct Pending {
    std::string label;
    std::string path;  // empty for arrays
    std::vector<float> positions, normals;
    std::vector<unsigned int> corners;
    bool normalsPerCorner = false;

    contour::MeshArrays arrays() const {
        contour::MeshArrays result;
        result.positions = positions.data();
        result.vertexCount = positions.size() / 3;
        result.corners = corners.data();
        result.triangleCount = corners.size() / 3;
        result.normals = normals.empty() ? nullptr : normals.data();
        result.normalsPerCorner = normalsPerCorner;
        return result;
    }
};

[[noreturn]] void refuse(const std::string& reason) { throw py::value_error(reason); }

std::string shapeText(const py::array& array) {
    std::string text = "(";
    for (py::ssize_t i = 0; i < array.ndim(); ++i) text += (i ? ", " : "") + std::to_string(array.shape(i));
    return text + (array.ndim() == 1 ? ",)" : ")");
}

py::array asArray(py::handle object, const char* what) {
    py::array array = py::array::ensure(object);
    if (!array) {
        PyErr_Clear();
        refuse(std::string(what) + " are not an array");
    }
    return array;
}

std::vector<float> floats(py::handle object, const char* what, py::ssize_t rows, py::ssize_t columns,
                          py::ssize_t* count) {
    const py::array array = asArray(object, what);
    const char kind = array.dtype().kind();
    if (kind != 'f' || (array.itemsize() != 4 && array.itemsize() != 8))
        refuse(std::string(what) + " must be float32 or float64, not " + std::string(py::str(array.dtype())));
    const bool shaped = rows == 0 ? array.ndim() == 2 && array.shape(1) == 3
                                  : array.ndim() == 3 && array.shape(0) == rows && array.shape(1) == columns &&
                                        array.shape(2) == 3;
    if (!shaped)
        refuse(std::string(what) + " must have shape " +
               (rows == 0 ? std::string("(n, 3)") : "(" + std::to_string(rows) + ", 3, 3)") + ", not " +
               shapeText(array));
    if (count) *count = array.shape(0);
    // Float64 coordinates round to the nearest float, as a file's decimals
    // are read.
    const auto converted = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(array);
    return std::vector<float>(converted.data(), converted.data() + converted.size());
}

Pending meshInput(const py::tuple& input) {
    Pending pending;
    pending.label = input[1].cast<std::string>();
    py::ssize_t vertexCount = 0;
    pending.positions = floats(input[2], "vertices", 0, 0, &vertexCount);
    if (vertexCount == 0) refuse("the mesh has no vertices");
    const py::array faces = asArray(input[3], "faces");
    if (faces.dtype().kind() != 'i' && faces.dtype().kind() != 'u')
        refuse("faces must be integers, not " + std::string(py::str(faces.dtype())));
    if (faces.ndim() != 2 || faces.shape(1) != 3) refuse("faces must have shape (m, 3), not " + shapeText(faces));
    if (faces.shape(0) == 0) refuse("the mesh has no faces");
    const auto indices = py::array_t<int64_t, py::array::c_style | py::array::forcecast>::ensure(faces);
    if (faces.dtype().kind() == 'u' && faces.itemsize() == 8) {
        // Past int64 they would wrap round to small numbers.
        const auto original = py::array_t<uint64_t, py::array::c_style | py::array::forcecast>::ensure(faces);
        for (py::ssize_t i = 0; i < original.size(); ++i)
            if (original.data()[i] >= static_cast<uint64_t>(vertexCount))
                refuse("face " + std::to_string(i / 3) + " names vertex " + std::to_string(original.data()[i]) +
                       ", but there are " + std::to_string(vertexCount) + " vertices");
    }
    pending.corners.resize(static_cast<size_t>(indices.size()));
    for (py::ssize_t i = 0; i < indices.size(); ++i) {
        const int64_t index = indices.data()[i];
        if (index < 0 || index >= vertexCount)
            refuse("face " + std::to_string(i / 3) + " names vertex " + std::to_string(index) + ", but there are " +
                   std::to_string(vertexCount) + " vertices");
        pending.corners[static_cast<size_t>(i)] = static_cast<unsigned int>(index);
    }
    if (!input[4].is_none()) {
        const py::array normals = asArray(input[4], "normals");
        const bool perCorner = normals.ndim() == 3;
        pending.normals = floats(normals, "normals", perCorner ? faces.shape(0) : 0, 3, nullptr);
        if (!perCorner && normals.shape(0) != vertexCount)
            refuse("normals must have shape (" + std::to_string(vertexCount) + ", 3) or (" +
                   std::to_string(faces.shape(0)) + ", 3, 3), not " + shapeText(normals));
        pending.normalsPerCorner = perCorner;
    }
    std::string error;
    if (!contour::CheckMeshArrays(pending.arrays(), error)) refuse(error);
    return pending;
}

std::vector<Pending> inputs(const py::list& list) {
    std::vector<Pending> result;
    for (const py::handle item : list) {
        const py::tuple input = py::reinterpret_borrow<py::tuple>(item);
        if (input[0].cast<std::string>() == "path") {
            Pending pending;
            pending.path = pending.label = input[1].cast<std::string>();
            result.push_back(std::move(pending));
        } else {
            result.push_back(meshInput(input));
        }
    }
    return result;
}

Wm4::Vector3<double> vector3(const py::handle value) {
    const auto xyz = value.cast<std::array<double, 3>>();
    return Wm4::Vector3<double>(xyz[0], xyz[1], xyz[2]);
}

// The request from the options that the Python half has checked and
// completed with the tool's defaults.
contour::DrawingRequest request(const py::dict& o) {
    contour::DrawingRequest r;
    contour::CameraOptions& camera = r.drawing.camera;
    if (!contour::ParseViewPreset(o["view"].cast<std::string>(), camera.view)) refuse("unknown view");
    if (!o["azimuth_elevation"].is_none())
        camera.azimuthElevation = o["azimuth_elevation"].cast<std::array<double, 2>>();
    if (!o["eye"].is_none()) camera.eye = vector3(o["eye"]);
    if (!o["target"].is_none()) camera.target = vector3(o["target"]);
    camera.up = vector3(o["up"]);
    r.upGiven = o.contains("up_given") && o["up_given"].cast<bool>();
    camera.perspective = o["perspective"].cast<bool>();
    camera.fovDegrees = o["fov"].cast<double>();
    camera.marginMM = o["margin"].cast<double>();
    r.drawing.pageWidthMM = o["page_width"].cast<double>();
    r.drawing.pageHeightMM = o["page_height"].cast<double>();
    r.pageLabel = o["page_label"].cast<std::string>();
    const auto bits = o["bits"].cast<std::array<unsigned int, 2>>();
    if (!contour::BitSizesAccepted(bits[0], bits[1]))
        refuse("bits: " + std::to_string(bits[0]) + "," + std::to_string(bits[1]) +
               " is refused: XY,Z need XY > 1, Z > 1 and 2*XY + Z <= 59");
    r.drawing.xyBits = bits[0];
    r.drawing.zBits = bits[1];
    r.threads = o["threads"].cast<unsigned int>();
    r.drawing.hiddenLines = o["hidden"].cast<bool>();
    r.drawing.layers = o["layers"].cast<bool>();
    r.drawing.arcs = o["arcs"].cast<bool>();
    r.drawing.keepCommon = o["keep_common"].cast<bool>();
    r.drawing.title = ctr::EscapeXmlText(o["title"].cast<std::string>(), ctr::XmlTextContext::kContent);
    r.drawing.description = ctr::EscapeXmlText(o["description"].cast<std::string>(), ctr::XmlTextContext::kContent);
    if (!o["crease_width"].is_none()) r.drawing.creaseWidthMM = o["crease_width"].cast<float>();
    if (!o["silhouette_width"].is_none()) r.drawing.silhouetteWidthMM = o["silhouette_width"].cast<float>();
    if (!o["color"].is_none()) {
        const auto rgb = o["color"].cast<std::array<int, 3>>();
        // As the tool does: the exporter truncates channel * 255, so aim at
        // the middle of the wanted integer.
        r.drawing.color = Wm4::ColorRGB((static_cast<float>(rgb[0]) + 0.5f) / 255.0f,
                                        (static_cast<float>(rgb[1]) + 0.5f) / 255.0f,
                                        (static_cast<float>(rgb[2]) + 0.5f) / 255.0f);
    }
    r.import.smoothingAngleDegrees = o["smoothing_angle"].cast<float>();
    if (o.contains("tolerance") && !o["tolerance"].is_none()) r.import.chordTolerance = o["tolerance"].cast<double>();
    if (o.contains("units") && !o["units"].is_none()) {
        contour::LengthUnit unit;
        if (!contour::ParseLengthUnit(o["units"].cast<std::string>(), unit)) refuse("units: unknown unit");
        r.units = unit;
    }
    r.sheet = o["sheet"].cast<bool>();
    r.sheetOptions.projection =
        o["projection"].cast<std::string>() == "first" ? ctr::ProjectionMethod::kFirstAngle : ctr::ProjectionMethod::kThirdAngle;
    r.sheetOptions.title = o["sheet_title"].cast<std::string>();
    r.sheetOptions.date = contour::SheetDate();
    if (o.contains("scale") && !o["scale"].cast<std::string>().empty()) {
        ctr::SheetScale scale;
        if (!ctr::ParseSheetScale(o["scale"].cast<std::string>(), scale))
            refuse("scale: '" + o["scale"].cast<std::string>() + "' is not DRAWN:MODEL with two whole numbers, e.g. 1:2");
        r.sheetOptions.scale = scale;
    }
    if (o.contains("front") && !o["front"].is_none()) r.sheetOptions.front = vector3(o["front"]);
    if (o.contains("part_number")) r.sheetOptions.partNumber = o["part_number"].cast<std::string>();
    if (o.contains("drawn_by")) r.sheetOptions.drawnBy = o["drawn_by"].cast<std::string>();
    if (o.contains("iso_hidden")) r.sheetOptions.isoHidden = o["iso_hidden"].cast<bool>();
    return r;
}

// Progress and cancelling between the drawing's thread and the
// interpreter's: the drawing leaves what it reports here, the interpreter
// passes it on to the callback and asks to stop.
class Monitor : public contour::DrawingMonitor {
public:
    void phaseStarted(const char* name) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_phase = name;
        m_started.emplace_back(name, fraction());
        m_changed = false;
    }
    bool shouldCancel() override { return cancel.load(); }
    void setTotalProgress(double total) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_total = total;
        m_done = 0.0;
        m_changed = true;
    }
    void advanceProgress(double amount) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_done += amount;
        m_changed = true;
    }
    double getRemainingProgress() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return std::max(0.0, m_total - m_done);
    }
    // Every phase begun since the last call, and the fraction done when it
    // has changed since, so that a quick drawing still reports each phase.
    std::vector<std::pair<std::string, double>> news() {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<std::pair<std::string, double>> reports;
        reports.swap(m_started);
        if (m_changed) reports.emplace_back(m_phase, fraction());
        m_changed = false;
        return reports;
    }

    std::atomic<bool> cancel{false};

private:
    double fraction() const { return m_total > 0.0 ? std::clamp(m_done / m_total, 0.0, 1.0) : 0.0; }

    std::vector<std::pair<std::string, double>> m_started;
    mutable std::mutex m_mutex;
    std::string m_phase;
    double m_total = 0.0, m_done = 0.0;
    bool m_changed = false;
};

// A kind of line in plain arrays: segments (world, page) and the polylines
// as the single-view file chains them.
struct KindLines {
    std::vector<float> world, page;  // 6 and 4 floats per segment
    std::vector<std::vector<float>> polyWorld, polyPage;  // 3 and 2 floats per point
};

void collect(const qe::qePointer<ctr::LineSegmentSet>& set, const ctr::ExportParameters& parameters,
             KindLines& lines) {
    if (!set || !set->VBuffer || !set->IBuffer) return;
    const auto point = [&](const ctr::LineSegmentSet& from, unsigned int index, std::vector<float>& world,
                           std::vector<float>& page) {
        const Wm4::Vector3<float> p = from.World.ApplyForward(from.VBuffer->Position3(static_cast<int>(index)), true);
        const Wm4::Vector2<float> onPage = parameters.worldToSheet(p);
        world.insert(world.end(), {p[0], p[1], p[2]});
        page.insert(page.end(), {onPage[0], onPage[1]});
    };
    const unsigned int* indices = set->IBuffer->GetData();
    for (int i = 0; i + 1 < set->IBuffer->GetIndexQuantity(); i += 2) {
        point(*set, indices[i], lines.world, lines.page);
        point(*set, indices[i + 1], lines.world, lines.page);
    }
    std::vector<ctr::LineSegmentSet::ArcFeature> arcs;
    const qe::qePointer<ctr::LineSegmentSet> chained = ctr::LineSegmentSet::BuildPolylines(*set, arcs, true);
    if (!chained || !chained->IBuffer) return;
    // A polyline runs on while each segment starts at the vertex where the
    // one before ended, as the writer's paths do.
    const unsigned int* chain = chained->IBuffer->GetData();
    for (int i = 0; i + 1 < chained->IBuffer->GetIndexQuantity(); i += 2) {
        if (i == 0 || chain[i] != chain[i - 1]) {
            lines.polyWorld.emplace_back();
            lines.polyPage.emplace_back();
            point(*chained, chain[i], lines.polyWorld.back(), lines.polyPage.back());
        }
        point(*chained, chain[i + 1], lines.polyWorld.back(), lines.polyPage.back());
    }
}

py::array_t<double> toArray(const std::vector<float>& values, std::vector<py::ssize_t> shape) {
    py::array_t<double> array(shape);
    std::copy(values.begin(), values.end(), array.mutable_data());
    return array;
}

enum class Failure { kNone, kInput, kArrays, kDrawing };

// Runs work on a thread of its own while the interpreter waits in short
// slices: between them it runs its signal handlers (Ctrl-C) and the progress
// callback, and either may ask the work to stop through the monitor. work
// must not throw. Raises what the callback or a handler raised, once the
// work has ended.
void computeAside(Monitor& monitor, const py::object& progress, const std::function<void()>& work) {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    std::thread worker;
    {
        py::gil_scoped_release release;
        worker = std::thread([&] {
            work();
            std::lock_guard<std::mutex> lock(mutex);
            done = true;
            finished.notify_all();
        });
    }
    bool raised = false;
    const auto report = [&]() {
        if (progress.is_none() || raised) return;
        for (const auto& [phase, fraction] : monitor.news()) try {
                progress(phase, fraction);
            } catch (py::error_already_set& exception) {
                exception.restore();
                raised = true;
                monitor.cancel = true;
                return;
            }
    };
    for (bool over = false; !over;) {
        {
            py::gil_scoped_release release;
            std::unique_lock<std::mutex> lock(mutex);
            over = finished.wait_for(lock, std::chrono::milliseconds(50), [&] { return done; });
        }
        if (!raised && PyErr_CheckSignals() != 0) {
            raised = true;
            monitor.cancel = true;
        }
        report();
    }
    {
        py::gil_scoped_release release;
        worker.join();
    }
    if (raised) throw py::error_already_set();
}

// The inputs imported as the request's import options say, on the worker,
// with the seconds it took: Failure::kInput or kArrays with error for one
// that cannot be taken, and false (without a failure) when the monitor asked
// to stop.
bool importInputs(const std::vector<Pending>& models, const std::vector<Pending>& occluders,
                  const contour::ImportOptions& asked, unsigned int threads,
                  std::vector<contour::HostInput> (&loaded)[2], double& seconds, Failure& failure,
                  std::string& error, Monitor& monitor) {
    const auto start = std::chrono::steady_clock::now();
    // Normals made for meshes without them run on the drawing's threads.
    contour::ThreadPool pool(threads ? threads : contour::ThreadPool::DefaultThreadCount());
    contour::ImportOptions options = asked;
    if (pool.threadCount() > 1) options.executor = &pool;
    monitor.phaseStarted("import");
    for (int role = 0; role < 2; ++role)
        for (const Pending& input : role == 0 ? models : occluders) {
            loaded[role].emplace_back();
            loaded[role].back().label = input.label;
            contour::ImportedModel& model = loaded[role].back().model;
            if (input.path.empty() ? !contour::AddMeshArrays(input.arrays(), input.label, model, error, options)
                                   : !contour::ImportModel(input.path, model, error, options)) {
                failure = input.path.empty() ? Failure::kArrays : Failure::kInput;
                return false;
            }
            if (monitor.shouldCancel()) return false;
        }
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return true;
}

// A finished drawing's lines, collected on the worker.
void collectLines(const contour::HostDrawing& drawing, std::map<std::string, KindLines>& kinds) {
    if (!drawing.lines.parameters) return;
    const ctr::ExportParameters& parameters = *drawing.lines.parameters;
    collect(drawing.lines.creases, parameters, kinds["crease"]);
    collect(drawing.lines.silhouettes, parameters, kinds["silhouette"]);
    collect(drawing.lines.intersections, parameters, kinds["intersection"]);
    KindLines& hidden = kinds["hidden"];
    for (const auto& set : drawing.lines.hidden) collect(set, parameters, hidden);
}

// Raises what ended the work: Ctrl-C or a cancel as KeyboardInterrupt, a
// file that cannot be read as OSError, bad arrays and options the drawing
// cannot meet as ValueError, anything else as RuntimeError.
void raiseFailure(contour::JobOutcome outcome, Failure failure, const std::string& error, bool refused) {
    if (outcome == contour::JobOutcome::kCancelled) {
        PyErr_SetNone(PyExc_KeyboardInterrupt);
        throw py::error_already_set();
    }
    if (failure == Failure::kInput) {
        PyErr_SetString(PyExc_OSError, error.c_str());
        throw py::error_already_set();
    }
    // An option the drawing cannot meet (a forced scale too large) is the
    // caller's value error, as the tool makes it a usage error.
    if (failure == Failure::kArrays || (failure == Failure::kDrawing && refused)) refuse(error);
    if (failure != Failure::kNone) throw std::runtime_error(error);
}

py::dict drawingDict(const contour::HostDrawing& drawing, const std::map<std::string, KindLines>& kinds) {
    py::dict result;
    result["svg"] = py::str(drawing.svg);
    result["stats"] = py::str(drawing.record);
    py::dict lines;
    for (const auto& [name, kind] : kinds) {
        const py::ssize_t count = static_cast<py::ssize_t>(kind.page.size() / 4);
        py::list polyWorld, polyPage;
        for (size_t i = 0; i < kind.polyPage.size(); ++i) {
            const py::ssize_t points = static_cast<py::ssize_t>(kind.polyPage[i].size() / 2);
            polyWorld.append(toArray(kind.polyWorld[i], {points, 3}));
            polyPage.append(toArray(kind.polyPage[i], {points, 2}));
        }
        lines[py::str(name)] = py::make_tuple(toArray(kind.world, {count, 2, 3}), toArray(kind.page, {count, 2, 2}),
                                              polyWorld, polyPage);
    }
    result["lines"] = lines;
    return result;
}

// One drawing on the worker: draw(drawing, error, monitor) gives the
// outcome, and the lines of a drawn single view are collected there too.
template <typename Draw>
py::dict drawAside(const py::object& progress, const Draw& draw) {
    Monitor monitor;
    contour::HostDrawing drawing;
    std::map<std::string, KindLines> kinds;
    contour::JobOutcome outcome = contour::JobOutcome::kFailed;
    Failure failure = Failure::kNone;
    std::string error;
    computeAside(monitor, progress, [&] {
        try {
            outcome = draw(drawing, error, monitor, failure);
            if (outcome == contour::JobOutcome::kFailed && failure == Failure::kNone) failure = Failure::kDrawing;
            if (outcome == contour::JobOutcome::kDrawn) collectLines(drawing, kinds);
        } catch (const std::exception& exception) {
            error = exception.what();
            failure = Failure::kDrawing;
        }
    });
    raiseFailure(outcome, failure, error, drawing.stats.optionRefused);
    if (!progress.is_none()) progress("done", 1.0);
    return drawingDict(drawing, kinds);
}

py::dict draw(const py::list& modelList, const py::list& occluderList, const py::dict& options,
              const py::object& progress) {
    const contour::DrawingRequest job = request(options);
    std::vector<Pending> models = inputs(modelList), occluders = inputs(occluderList);
    if (models.empty()) refuse("nothing to draw: no model given");
    return drawAside(progress, [&](contour::HostDrawing& drawing, std::string& error, Monitor& monitor,
                                   Failure& failure) {
        std::vector<contour::HostInput> loaded[2];
        double importSeconds = 0.0;
        if (!importInputs(models, occluders, job.import, job.threads, loaded, importSeconds, failure, error, monitor))
            return failure == Failure::kNone ? contour::JobOutcome::kCancelled : contour::JobOutcome::kFailed;
        return contour::DrawHostModels(job, loaded[0], loaded[1], importSeconds, drawing, error, &monitor);
    });
}

// A model read and prepared once (contour.Model): each drawing of it starts
// from the prepared edges. Drawings may be asked for from several Python
// threads at once; each runs on a worker of its own.
class Model {
public:
    Model(const py::list& modelList, const py::list& occluderList, const py::dict& options) {
        const contour::DrawingRequest job = request(options);
        std::vector<Pending> models = inputs(modelList), occluders = inputs(occluderList);
        if (models.empty()) refuse("nothing to draw: no model given");
        Monitor monitor;
        contour::JobOutcome outcome = contour::JobOutcome::kDrawn;
        Failure failure = Failure::kNone;
        std::string error;
        computeAside(monitor, py::none(), [&] {
            try {
                std::vector<contour::HostInput> loaded[2];
                double importSeconds = 0.0;
                if (!importInputs(models, occluders, job.import, job.threads, loaded, importSeconds, failure, error,
                                  monitor)) {
                    if (failure == Failure::kNone) outcome = contour::JobOutcome::kCancelled;
                    return;
                }
                m_prepared = std::make_shared<const contour::PreparedDrawing>(loaded[0], loaded[1], job.units,
                                                                              job.threads, importSeconds);
            } catch (const std::bad_alloc&) {
                error = "not enough memory for the model";
                failure = Failure::kDrawing;
            } catch (const std::exception& exception) {
                error = exception.what();
                failure = Failure::kDrawing;
            }
        });
        raiseFailure(outcome, failure, error, false);
    }

    py::dict draw(const py::dict& options, const py::object& progress) const {
        const contour::DrawingRequest job = request(options);
        // Held by the worker too, whatever becomes of this object meanwhile.
        const std::shared_ptr<const contour::PreparedDrawing> prepared = m_prepared;
        return drawAside(progress, [&](contour::HostDrawing& drawing, std::string& error, Monitor& monitor, Failure&) {
            return prepared->Draw(job, drawing, error, &monitor);
        });
    }

private:
    std::shared_ptr<const contour::PreparedDrawing> m_prepared;
};

// Writes text to path as the tool writes its drawings: the file is replaced
// only once complete.
void save(const std::string& path, const std::string& text) {
    std::string error;
    contour::AtomicOutput output;
    bool written = output.create(path, error);
    if (written) {
        std::FILE* file = std::fopen(output.writePath().c_str(), "wb");
        written = file && std::fwrite(text.data(), 1, text.size(), file) == text.size();
        written = (file && std::fclose(file) == 0) && written;
        if (!written) error = "cannot write '" + path + "'";
        written = written && output.commit(error);
    }
    if (!written) {
        PyErr_SetString(PyExc_OSError, error.c_str());
        throw py::error_already_set();
    }
}

// The parts of the given paths as the tool's batch finds them: (model, name,
// refusal, repeated) tuples, which run_batch takes back, whole or one by one.
py::list collectParts(const std::vector<std::string>& paths) {
    py::list parts;
    for (const contour::BatchPart& part : contour::CollectBatchParts(paths))
        parts.append(py::make_tuple(part.model, part.name, part.refusal, part.repeated));
    return parts;
}

py::dict resultDict(const contour::PartResult& result) {
    py::dict entry;
    entry["path"] = result.model;
    entry["output"] = result.output;
    entry["status"] = contour::PartStatusName(result.status);
    entry["reason"] = result.reason;
    entry["seconds"] = result.seconds;
    return entry;
}

// Runs the drawing layer's batch on this thread with the interpreter's lock
// released; the batch calls back only on this thread, where the lock is taken
// again for the callback and to run the signal handlers. on_part(done, total)
// returns true to stop. Returns the results and whether a signal (Ctrl-C)
// stopped the batch, so that the caller writes the report before raising.
py::tuple runBatch(const py::list& partList, const std::string& outputFolder, const py::dict& options,
                   const std::vector<std::string>& occluders, unsigned int jobs, bool force, bool titleFromModel,
                   const py::object& onPart) {
    std::vector<contour::BatchPart> parts;
    for (const py::handle item : partList) {
        const py::tuple tuple = py::reinterpret_borrow<py::tuple>(item);
        contour::BatchPart part;
        part.model = tuple[0].cast<std::string>();
        part.name = tuple[1].cast<std::string>();
        part.refusal = tuple[2].cast<std::string>();
        part.repeated = tuple[3].cast<bool>();
        parts.push_back(std::move(part));
    }
    contour::BatchOptions batch;
    batch.request = request(options);
    batch.request.occluders = occluders;
    batch.titleFromModel = titleFromModel;
    batch.outputFolder = outputFolder;
    batch.jobs = jobs;
    batch.redrawAll = force;
    bool stopped = false, interrupted = false;
    std::optional<py::error_already_set> raised;
    batch.partDone = [&](const contour::PartResult&, size_t done, size_t total) {
        if (onPart.is_none() || stopped) return;
        py::gil_scoped_acquire hold;
        try {
            stopped = py::bool_(onPart(done, total));
        } catch (py::error_already_set& exception) {
            raised.emplace(std::move(exception));
            stopped = true;
        }
    };
    batch.shouldCancel = [&] {
        if (stopped) return true;
        py::gil_scoped_acquire hold;
        if (PyErr_CheckSignals() != 0) {
            PyErr_Clear();
            stopped = interrupted = true;
        }
        return stopped;
    };
    std::vector<contour::PartResult> results;
    {
        py::gil_scoped_release release;
        results = contour::RunBatch(parts, batch);
    }
    if (raised) throw std::move(*raised);
    py::list list;
    for (const contour::PartResult& result : results) list.append(resultDict(result));
    return py::make_tuple(list, interrupted);
}

// The tool's JSON report of results given as run_batch returns them.
void writeReport(const std::string& path, const py::list& entries, double seconds) {
    std::vector<contour::PartResult> results;
    for (const py::handle item : entries) {
        const py::dict entry = py::reinterpret_borrow<py::dict>(item);
        contour::PartResult result;
        result.model = entry["path"].cast<std::string>();
        result.output = entry["output"].cast<std::string>();
        const std::string status = entry["status"].cast<std::string>();
        for (const auto candidate : {contour::PartStatus::kDrawn, contour::PartStatus::kFailed,
                                     contour::PartStatus::kSkipped, contour::PartStatus::kCancelled})
            if (status == contour::PartStatusName(candidate)) result.status = candidate;
        result.reason = entry["reason"].cast<std::string>();
        result.seconds = entry["seconds"].cast<double>();
        results.push_back(std::move(result));
    }
    std::string error;
    if (!contour::WriteBatchReport(path, results, seconds, error)) {
        PyErr_SetString(PyExc_OSError, error.c_str());
        throw py::error_already_set();
    }
}

}  // namespace

PYBIND11_MODULE(_contour, module) {
    module.doc() = "The compiled drawing engine of the contour package; use contour.draw and contour.sheet.";
    module.def("draw", &draw, py::arg("models"), py::arg("occluders"), py::arg("options"), py::arg("progress"),
               "Draws checked inputs with checked options; see contour.draw.");
    py::class_<Model>(module, "Model", "A model read and prepared once; see contour.Model.")
        .def(py::init<const py::list&, const py::list&, const py::dict&>(), py::arg("models"), py::arg("occluders"),
             py::arg("options"), "Reads the checked inputs and prepares them with the options' import and units.")
        .def("draw", &Model::draw, py::arg("options"), py::arg("progress"),
             "Draws a view or a sheet with checked options; see contour.Model.draw and contour.Model.sheet.");
    module.def("save", &save, py::arg("path"), py::arg("text"),
               "Writes text to path, replacing a file there only once complete.");
    module.def("collect_parts", &collectParts, py::arg("paths"),
               "The parts of files and folders as the tool's batch finds them; see contour.batch.");
    module.def("run_batch", &runBatch, py::arg("parts"), py::arg("out_dir"), py::arg("options"),
               py::arg("occluders"), py::arg("jobs"), py::arg("force"), py::arg("title_from_model"),
               py::arg("on_part"), "Draws parts as the tool's batch does; see contour.batch.");
    module.def("write_report", &writeReport, py::arg("path"), py::arg("results"), py::arg("seconds"),
               "Writes the batch's JSON report of results; see contour.batch.");
}
