#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include "MeshReaders.h"
#include "NumberScan.h"

namespace contour::importer {

namespace {

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

}  // namespace

bool readPly(const tMappedFile& data, std::vector<tSourceMesh>& meshes, std::string* refusal) {
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
            // The properties read here are a dozen at most; the bound keeps
            // the check for repeated names from growing with the square of
            // a crafted header.
            if (property.size == 0 || elements.back().properties.size() >= 32) return false;
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
                if (!parseFloat(tokens[k].first, tokens[k].second, value)) {
                    refuseMisreadNumber(data, tokens[k].first, tokens[k].second, refusal);
                    return false;
                }
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

}  // namespace contour::importer
