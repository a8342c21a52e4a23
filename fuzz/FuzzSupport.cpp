#include "FuzzSupport.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <unistd.h>

#include "Welding.h"
#include "ctr/drawing/ModelImport.h"

namespace ctr_fuzz {

using contour::importer::tSourceMesh;
using contour::importer::tVec3;

void Fail(const char* format, ...) {
    std::fputs("fuzz check failed: ", stderr);
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
    std::fflush(stderr);
    std::abort();
}

bool DifferentialMode() {
    static const bool on = [] {
        const char* value = std::getenv("CTR_FUZZ_DIFFERENTIAL");
        return value && *value && std::strcmp(value, "0") != 0;
    }();
    return on;
}

namespace {

uint32_t bits(float value) {
    uint32_t out;
    std::memcpy(&out, &value, sizeof out);
    return out;
}

bool sameBits(const tVec3& a, const Wm4::Vector3<float>& b) {
    return bits(a.x) == bits(b[0]) && bits(a.y) == bits(b[1]) && bits(a.z) == bits(b[2]);
}

bool sameBits(const Wm4::Vector3<float>& a, const Wm4::Vector3<float>& b) {
    return bits(a[0]) == bits(b[0]) && bits(a[1]) == bits(b[1]) && bits(a[2]) == bits(b[2]);
}

bool finite(float x, float y, float z) { return std::isfinite(x) && std::isfinite(y) && std::isfinite(z); }

// The meshes as a reader must leave them, whatever the format.
void checkSourceMeshes(const std::vector<tSourceMesh>& meshes) {
    FUZZ_REQUIRE(!meshes.empty(), "a reader accepted a file and gave no mesh");
    for (size_t m = 0; m < meshes.size(); ++m) {
        const tSourceMesh& mesh = meshes[m];
        FUZZ_REQUIRE(!mesh.corners.empty() && mesh.corners.size() % 3 == 0, "mesh %zu has %zu corners", m,
                     mesh.corners.size());
        FUZZ_REQUIRE(mesh.normals.empty() || mesh.normals.size() == mesh.positions.size(),
                     "mesh %zu has %zu normals for %zu positions", m, mesh.normals.size(), mesh.positions.size());
        for (size_t c = 0; c < mesh.corners.size(); ++c)
            FUZZ_REQUIRE(mesh.corners[c] < mesh.positions.size(), "mesh %zu corner %zu is vertex %u of %zu", m, c,
                         mesh.corners[c], mesh.positions.size());
    }
}

// One mesh through the corner joining, as the import converts it.
void checkConversion(const tSourceMesh& source, size_t m, bool generateNormals, bool facetNormalsOnly) {
    contour::ImportOptions options;
    options.generateNormals = generateNormals;
    contour::importer::tBuffers buffers;
    std::string error;
    const bool converted =
        contour::importer::convertMesh(source, static_cast<unsigned int>(m), options, facetNormalsOnly, buffers, error);
    bool usesNonFinite = false;
    for (size_t c = 0; c < source.corners.size(); ++c) {
        const tVec3& p = source.positions[source.corners[c]];
        usesNonFinite = usesNonFinite || !finite(p.x, p.y, p.z);
    }
    FUZZ_REQUIRE(converted != usesNonFinite, "mesh %zu: conversion %s although %s position is not finite (%s)", m,
                 converted ? "succeeded" : "failed", usesNonFinite ? "a used" : "no used", error.c_str());
    if (!converted) return;
    FUZZ_REQUIRE(buffers.vertices && buffers.indices, "mesh %zu: conversion gave no buffers", m);
    const qe::qeVertexBuffer& vertices = *buffers.vertices;
    const int vertexCount = vertices.GetVertexQuantity();
    FUZZ_REQUIRE(static_cast<size_t>(buffers.indices->GetIndexQuantity()) == source.corners.size(),
                 "mesh %zu: %d indices for %zu corners", m, buffers.indices->GetIndexQuantity(), source.corners.size());
    const bool storedNormals = !source.normals.empty() && !(generateNormals && facetNormalsOnly);
    const bool anyNormals = storedNormals || generateNormals;
    FUZZ_REQUIRE(vertices.GetAttributes().HasNormal() == anyNormals, "mesh %zu: normals %s", m,
                 anyNormals ? "missing" : "unasked for");
    for (int v = 0; v < vertexCount; ++v) {
        const Wm4::Vector3<float>& p = vertices.Position3(v);
        FUZZ_REQUIRE(finite(p[0], p[1], p[2]), "mesh %zu: vertex %d is not finite", m, v);
        if (generateNormals && !storedNormals) {
            const Wm4::Vector3<float>& n = vertices.Normal3(v);
            FUZZ_REQUIRE(finite(n[0], n[1], n[2]) && n.Length() <= 1.0001f,
                         "mesh %zu: generated normal %d is (%g, %g, %g)", m, v, double(n[0]), double(n[1]),
                         double(n[2]));
        }
    }
    const unsigned int* indices = buffers.indices->GetData();
    for (size_t c = 0; c < source.corners.size(); ++c) {
        FUZZ_REQUIRE(indices[c] < static_cast<unsigned int>(vertexCount), "mesh %zu: index %zu is %u of %d vertices", m,
                     c, indices[c], vertexCount);
        const unsigned int corner = source.corners[c];
        FUZZ_REQUIRE(sameBits(source.positions[corner], vertices.Position3(static_cast<int>(indices[c]))),
                     "mesh %zu: corner %zu moved in the joining", m, c);
        FUZZ_REQUIRE(!storedNormals || sameBits(source.normals[corner], vertices.Normal3(static_cast<int>(indices[c]))),
                     "mesh %zu: the normal of corner %zu changed in the joining", m, c);
    }
}

// The first way in which two imported models differ, or empty.
std::string difference(const contour::ImportedModel& a, const contour::ImportedModel& b) {
    if (a.meshes.size() != b.meshes.size())
        return "mesh counts " + std::to_string(a.meshes.size()) + " and " + std::to_string(b.meshes.size());
    for (size_t m = 0; m < a.names.size() && m < b.names.size(); ++m)
        if (a.names[m] != b.names[m])
            return "mesh " + std::to_string(m) + " named '" + a.names[m] + "' and '" + b.names[m] + "'";
    if (a.triangleCount != b.triangleCount)
        return "triangle counts " + std::to_string(a.triangleCount) + " and " + std::to_string(b.triangleCount);
    if (a.vertexCount != b.vertexCount)
        return "vertex counts " + std::to_string(a.vertexCount) + " and " + std::to_string(b.vertexCount);
    if (a.hasNormals != b.hasNormals || a.normalsGenerated != b.normalsGenerated) return "normals flags";
    for (size_t m = 0; m < a.meshes.size(); ++m) {
        const qe::qeTriMesh &p = *a.meshes[m], &q = *b.meshes[m];
        const std::string mesh = "mesh " + std::to_string(m) + ": ";
        if (std::memcmp(&p.World.GetMatrix()[0][0], &q.World.GetMatrix()[0][0], 16 * sizeof(float)) != 0)
            return mesh + "placements";
        const qe::qeVertexBuffer &u = *p.VBuffer, &w = *q.VBuffer;
        if (u.GetVertexQuantity() != w.GetVertexQuantity())
            return mesh + std::to_string(u.GetVertexQuantity()) + " and " + std::to_string(w.GetVertexQuantity()) +
                   " vertices";
        if (u.GetAttributes().HasNormal() != w.GetAttributes().HasNormal()) return mesh + "normals in one only";
        for (int v = 0; v < u.GetVertexQuantity(); ++v) {
            if (!sameBits(u.Position3(v), w.Position3(v))) return mesh + "position " + std::to_string(v);
            if (u.GetAttributes().HasNormal() && !sameBits(u.Normal3(v), w.Normal3(v)))
                return mesh + "normal " + std::to_string(v);
        }
        const int count = p.IBuffer->GetIndexQuantity();
        if (count != q.IBuffer->GetIndexQuantity()) return mesh + "index counts";
        for (int i = 0; i < count; ++i)
            if (p.IBuffer->GetData()[i] != q.IBuffer->GetData()[i]) return mesh + "index " + std::to_string(i);
    }
    return std::string();
}

// A folder of this process for the files that assimp reads, removed at exit.
class tScratchFolder {
public:
    tScratchFolder() {
        std::error_code error;
        const std::filesystem::path base = std::filesystem::temp_directory_path(error);
        m_path = (error ? std::filesystem::path("/tmp") : base) / ("ctr-fuzz-" + std::to_string(::getpid()));
        std::filesystem::create_directories(m_path, error);
        FUZZ_REQUIRE(!error, "cannot create %s", m_path.c_str());
    }
    ~tScratchFolder() {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }
    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

void compareWithAssimp(const uint8_t* data, size_t size, const char* extension) {
    static const tScratchFolder folder;
    const std::string path = (folder.path() / (std::string("input") + extension)).string();
    std::FILE* file = std::fopen(path.c_str(), "wb");
    FUZZ_REQUIRE(file && std::fwrite(data, 1, size, file) == size && std::fclose(file) == 0, "cannot write %s",
                 path.c_str());
    for (const bool generate : {false, true}) {
        contour::ImportOptions builtIn;
        builtIn.generateNormals = generate;
        contour::ImportOptions general = builtIn;
        general.generalReaderOnly = true;
        contour::ImportedModel fast, reference;
        std::string fastError, referenceError;
        const bool fastRead = contour::ImportModel(path, fast, fastError, builtIn);
        const bool referenceRead = contour::ImportModel(path, reference, referenceError, general);
        const char* normals = generate ? "generated normals" : "stored normals";
        FUZZ_REQUIRE(fastRead == referenceRead,
                     "differential (%s): the built-in reader %s the file, assimp %s it: '%s'", normals,
                     fastRead ? "reads" : "refuses", referenceRead ? "reads" : "refuses",
                     (fastRead ? referenceError : fastError).c_str());
        FUZZ_REQUIRE(fastError == referenceError, "differential (%s): errors '%s' and '%s'", normals, fastError.c_str(),
                     referenceError.c_str());
        const std::string different = difference(fast, reference);
        FUZZ_REQUIRE(different.empty(), "differential (%s): built-in reader and assimp differ in %s", normals,
                     different.c_str());
    }
}

}  // namespace

namespace {

// Binary PLY data whose first byte is a line feed: assimp takes that byte for
// part of the header's line end and reads every value one byte late. The
// built-in reader reads the data where the format puts it, on purpose.
bool assimpMisreads(const uint8_t* data, size_t size, const char* extension) {
    if (std::strcmp(extension, ".ply") != 0) return false;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const size_t end = text.find("end_header\n");
    return end != std::string::npos && text.find("format binary") < end && end + 11 < size && text[end + 11] == '\n';
}

}  // namespace

void CheckBuiltInReader(const uint8_t* data, size_t size, tReader read, const char* extension,
                        const tFormatCheck& formatCheck) {
    std::vector<tSourceMesh> meshes;
    {
        const contour::importer::tMappedFile file(reinterpret_cast<const char*>(data), size);
        if (!read(file, meshes)) return;
    }
    checkSourceMeshes(meshes);
    formatCheck(meshes);
    const bool facetNormalsOnly = std::strcmp(extension, ".stl") == 0;
    for (size_t m = 0; m < meshes.size(); ++m)
        for (const bool generate : {false, true}) checkConversion(meshes[m], m, generate, facetNormalsOnly);
    if (DifferentialMode() && !assimpMisreads(data, size, extension)) compareWithAssimp(data, size, extension);
}

}  // namespace ctr_fuzz
