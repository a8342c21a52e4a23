#include "ModelImport.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <limits>
#include <memory>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include "ScratchArray.h"

namespace contour {

namespace {

struct tVec3 {
    float x, y, z;
};

// A mesh as a reader hands it over: vertex arrays, three corners per
// triangle, and the mesh's name.
struct tSourceMesh {
    ScratchArray<tVec3> positions;
    ScratchArray<tVec3> normals;  // empty, or one per position
    ScratchArray<unsigned int> corners;
    std::string name;
};

using tRows = Wm4::Matrix4<float>;

const tRows kIdentityRows(1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f,
                          1.0f);

// Assimp stores column-vector matrices (translation in the fourth column);
// the framework multiplies row vectors, so the matrix is transposed.
tRows toRows(const aiMatrix4x4& m) {
    return tRows(m.a1, m.b1, m.c1, m.d1, m.a2, m.b2, m.c2, m.d2, m.a3, m.b3, m.c3, m.d3, m.a4, m.b4, m.c4, m.d4);
}

struct tBuffers {
    qe::qePointer<qe::qeVertexBuffer> vertices;
    qe::qePointer<qe::qeIndexBuffer> indices;
    bool normalsGenerated = false;
    double normalSeconds = 0.0;  // spent making them
};

// What a converted mesh adds to the model's tallies.
void tally(ImportedModel& model, const tBuffers& buffers) {
    model.vertexCount += static_cast<size_t>(buffers.vertices->GetVertexQuantity());
    model.normalsGenerated = model.normalsGenerated || buffers.normalsGenerated;
    model.normalSeconds += buffers.normalSeconds;
}

uint32_t floatBits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// Numbers keys of Words 32-bit words in the order they are first seen
// (0, 1, 2, ...): an open-addressing table over the keys' bit patterns, so
// two keys are the same only when every bit agrees. Far lighter than a
// node-based map for the millions of corners of a large scan.
template <size_t Words>
class tFirstSeenNumbering {
public:
    using tKey = std::array<uint32_t, Words>;

    explicit tFirstSeenNumbering(size_t expectedKeys) {
        size_t capacity = 16;
        while (capacity < 2 * expectedKeys) capacity *= 2;
        m_slots.assign(capacity, kEmpty);
        m_keys.reserve(expectedKeys);
    }

    // The number of key, given to it now if it is new.
    uint32_t number(const tKey& key) {
        size_t slot = hash(key) & (m_slots.size() - 1);
        for (;;) {
            const uint32_t id = m_slots[slot];
            if (id == kEmpty) break;
            if (sameKey(m_keys[id], key)) return id;
            slot = (slot + 1) & (m_slots.size() - 1);
        }
        const uint32_t id = static_cast<uint32_t>(m_keys.size());
        m_slots[slot] = id;
        m_keys.push_back(key);
        if (2 * m_keys.size() > m_slots.size()) grow();
        return id;
    }

    size_t size() const { return m_keys.size(); }

    // Starts loading the slot where key would be looked up first, so that a
    // caller who knows its next keys early overlaps their cache misses.
    void prefetch(const tKey& key) const { __builtin_prefetch(&m_slots[hash(key) & (m_slots.size() - 1)]); }

private:
    static constexpr uint32_t kEmpty = 0xffffffffu;

    static bool sameKey(const tKey& a, const tKey& b) {
        uint32_t differ = 0;
        for (size_t k = 0; k < Words; ++k) differ |= a[k] ^ b[k];
        return differ == 0;
    }

    static size_t hash(const tKey& key) {
        uint64_t h = 0x9e3779b97f4a7c15ull;
        for (const uint32_t word : key) h = (h ^ word) * 0xff51afd7ed558ccdull;
        return static_cast<size_t>(h ^ (h >> 29));
    }

    void grow() {
        const size_t capacity = 2 * m_slots.size();
        m_slots = ScratchArray<uint32_t>();
        m_slots.assign(capacity, kEmpty);
        const size_t mask = m_slots.size() - 1;
        for (uint32_t id = 0; id < m_keys.size(); ++id) {
            size_t slot = hash(m_keys[id]) & mask;
            while (m_slots[slot] != kEmpty) slot = (slot + 1) & mask;
            m_slots[slot] = id;
        }
    }

    ScratchArray<uint32_t> m_slots;
    ScratchArray<tKey> m_keys;
};

std::array<uint32_t, 3> positionKey(const tVec3& p) { return {floatBits(p.x), floatBits(p.y), floatBits(p.z)}; }

using Vector3d = Wm4::Vector3<double>;

Vector3d toDouble(const tVec3& v) { return Vector3d(v.x, v.y, v.z); }

bool sameBits(const Wm4::Vector3<float>& a, const Wm4::Vector3<float>& b) {
    return floatBits(a[0]) == floatBits(b[0]) && floatBits(a[1]) == floatBits(b[1]) &&
           floatBits(a[2]) == floatBits(b[2]);
}

// Vertices of a mesh stored without normals, with normals generated per
// smooth fan. Corners meet where their positions are bit-identical: the
// corners at one position form a group. Within a group, two corners belong
// to one fan when their faces share an edge there (a second position in
// common) and the face directions turn by at most the smoothing angle; fans
// are closed under that relation. Every corner of a fan gets the same
// normal, the normalised sum of the fan's area-weighted face normals (summed
// in corner order). A smooth edge thus never splits its vertices, so the
// crease rule cannot draw it however noisy the surface, while a sharp edge
// does split them and is drawn. The one exception is an isolated sharp edge,
// the only sharp edge at both of its end vertices: around each end the fan
// wraps round through the smooth faces and joins both sides, so that edge
// stays smooth, as a lone fold in a smooth surface should.
//
// A face without area has no direction. It must not join two fans across a
// crease, so the directionless corners joined by shared edges hang as a
// whole on the fan of one edge-neighbour with a direction (the first in
// corner order); those with no such neighbour take the mean of the whole
// group, as does every corner of a group with no direction at all.
//
// Two corners share a vertex when they share the position and their normals
// agree bit for bit, so vertices never span groups and are found group by
// group: each distinct normal of a group is a slot. The slots are numbered
// as vertices in the order of their first corner afterwards.
struct tSmoothVertices {
    ScratchArray<Wm4::Vector3<float>> normal;  // per slot
    ScratchArray<uint32_t> source;             // per slot: a source vertex at its position
};

Wm4::Vector3<float> unitNormal(const Vector3d& sum) {
    const double length = sum.Length();
    if (!(length > 0.0)) return Wm4::Vector3<float>(0.0f, 0.0f, 0.0f);
    return Wm4::Vector3<float>(static_cast<float>(sum[0] / length), static_cast<float>(sum[1] / length),
                               static_cast<float>(sum[2] / length));
}

void makeSmoothSlots(const tSourceMesh& source, float angleDegrees, unsigned int* slotOfCorner,
                     tSmoothVertices& slots) {
    const ScratchArray<unsigned int>& corners = source.corners;
    const size_t faceCount = corners.size() / 3;

    // Corners bucketed by position, groups numbered in the order of their
    // first corner. Corners that share a vertex share its group, so the
    // table is asked once per vertex, not once per corner.
    constexpr uint32_t kUnset = 0xffffffffu;
    ScratchArray<uint32_t> groupOfVertex;
    groupOfVertex.assign(source.positions.size(), kUnset);
    ScratchArray<uint32_t> groupVertex;  // a vertex of each group
    {
        constexpr size_t kAhead = 32;
        tFirstSeenNumbering<3> groupOf(std::min(source.positions.size(), corners.size()));
        for (size_t c = 0; c < corners.size(); ++c) {
            if (c + kAhead < corners.size() && groupOfVertex[corners[c + kAhead]] == kUnset)
                groupOf.prefetch(positionKey(source.positions[corners[c + kAhead]]));
            uint32_t& group = groupOfVertex[corners[c]];
            if (group == kUnset) {
                group = groupOf.number(positionKey(source.positions[corners[c]]));
                if (group == groupVertex.size()) groupVertex.push_back(corners[c]);
            }
        }
    }

    // Each face's normal scaled by twice its area, its direction, and the
    // groups of its corners, which name its edges.
    struct tFace {
        Vector3d weighted;
        Vector3d direction;
        std::array<uint32_t, 3> group;
    };
    ScratchArray<tFace> faces(faceCount);
    for (size_t f = 0; f < faceCount; ++f) {
        const Vector3d p0 = toDouble(source.positions[corners[3 * f]]);
        const Vector3d p1 = toDouble(source.positions[corners[3 * f + 1]]);
        const Vector3d p2 = toDouble(source.positions[corners[3 * f + 2]]);
        tFace& face = faces[f];
        face.weighted = (p1 - p0).Cross(p2 - p0);
        const double length = face.weighted.Length();
        face.direction = length > 0.0 ? face.weighted / length : Vector3d(0.0, 0.0, 0.0);
        for (size_t k = 0; k < 3; ++k) face.group[k] = groupOfVertex[corners[3 * f + k]];
    }

    const size_t groupCount = groupVertex.size();
    ScratchArray<uint32_t> groupStart;
    groupStart.assign(groupCount + 1, 0);
    for (const unsigned int corner : corners) ++groupStart[groupOfVertex[corner] + 1];
    for (size_t g = 0; g < groupCount; ++g) groupStart[g + 1] += groupStart[g];
    ScratchArray<uint32_t> grouped(corners.size());  // each group's corners in corner order
    {
        ScratchArray<uint32_t> next(groupCount);
        std::memcpy(next.data(), groupStart.data(), groupCount * sizeof(uint32_t));
        for (size_t c = 0; c < corners.size(); ++c)
            grouped[next[groupOfVertex[corners[c]]]++] = static_cast<uint32_t>(c);
    }
    groupOfVertex = ScratchArray<uint32_t>();

    // At most one slot per corner; the unused part is never touched.
    slots.normal.reserve(corners.size());
    slots.source.reserve(corners.size());
    const double cosLimit = std::cos(static_cast<double>(angleDegrees) * 3.14159265358979323846 / 180.0);
    const Vector3d zero(0.0, 0.0, 0.0);
    constexpr uint32_t kNone = 0xffffffffu;

    // Per group, indexed by member (the group's k-th corner): the union-find
    // forest whose roots are each fan's first member, the members' edges as
    // (other group, member) keys, and each fan's sum and slot.
    std::vector<uint32_t> parent;
    std::vector<uint64_t> edges;
    std::vector<std::pair<uint32_t, uint32_t>> hangers;  // directionless member, member with a direction
    std::vector<uint32_t> hangOn;
    std::vector<Vector3d> sum;
    std::vector<unsigned char> directed;
    std::vector<uint32_t> slotOfFan;
    const auto find = [&parent](uint32_t k) {
        while (parent[k] != k) {
            parent[k] = parent[parent[k]];
            k = parent[k];
        }
        return k;
    };
    const auto unite = [&](uint32_t a, uint32_t b) {
        a = find(a);
        b = find(b);
        if (a < b) parent[b] = a;
        if (b < a) parent[a] = b;
    };

    for (size_t g = 0; g < groupCount; ++g) {
        const uint32_t* const member = grouped.data() + groupStart[g];
        const uint32_t count = groupStart[g + 1] - groupStart[g];
        const auto faceOf = [&](uint32_t k) -> const tFace& { return faces[member[k] / 3]; };
        const auto hasDirection = [&](uint32_t k) { return faceOf(k).direction != zero; };
        for (uint32_t k = 0; k < count; ++k) {
            constexpr size_t kAhead = 16;
            const size_t ahead = groupStart[g] + k + kAhead;
            if (ahead < grouped.size()) __builtin_prefetch(&faces[grouped[ahead] / 3]);
        }
        parent.resize(count);
        for (uint32_t k = 0; k < count; ++k) parent[k] = k;

        if (count > 1) {
            // Members meeting at an edge have the same other group: sorting
            // the keys finds them in n log n, even at a hub of thousands of
            // faces. An edge whose other end lies at this position has no
            // length and joins nothing.
            edges.clear();
            for (uint32_t k = 0; k < count; ++k) {
                const tFace& face = faceOf(k);
                const uint32_t at = member[k] % 3;
                for (const uint32_t step : {1u, 2u}) {
                    const uint32_t other = face.group[(at + step) % 3];
                    if (other != g) edges.push_back(static_cast<uint64_t>(other) << 32 | k);
                }
            }
            std::sort(edges.begin(), edges.end());
            hangers.clear();
            for (size_t runStart = 0; runStart < edges.size();) {
                size_t runEnd = runStart + 1;
                while (runEnd < edges.size() && edges[runEnd] >> 32 == edges[runStart] >> 32) ++runEnd;
                // Every pair of the run: two faces at a manifold edge, more
                // at a non-manifold one. A face with a repeated corner may
                // appear twice and is not paired with itself.
                for (size_t i = runStart; i < runEnd; ++i)
                    for (size_t j = i + 1; j < runEnd; ++j) {
                        const uint32_t a = static_cast<uint32_t>(edges[i]);
                        const uint32_t b = static_cast<uint32_t>(edges[j]);
                        if (a == b) continue;
                        const bool directedA = hasDirection(a);
                        const bool directedB = hasDirection(b);
                        if (directedA && directedB) {
                            if (faceOf(a).direction.Dot(faceOf(b).direction) >= cosLimit) unite(a, b);
                        } else if (!directedA && !directedB) {
                            unite(a, b);
                        } else {
                            hangers.emplace_back(directedA ? b : a, directedA ? a : b);
                        }
                    }
                runStart = runEnd;
            }
            if (!hangers.empty()) {
                // Each directionless fan hangs on the neighbouring member
                // with a direction that comes first, never on two, so it
                // cannot join the fans on both sides of a crease.
                hangOn.assign(count, kNone);
                for (const auto& hanger : hangers) {
                    uint32_t& on = hangOn[find(hanger.first)];
                    on = std::min(on, hanger.second);
                }
                for (uint32_t k = 0; k < count; ++k)
                    if (hangOn[k] != kNone) unite(k, hangOn[k]);
            }
        }

        sum.assign(count, zero);
        directed.assign(count, 0);
        bool anyDirectionless = false;
        for (uint32_t k = 0; k < count; ++k) {
            const uint32_t fan = find(k);
            sum[fan] += faceOf(k).weighted;
            if (hasDirection(k)) directed[fan] = 1;
        }
        slotOfFan.assign(count, kNone);
        // Fans of one position may still come out with the same normal: they
        // share a vertex. The few slots of a group are searched in turn; a
        // hub of many fans uses a table instead.
        const size_t firstSlot = slots.normal.size();
        std::unique_ptr<tFirstSeenNumbering<3>> seen;
        if (count > 16) seen.reset(new tFirstSeenNumbering<3>(count));
        const auto slotFor = [&](const Wm4::Vector3<float>& normal) {
            size_t slot = firstSlot;
            if (seen)
                slot += seen->number({floatBits(normal[0]), floatBits(normal[1]), floatBits(normal[2])});
            else
                while (slot < slots.normal.size() && !sameBits(slots.normal[slot], normal)) ++slot;
            if (slot == slots.normal.size()) {
                slots.normal.push_back(normal);
                slots.source.push_back(groupVertex[g]);
            }
            return static_cast<uint32_t>(slot);
        };
        for (uint32_t k = 0; k < count; ++k) {
            if (parent[k] != k) continue;
            if (!directed[k]) {
                anyDirectionless = true;
                continue;
            }
            slotOfFan[k] = slotFor(unitNormal(sum[k]));
        }
        if (anyDirectionless) {
            Vector3d all = zero;
            for (uint32_t k = 0; k < count; ++k) all += faceOf(k).weighted;
            const uint32_t slot = slotFor(unitNormal(all));
            for (uint32_t k = 0; k < count; ++k)
                if (parent[k] == k && !directed[k]) slotOfFan[k] = slot;
        }
        for (uint32_t k = 0; k < count; ++k) slotOfCorner[member[k]] = static_cast<unsigned int>(slotOfFan[find(k)]);
    }
}

// Some formats (OBJ with its separate position and normal indices, STL)
// arrive with one vertex per triangle corner. Corners that agree bit for bit
// in position and normal are joined again, which gives back the sharing the
// model had and a third of the memory; split normals along creases stay
// split. Vertices no triangle uses are dropped; the others are numbered in
// the order of their first corner.
bool convertMesh(const tSourceMesh& source, unsigned int meshIndex, const ImportOptions& options, bool facetNormalsOnly,
                 tBuffers& buffers, std::string& error) {
    const ScratchArray<unsigned int>& corners = source.corners;
    if (corners.empty()) return true;
    // Positions are checked in file order, and only when one fails are the
    // corners searched for the first that uses it (unused ones may fail).
    const auto finite = [](const tVec3& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); };
    const bool allFinite = std::all_of(source.positions.begin(), source.positions.end(), finite);
    for (size_t c = 0; !allFinite && c < corners.size(); ++c) {
        const unsigned int corner = corners[c];
        if (!finite(source.positions[corner])) {
            error = "vertex " + std::to_string(corner) + " of mesh " + std::to_string(meshIndex) +
                    " has a coordinate that is not a finite number";
            return false;
        }
    }

    const bool hasNormals = !source.normals.empty();
    const bool generate = options.generateNormals && (!hasNormals || facetNormalsOnly);
    const bool withNormals = hasNormals || generate;
    buffers.indices = new qe::qeIndexBuffer(static_cast<int>(corners.size()), qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    unsigned int* const newIndex = buffers.indices->GetData();
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    if (withNormals) attributes.SetNormalChannels(3);

    if (generate) {
        const auto start = std::chrono::steady_clock::now();
        // The index buffer holds each corner's slot until the slots are
        // numbered.
        tSmoothVertices slots;
        makeSmoothSlots(source, options.smoothingAngleDegrees, newIndex, slots);
        constexpr uint32_t kUnset = 0xffffffffu;
        ScratchArray<uint32_t> number;
        number.assign(slots.normal.size(), kUnset);
        ScratchArray<uint32_t> kept(slots.normal.size());  // slot of each new vertex
        uint32_t vertexCount = 0;
        for (size_t c = 0; c < corners.size(); ++c) {
            uint32_t& n = number[newIndex[c]];
            if (n == kUnset) {
                kept[vertexCount] = newIndex[c];
                n = vertexCount++;
            }
            newIndex[c] = n;
        }
        buffers.vertices = new qe::qeVertexBuffer(attributes, static_cast<int>(vertexCount));
        for (uint32_t i = 0; i < vertexCount; ++i) {
            const tVec3& p = source.positions[slots.source[kept[i]]];
            buffers.vertices->Position3(static_cast<int>(i)) = Wm4::Vector3<float>(p.x, p.y, p.z);
            buffers.vertices->Normal3(static_cast<int>(i)) = slots.normal[kept[i]];
        }
        buffers.normalsGenerated = true;
        buffers.normalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return true;
    }

    // Each vertex remembers the normal and number its last corner got: the
    // corners around a smooth vertex share them, and skip the table.
    struct tLast {
        std::array<uint32_t, 3> normal;
        uint32_t number;
    };
    constexpr uint32_t kUnset = 0xffffffffu;
    ScratchArray<tLast> last;
    last.assign(source.positions.size(), tLast{{0, 0, 0}, kUnset});
    ScratchArray<unsigned int> kept;  // corner number of each new vertex
    tFirstSeenNumbering<6> joined(std::min(source.positions.size(), corners.size()));
    for (size_t c = 0; c < corners.size(); ++c) {
        std::array<uint32_t, 3> normalBits{0, 0, 0};
        if (withNormals) {
            const tVec3& n = source.normals[corners[c]];
            normalBits = {floatBits(n.x), floatBits(n.y), floatBits(n.z)};
        }
        tLast& memo = last[corners[c]];
        if (memo.number == kUnset || memo.normal != normalBits) {
            const tVec3& p = source.positions[corners[c]];
            const uint32_t number = joined.number(
                {floatBits(p.x), floatBits(p.y), floatBits(p.z), normalBits[0], normalBits[1], normalBits[2]});
            if (number == kept.size()) kept.push_back(static_cast<unsigned int>(c));
            memo = tLast{normalBits, number};
        }
        newIndex[c] = memo.number;
    }

    buffers.vertices = new qe::qeVertexBuffer(attributes, static_cast<int>(kept.size()));
    for (size_t i = 0; i < kept.size(); ++i) {
        const tVec3& p = source.positions[corners[kept[i]]];
        buffers.vertices->Position3(static_cast<int>(i)) = Wm4::Vector3<float>(p.x, p.y, p.z);
        if (withNormals) {
            const tVec3& n = source.normals[corners[kept[i]]];
            buffers.vertices->Normal3(static_cast<int>(i)) = Wm4::Vector3<float>(n.x, n.y, n.z);
        }
    }
    return true;
}

// ---------------------------------------------------------------------------
// Built-in readers for the common formats. Assimp reads everything, but its
// fixed cost per file and its per-corner containers dominate the import of
// small and of very large models. Each reader below accepts only what it can
// give exactly as assimp would (same floats, same meshes, same names, same
// order) and declines anything else, which then goes to assimp: unusual
// syntax, polygons, bad indices and broken files alike, so errors read the
// same.

// The bytes of a file, mapped read-only and faulted in at once: a large
// model then costs no copy and few page faults.
class tMappedFile {
public:
    explicit tMappedFile(const std::string& path) {
        const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor < 0) return;
        struct stat status;
        if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
            void* const mapped = ::mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ,
                                        MAP_PRIVATE | MAP_POPULATE, descriptor, 0);
            if (mapped != MAP_FAILED) {
                m_data = static_cast<const char*>(mapped);
                m_size = static_cast<size_t>(status.st_size);
            }
        }
        ::close(descriptor);
    }
    ~tMappedFile() {
        if (m_data) ::munmap(const_cast<char*>(m_data), m_size);
    }
    tMappedFile(const tMappedFile&) = delete;
    tMappedFile& operator=(const tMappedFile&) = delete;

    const char* begin() const { return m_data; }
    const char* end() const { return m_data + m_size; }
    size_t size() const { return m_size; }
    bool isOpen() const { return m_data != nullptr; }

private:
    const char* m_data = nullptr;
    size_t m_size = 0;
};

bool littleEndianHost() {
    const uint32_t one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

template <class T>
T load(const char* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Reads the run of digits at c into value (wrapping, as unsigned arithmetic
// does, past 19 digits); returns how many there were.
int readDigits(const char*& c, const char* end, uint64_t& value) {
    int digits = 0;
    for (value = 0; c < end && isDigit(*c); ++c, ++digits) value = value * 10 + static_cast<uint64_t>(*c - '0');
    return digits;
}

// Decimal numbers [-]digits[.[digits]][(e|E)[+|-]digits], rounded exactly as
// assimp's text readers round them: the integer part and up to 15 fraction
// digits are read as integers, the fraction scaled in double, both summed in
// float, then scaled by a float power of ten. This differs from correctly
// rounded parsing (strtof) in the last bit for some inputs. Other spellings
// (leading '+' or '.', nan, inf, very long integer parts) are declined.
bool parseFloat(const char* begin, const char* end, float& out) {
    const char* c = begin;
    const bool negative = c < end && *c == '-';
    if (negative) ++c;
    if (c == end || !isDigit(*c)) return false;
    uint64_t whole = 0;
    if (readDigits(c, end, whole) > 18) return false;
    float value = static_cast<float>(whole);
    if (c < end && *c == '.') {
        ++c;
        if (c < end && isDigit(*c)) {
            static const double kScale[16] = {0.0,  1e-1, 1e-2,  1e-3,  1e-4,  1e-5,  1e-6,  1e-7,
                                              1e-8, 1e-9, 1e-10, 1e-11, 1e-12, 1e-13, 1e-14, 1e-15};
            uint64_t fraction = 0;
            int digits = 0;
            for (; c < end && isDigit(*c); ++c)
                if (digits < 15) {
                    fraction = fraction * 10 + static_cast<uint64_t>(*c - '0');
                    ++digits;
                }
            value += static_cast<float>(static_cast<double>(fraction) * kScale[digits]);
        }
    }
    if (c < end && (*c == 'e' || *c == 'E')) {
        ++c;
        const bool negativeExponent = c < end && *c == '-';
        if (c < end && (*c == '-' || *c == '+')) ++c;
        if (c == end || !isDigit(*c)) return false;
        uint64_t exponent = 0;
        if (readDigits(c, end, exponent) > 9) return false;
        float power = static_cast<float>(exponent);
        if (negativeExponent) power = -power;
        value *= std::pow(10.0f, power);
    }
    if (c != end) return false;
    out = negative ? -value : value;
    return true;
}

// Unsigned decimal integer without sign or leading zeros (a lone 0 is fine).
bool parseIndex(const char* begin, const char* end, uint64_t& out) {
    if (begin == end || end - begin > 9 || (*begin == '0' && end - begin > 1)) return false;
    uint64_t value = 0;
    for (const char* c = begin; c < end; ++c) {
        if (!isDigit(*c)) return false;
        value = value * 10 + static_cast<uint64_t>(*c - '0');
    }
    out = value;
    return true;
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Splits a line (without its end) into tokens separated by blanks.
void splitTokens(const char* begin, const char* end, std::vector<std::pair<const char*, const char*>>& tokens) {
    tokens.clear();
    const char* c = begin;
    for (;;) {
        while (c < end && isBlank(*c)) ++c;
        if (c == end) return;
        const char* start = c;
        while (c < end && !isBlank(*c)) ++c;
        tokens.emplace_back(start, c);
    }
}

// Binary STL: 80 header bytes, a facet count and 50 bytes per facet, with
// the file size agreeing exactly (assimp takes such a file as binary even
// when its header starts with "solid"). Assimp keeps one vertex per corner
// and hands the facet normal to all three.
bool readBinaryStl(const tMappedFile& data, std::vector<tSourceMesh>& meshes) {
    const size_t size = data.size();
    if (size < 84 || !littleEndianHost()) return false;
    const uint32_t facets = load<uint32_t>(data.begin() + 80);
    if (facets == 0 || 84 + 50 * static_cast<uint64_t>(facets) != size) return false;
    tSourceMesh mesh;
    mesh.positions.resize(3 * static_cast<size_t>(facets));
    mesh.normals.resize(3 * static_cast<size_t>(facets));
    mesh.corners.resize(3 * static_cast<size_t>(facets));
    const char* at = data.begin() + 84;
    for (size_t f = 0; f < facets; ++f, at += 50) {
        const tVec3 normal{load<float>(at), load<float>(at + 4), load<float>(at + 8)};
        for (size_t k = 0; k < 3; ++k) {
            const char* corner = at + 12 + 12 * k;
            mesh.positions[3 * f + k] = tVec3{load<float>(corner), load<float>(corner + 4), load<float>(corner + 8)};
            mesh.normals[3 * f + k] = normal;
            mesh.corners[3 * f + k] = static_cast<unsigned int>(3 * f + k);
        }
    }
    meshes.push_back(std::move(mesh));
    return true;
}

// PLY with one vertex element (float x, y, z and optionally nx, ny, nz, plus
// colour or texture properties, which are skipped) followed by one face
// element of triangles, ASCII or binary little-endian. Assimp keeps the
// file's vertices and indices as they are.
struct tPlyProperty {
    std::string name;
    int size = 0;  // bytes of a scalar, or of each list entry
    bool isFloat = false;
    bool isList = false;
    int countSize = 0;
};

struct tPlyElement {
    std::string name;
    size_t count = 0;
    std::vector<tPlyProperty> properties;
};

// Byte size of a PLY type, and whether it is a float; 0 when unknown.
int plyTypeSize(const std::string& type, bool& isFloat) {
    isFloat = type == "float" || type == "float32";
    if (isFloat) return 4;
    if (type == "uchar" || type == "uint8" || type == "char" || type == "int8") return 1;
    if (type == "ushort" || type == "uint16" || type == "short" || type == "int16") return 2;
    if (type == "uint" || type == "uint32" || type == "int" || type == "int32") return 4;
    return 0;
}

bool readPly(const tMappedFile& data, std::vector<tSourceMesh>& meshes) {
    const char* c = data.begin();
    const char* const end = data.end();
    std::vector<std::pair<const char*, const char*>> tokens;
    const auto nextLine = [&](const char*& lineBegin, const char*& lineEnd) {
        if (c >= end) return false;
        lineBegin = c;
        while (c < end && *c != '\n') ++c;
        lineEnd = c;
        if (c < end) ++c;
        return true;
    };
    const auto token = [&](size_t i) { return std::string(tokens[i].first, tokens[i].second); };

    const char* lineBegin;
    const char* lineEnd;
    if (!nextLine(lineBegin, lineEnd) || std::string(lineBegin, lineEnd) != "ply") return false;
    bool ascii = false;
    bool formatSeen = false;
    std::vector<tPlyElement> elements;
    for (;;) {
        if (!nextLine(lineBegin, lineEnd)) return false;
        if (std::find(lineBegin, lineEnd, '\r') != lineEnd) return false;
        splitTokens(lineBegin, lineEnd, tokens);
        if (tokens.empty()) return false;
        const std::string keyword = token(0);
        if (keyword == "end_header" && tokens.size() == 1) break;
        if (keyword == "comment" || keyword == "obj_info") continue;
        if (keyword == "format" && tokens.size() == 3 && !formatSeen && token(2) == "1.0") {
            if (token(1) == "ascii")
                ascii = true;
            else if (token(1) != "binary_little_endian")
                return false;
            formatSeen = true;
        } else if (keyword == "element" && tokens.size() == 3) {
            uint64_t count = 0;
            if (!parseIndex(tokens[2].first, tokens[2].second, count) || count == 0) return false;
            elements.push_back(tPlyElement{token(1), static_cast<size_t>(count), {}});
        } else if (keyword == "property" && !elements.empty()) {
            tPlyProperty property;
            if (tokens.size() == 3) {
                property.size = plyTypeSize(token(1), property.isFloat);
                property.name = token(2);
            } else if (tokens.size() == 5 && token(1) == "list") {
                bool countIsFloat = false;
                property.isList = true;
                property.countSize = plyTypeSize(token(2), countIsFloat);
                property.size = plyTypeSize(token(3), property.isFloat);
                property.name = token(4);
                if (countIsFloat || property.countSize != 1 || property.isFloat || property.size != 4) return false;
            } else {
                return false;
            }
            if (property.size == 0) return false;
            for (const tPlyProperty& other : elements.back().properties)
                if (other.name == property.name) return false;
            elements.back().properties.push_back(property);
        } else {
            return false;
        }
    }
    if (!formatSeen || elements.size() != 2 || elements[0].name != "vertex" || elements[1].name != "face") return false;

    // Where each vertex value goes: 0..2 position, 3..5 normal, -1 skipped.
    // Only names assimp reads as colours or texture coordinates are skipped.
    const tPlyElement& vertex = elements[0];
    const tPlyElement& face = elements[1];
    static const char* const kSkippable[] = {"red", "green", "blue", "alpha",     "u",
                                             "v",   "s",     "t",    "texture_u", "texture_v"};
    static const char* const kRead[] = {"x", "y", "z", "nx", "ny", "nz"};
    std::vector<int> target;
    int found = 0;
    for (const tPlyProperty& property : vertex.properties) {
        if (property.isList) return false;
        int slot = -1;
        for (int k = 0; k < 6; ++k)
            if (property.name == kRead[k]) slot = k;
        if (slot >= 0) {
            if (!property.isFloat) return false;
            found |= 1 << slot;
        } else if (std::find_if(std::begin(kSkippable), std::end(kSkippable),
                                [&](const char* name) { return property.name == name; }) == std::end(kSkippable)) {
            return false;
        }
        target.push_back(slot);
    }
    if (found != 7 && found != 63) return false;
    const bool withNormals = found == 63;
    int listCount = 0;
    for (const tPlyProperty& property : face.properties) {
        if (property.isList) {
            if (property.name != "vertex_indices" && property.name != "vertex_index") return false;
            ++listCount;
        } else if (property.name != "red" && property.name != "green" && property.name != "blue" &&
                   property.name != "alpha") {
            return false;
        }
    }
    if (listCount != 1 || (!ascii && !littleEndianHost())) return false;

    tSourceMesh mesh;
    mesh.positions.resize(vertex.count);
    if (withNormals) mesh.normals.resize(vertex.count);
    mesh.corners.resize(3 * face.count);
    const auto store = [&](size_t v, int slot, float value) {
        if (slot < 0) return;
        tVec3& to = slot < 3 ? mesh.positions[v] : mesh.normals[v];
        (slot % 3 == 0 ? to.x : slot % 3 == 1 ? to.y : to.z) = value;
    };
    const auto storeIndex = [&](size_t f, size_t k, uint64_t index) {
        if (index >= vertex.count) return false;
        mesh.corners[3 * f + k] = static_cast<unsigned int>(index);
        return true;
    };

    if (ascii) {
        for (size_t v = 0; v < vertex.count; ++v) {
            if (!nextLine(lineBegin, lineEnd)) return false;
            splitTokens(lineBegin, lineEnd, tokens);
            if (tokens.size() != target.size()) return false;
            for (size_t k = 0; k < tokens.size(); ++k) {
                float value;
                if (!parseFloat(tokens[k].first, tokens[k].second, value)) return false;
                store(v, target[k], value);
            }
        }
        for (size_t f = 0; f < face.count; ++f) {
            if (!nextLine(lineBegin, lineEnd)) return false;
            splitTokens(lineBegin, lineEnd, tokens);
            if (tokens.size() != face.properties.size() + 3) return false;
            size_t t = 0;
            for (const tPlyProperty& property : face.properties) {
                uint64_t value;
                if (!parseIndex(tokens[t].first, tokens[t].second, value)) return false;
                ++t;
                if (!property.isList) continue;
                if (value != 3) return false;
                for (size_t k = 0; k < 3; ++k, ++t)
                    if (!parseIndex(tokens[t].first, tokens[t].second, value) || !storeIndex(f, k, value)) return false;
            }
        }
        for (; c < end; ++c)
            if (!std::isspace(static_cast<unsigned char>(*c))) return false;
        meshes.push_back(std::move(mesh));
        return true;
    }

    size_t vertexSize = 0;
    for (const tPlyProperty& property : vertex.properties) vertexSize += static_cast<size_t>(property.size);
    const size_t faceSize = face.properties.size() == 1 ? 13 : 0;  // the common layout: count and three indices
    if (static_cast<size_t>(end - c) / vertexSize < vertex.count) return false;
    if (target == std::vector<int>{0, 1, 2}) {
        // Positions only, stored just as the file has them.
        static_assert(sizeof(tVec3) == 12, "tVec3 is three packed floats");
        std::memcpy(static_cast<void*>(mesh.positions.data()), c, 12 * vertex.count);
        c += 12 * vertex.count;
    } else {
        for (size_t v = 0; v < vertex.count; ++v) {
            for (size_t k = 0; k < target.size(); ++k) {
                if (target[k] >= 0) store(v, target[k], load<float>(c));
                c += vertex.properties[k].size;
            }
        }
    }
    if (faceSize != 0 && static_cast<size_t>(end - c) != faceSize * face.count) return false;
    for (size_t f = 0; f < face.count; ++f) {
        for (const tPlyProperty& property : face.properties) {
            if (!property.isList) {
                if (end - c < property.size) return false;
                c += property.size;
                continue;
            }
            if (end - c < 13 || static_cast<unsigned char>(*c) != 3) return false;
            for (size_t k = 0; k < 3; ++k) {
                const uint32_t index = load<uint32_t>(c + 1 + 4 * k);
                if (!storeIndex(f, k, index)) return false;
            }
            c += 13;
        }
    }
    if (c != end) return false;
    meshes.push_back(std::move(mesh));
    return true;
}

// OBJ with v, vn and vt records, triangular faces (v, v/t, v//n or v/t/n on
// every corner of a face), objects (o), groups (g), smoothing groups (s,
// ignored) and comments. Assimp makes an object, and a mesh named like it,
// for every o with a new name and every g that changes the group; faces
// before either go to "defaultobject". Meshes come in the order of their
// objects; empty ones are dropped. Every face corner becomes its own vertex
// there; here a mesh without normals keeps shared positions instead, which
// the corner joining numbers the same way.
bool readObj(const tMappedFile& data, std::vector<tSourceMesh>& meshes) {
    struct tFace {
        int64_t position[3];
        int64_t normal[3];  // -1 without
        int64_t texture[3];
    };
    struct tObjMesh {
        std::string name;
        ScratchArray<tFace> faces;
        bool normals = false;
    };
    struct tObject {
        std::string name;
        std::vector<size_t> meshes;
    };
    ScratchArray<tVec3> positions;
    ScratchArray<tVec3> normals;
    int64_t textureCount = 0;
    std::vector<tObject> objects;
    std::vector<tObjMesh> objMeshes;
    std::string activeGroup;
    const auto createObject = [&](const std::string& name) {
        objects.push_back(tObject{name, {objMeshes.size()}});
        objMeshes.push_back(tObjMesh{name, {}, false});
    };

    const char* c = data.begin();
    const char* const end = data.end();
    if (end - c < 16) return false;  // assimp refuses such short files
    std::vector<std::pair<const char*, const char*>> tokens;
    while (c < end) {
        const char* lineBegin = c;
        while (c < end && *c != '\n' && *c != '\r') ++c;
        const char* lineEnd = c;
        if (c < end && *c == '\r') {
            if (c + 1 == end || c[1] != '\n') return false;
            ++c;
        }
        if (c < end) ++c;
        if (lineBegin == lineEnd || *lineBegin == '#') continue;
        if (isBlank(*lineBegin)) {
            // Assimp skips a line that starts with a blank; only blank lines
            // are taken here.
            if (std::all_of(lineBegin, lineEnd, isBlank)) continue;
            return false;
        }
        for (const char* k = lineBegin; k < lineEnd; ++k)
            if (*k == '\\' || *k == '#' || *k == '\0' || *k == '\v' || *k == '\f' ||
                static_cast<unsigned char>(*k) >= 0x80)
                return false;
        splitTokens(lineBegin, lineEnd, tokens);
        const std::string keyword(tokens[0].first, tokens[0].second);
        if (keyword == "v" || keyword == "vn") {
            if (tokens.size() != 4) return false;
            float value[3];
            for (int k = 0; k < 3; ++k)
                if (!parseFloat(tokens[static_cast<size_t>(k) + 1].first, tokens[static_cast<size_t>(k) + 1].second,
                                value[k]))
                    return false;
            (keyword == "v" ? positions : normals).push_back(tVec3{value[0], value[1], value[2]});
        } else if (keyword == "vt") {
            if (tokens.size() != 3 && tokens.size() != 4) return false;
            float value;
            for (size_t k = 1; k < tokens.size(); ++k)
                if (!parseFloat(tokens[k].first, tokens[k].second, value)) return false;
            ++textureCount;
        } else if (keyword == "f") {
            if (tokens.size() != 4) return false;
            tFace face;
            int form = -1;  // 0: v, 1: v/t, 2: v//n, 3: v/t/n
            for (int k = 0; k < 3; ++k) {
                const char* t = tokens[static_cast<size_t>(k) + 1].first;
                const char* const tEnd = tokens[static_cast<size_t>(k) + 1].second;
                int64_t parts[3] = {0, 0, 0};
                bool present[3] = {false, false, false};
                for (int part = 0; part < 3; ++part) {
                    const char* partEnd = std::find(t, tEnd, '/');
                    if (partEnd != t) {
                        const bool negative = *t == '-';
                        uint64_t value;
                        if (!parseIndex(t + (negative ? 1 : 0), partEnd, value) || value == 0) return false;
                        parts[part] = negative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
                        present[part] = true;
                    }
                    t = partEnd;
                    if (t == tEnd) break;
                    ++t;  // past the slash
                    if (part == 2) return false;
                }
                const int cornerForm = !present[0]                ? -2
                                       : present[1] && present[2] ? 3
                                       : present[2]               ? 2
                                       : present[1]               ? 1
                                                                  : 0;
                // The slashes must match the form exactly ("1/" or "1//" are declined).
                const int slashes = static_cast<int>(std::count(tokens[static_cast<size_t>(k) + 1].first, tEnd, '/'));
                if (cornerForm < 0 ||
                    slashes != (cornerForm == 0   ? 0
                                : cornerForm == 1 ? 1
                                                  : 2) ||
                    (form >= 0 && cornerForm != form))
                    return false;
                form = cornerForm;
                const auto resolve = [](int64_t index, size_t count) {
                    return index > 0 ? index - 1 : static_cast<int64_t>(count) + index;
                };
                face.position[k] = resolve(parts[0], positions.size());
                face.texture[k] = present[1] ? resolve(parts[1], static_cast<size_t>(textureCount)) : -1;
                face.normal[k] = present[2] ? resolve(parts[2], normals.size()) : -1;
            }
            // Texture indices are read only when there are texture records,
            // and the v/t/n forms then mean what they say.
            if ((form == 1 || form == 3) && textureCount == 0) return false;
            if ((form == 2 || form == 3) && normals.empty()) return false;
            if (objects.empty()) createObject("defaultobject");
            tObjMesh& mesh = objMeshes[objects.back().meshes.back()];
            const bool withNormals = form >= 2;
            if (!mesh.faces.empty() && mesh.normals != withNormals) return false;
            mesh.normals = withNormals;
            mesh.faces.push_back(face);
        } else if (keyword == "o") {
            if (tokens.size() != 2 || tokens[1].second != lineEnd) return false;
            const std::string name(tokens[1].first, tokens[1].second);
            for (const tObject& object : objects)
                if (object.name == name) return false;
            createObject(name);
        } else if (keyword == "g") {
            if (tokens.size() != 2 || tokens[1].second != lineEnd) return false;
            const std::string name(tokens[1].first, tokens[1].second);
            if (name != activeGroup) {
                createObject(name);
                activeGroup = name;
            }
        } else if (keyword != "s") {
            return false;
        }
    }

    // Indices may point forward; they are checked against the final counts.
    for (const tObjMesh& objMesh : objMeshes)
        for (const tFace& face : objMesh.faces)
            for (int k = 0; k < 3; ++k)
                if (face.position[k] < 0 || face.position[k] >= static_cast<int64_t>(positions.size()) ||
                    face.normal[k] >= static_cast<int64_t>(normals.size()) || face.texture[k] >= textureCount ||
                    (face.normal[k] < 0 && objMesh.normals) || (face.texture[k] < -1))
                    return false;
    for (const tObjMesh& objMesh : objMeshes)
        for (const tFace& face : objMesh.faces)
            for (int k = 0; k < 3; ++k)
                if (objMesh.normals && face.normal[k] < 0) return false;

    std::vector<unsigned int> local(positions.size(), 0xffffffffu);
    for (const tObject& object : objects)
        for (const size_t m : object.meshes) {
            const tObjMesh& objMesh = objMeshes[m];
            if (objMesh.faces.empty()) continue;
            tSourceMesh mesh;
            mesh.name = objMesh.name;
            mesh.corners.reserve(3 * objMesh.faces.size());
            // Room for the most vertices the mesh can have; pages not used
            // are never touched.
            mesh.positions.reserve(objMesh.normals ? 3 * objMesh.faces.size()
                                                   : std::min(positions.size(), 3 * objMesh.faces.size()));
            if (objMesh.normals) mesh.normals.reserve(3 * objMesh.faces.size());
            for (const tFace& face : objMesh.faces)
                for (int k = 0; k < 3; ++k) {
                    const size_t p = static_cast<size_t>(face.position[k]);
                    if (objMesh.normals) {
                        mesh.corners.push_back(static_cast<unsigned int>(mesh.positions.size()));
                        mesh.positions.push_back(positions[p]);
                        mesh.normals.push_back(normals[static_cast<size_t>(face.normal[k])]);
                    } else {
                        if (local[p] == 0xffffffffu) {
                            local[p] = static_cast<unsigned int>(mesh.positions.size());
                            mesh.positions.push_back(positions[p]);
                        }
                        mesh.corners.push_back(local[p]);
                    }
                }
            if (!objMesh.normals)
                for (const tFace& face : objMesh.faces)
                    for (int k = 0; k < 3; ++k) local[static_cast<size_t>(face.position[k])] = 0xffffffffu;
            meshes.push_back(std::move(mesh));
        }
    return !meshes.empty();
}

std::string lowerExtension(const std::string& path) {
    std::string extension = path.size() >= 4 ? path.substr(path.size() - 4) : std::string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

// One mesh instance of the model: shared buffers, placed by rows.
void placeMesh(ImportedModel& model, const tBuffers& buffers, const tRows& rows, const std::string& name) {
    qe::qePointer<qe::qeTriMesh> mesh = new qe::qeTriMesh(buffers.vertices, buffers.indices);
    mesh->Local = qe::qeGenericTransformation<float>(rows);
    mesh->World = mesh->Local;
    mesh->WorldIsCurrent = true;
    mesh->UpdateMS(true, false, 0);
    mesh->UpdateGS();
    model.triangleCount += static_cast<size_t>(mesh->GetTriangleQuantity());
    model.meshes.push_back(mesh);
    model.names.push_back(name);
}

// The built-in readers. False when the file is not theirs to read, in which
// case assimp reads it (and reports whatever is wrong with it).
bool importBuiltIn(const std::string& path, const std::string& extension, const ImportOptions& options,
                   ImportedModel& model) {
    if (extension != ".stl" && extension != ".ply" && extension != ".obj") return false;
    std::vector<tSourceMesh> meshes;
    {
        // The readers copy what they need, so the file goes before the
        // meshes are built.
        const tMappedFile data(path);
        if (!data.isOpen()) return false;
        const bool read = extension == ".stl"   ? readBinaryStl(data, meshes)
                          : extension == ".ply" ? readPly(data, meshes)
                                                : readObj(data, meshes);
        if (!read) return false;
    }

    // Assimp names the single mesh of binary STL and PLY files as below (its
    // unnamed mesh takes the name of the node that holds it).
    const char* const unnamed = "";
    bool allNormals = true;
    for (size_t m = 0; m < meshes.size(); ++m) {
        tBuffers buffers;
        std::string error;
        if (!convertMesh(meshes[m], static_cast<unsigned int>(m), options, extension == ".stl", buffers, error)) {
            model = ImportedModel();
            return false;
        }
        if (!buffers.indices) continue;
        tally(model, buffers);
        allNormals = allNormals && buffers.vertices->GetAttributes().HasNormal();
        placeMesh(model, buffers, kIdentityRows, meshes[m].name.empty() ? unnamed : meshes[m].name);
    }
    model.hasNormals = allNormals;
    return !model.meshes.empty();
}

// The mesh of an assimp scene in the readers' form. Faces other than
// triangles (points and lines that survived) are left out.
bool fromAssimp(const aiMesh& source, unsigned int meshIndex, tSourceMesh& mesh, std::string& error) {
    mesh.corners.reserve(3 * static_cast<size_t>(source.mNumFaces));
    for (unsigned int f = 0; f < source.mNumFaces; ++f) {
        const aiFace& face = source.mFaces[f];
        if (face.mNumIndices != 3) continue;
        for (unsigned int c = 0; c < 3; ++c) {
            if (face.mIndices[c] >= source.mNumVertices) {
                error = "face " + std::to_string(f) + " of mesh " + std::to_string(meshIndex) +
                        " refers to a vertex that does not exist";
                return false;
            }
            mesh.corners.push_back(face.mIndices[c]);
        }
    }
    if (mesh.corners.empty()) return true;
    mesh.positions.resize(source.mNumVertices);
    for (unsigned int v = 0; v < source.mNumVertices; ++v)
        mesh.positions[v] = tVec3{source.mVertices[v].x, source.mVertices[v].y, source.mVertices[v].z};
    if (source.HasNormals()) {
        mesh.normals.resize(source.mNumVertices);
        for (unsigned int v = 0; v < source.mNumVertices; ++v)
            mesh.normals[v] = tVec3{source.mNormals[v].x, source.mNormals[v].y, source.mNormals[v].z};
    }
    return true;
}

}  // namespace

std::vector<const qe::qeTriMesh*> ImportedModel::meshList() const {
    std::vector<const qe::qeTriMesh*> list;
    list.reserve(meshes.size());
    for (const qe::qePointer<qe::qeTriMesh>& mesh : meshes) list.push_back(mesh);
    return list;
}

bool ImportModel(const std::string& path, ImportedModel& model, std::string& error, const ImportOptions& options) {
    model = ImportedModel();
    // STL stores one normal per facet, which assimp hands on per corner: they
    // would make every edge between two facets a crease, curved surfaces
    // included, so they are replaced like missing ones.
    const std::string extension = lowerExtension(path);
    if (!options.generalReaderOnly && importBuiltIn(path, extension, options, model)) return true;
    model = ImportedModel();

    Assimp::Importer importer;
    // Points and lines are removed. Assimp's own vertex joining is not used:
    // it welds within a tolerance, and the library matches positions exactly.
    importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
    const aiScene* scene =
        importer.ReadFile(path, aiProcess_Triangulate | aiProcess_SortByPType | aiProcess_ValidateDataStructure);
    if (!scene || !scene->mRootNode) {
        const std::string reason = importer.GetErrorString();
        error = "cannot read '" + path + "': " + (reason.empty() ? "unknown format" : reason);
        return false;
    }
    const bool facetNormalsOnly = extension == ".stl";

    std::vector<tBuffers> buffers(scene->mNumMeshes);
    for (unsigned int m = 0; m < scene->mNumMeshes; ++m) {
        tSourceMesh mesh;
        if (!fromAssimp(*scene->mMeshes[m], m, mesh, error) ||
            !convertMesh(mesh, m, options, facetNormalsOnly, buffers[m], error)) {
            error = "cannot read '" + path + "': " + error;
            return false;
        }
        if (buffers[m].vertices) tally(model, buffers[m]);
    }

    bool allNormals = true;
    const std::function<void(const aiNode&, const aiMatrix4x4&)> place = [&](const aiNode& node,
                                                                             const aiMatrix4x4& parent) {
        const aiMatrix4x4 global = parent * node.mTransformation;
        for (unsigned int k = 0; k < node.mNumMeshes; ++k) {
            const unsigned int m = node.mMeshes[k];
            if (m >= buffers.size() || !buffers[m].indices) continue;
            allNormals = allNormals && buffers[m].vertices->GetAttributes().HasNormal();
            const std::string name = scene->mMeshes[m]->mName.C_Str();
            placeMesh(model, buffers[m], toRows(global), name.empty() ? node.mName.C_Str() : name);
        }
        for (unsigned int c = 0; c < node.mNumChildren; ++c) place(*node.mChildren[c], global);
    };
    place(*scene->mRootNode, aiMatrix4x4());

    if (model.meshes.empty()) {
        error = "'" + path + "' holds no triangle";
        model = ImportedModel();
        return false;
    }
    model.hasNormals = allNormals;
    return true;
}

}  // namespace contour
