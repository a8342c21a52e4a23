// What the fuzz targets share: failing with a message, and the checks of the
// built-in model readers (their own invariants, and with differential mode
// on, agreement with assimp through ImportModel).
#ifndef CTR_FUZZ_FUZZSUPPORT_H
#define CTR_FUZZ_FUZZSUPPORT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "MappedFile.h"
#include "SourceMesh.h"

namespace ctr_fuzz {

// Reports a broken invariant on the standard error stream and aborts, which
// libFuzzer and the corpus replay both take as a crash.
[[noreturn]] void Fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

#define FUZZ_REQUIRE(condition, ...) ((condition) ? static_cast<void>(0) : ::ctr_fuzz::Fail(__VA_ARGS__))

// Whether CTR_FUZZ_DIFFERENTIAL is set to something other than 0 or empty.
bool DifferentialMode();

using tReader = bool (*)(const contour::importer::tMappedFile&, std::vector<contour::importer::tSourceMesh>&);
// The checks that only the format knows (counts against the file's own).
using tFormatCheck = std::function<void(const std::vector<contour::importer::tSourceMesh>&)>;

// Feeds data to read. When the reader accepts it, checks what it gave:
// three corners per triangle, every corner a vertex, one normal per vertex
// or none, then formatCheck; then every mesh through the corner joining (as
// the import does, with and without generated normals): it refuses exactly
// the meshes that use a position that is not finite, and otherwise keeps
// every corner's position and stored normal bit for bit, with finite
// values and indices in range. In differential mode the same bytes are then
// imported from a file with the given extension by the built-in readers and
// by assimp alone, and the two models must agree bit for bit.
void CheckBuiltInReader(const uint8_t* data, size_t size, tReader read, const char* extension,
                        const tFormatCheck& formatCheck);

}  // namespace ctr_fuzz

#endif
