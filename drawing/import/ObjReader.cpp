#include <algorithm>
#include <cstdint>
#include <string>
#include <unordered_set>
#include <utility>

#include "MeshReaders.h"
#include "NumberScan.h"

namespace contour::importer {

// OBJ with v, vn and vt records, triangular faces (v, v/t, v//n or v/t/n on
// every corner of a face), objects (o), groups (g), smoothing groups (s,
// ignored) and comments. Assimp makes an object, and a mesh named like it,
// for every o with a new name and every g that changes the group; faces
// before either go to "defaultobject". Meshes come in the order of their
// objects; empty ones are dropped. Every face corner becomes its own vertex
// there; here a mesh without normals keeps shared positions instead, which
// the corner joining numbers the same way.
bool readObj(const tMappedFile& data, std::vector<tSourceMesh>& meshes, std::string* refusal) {
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
    std::unordered_set<std::string> objectNames;  // an o naming an earlier object is assimp's to read
    std::vector<tObjMesh> objMeshes;
    std::string activeGroup;
    const auto createObject = [&](const std::string& name) {
        objects.push_back(tObject{name, {objMeshes.size()}});
        objectNames.insert(name);
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
        if (lineBegin == lineEnd) continue;
        if (*lineBegin == '#') {
            // Assimp ends a line at a NUL byte, and continues a comment that
            // ends in a backslash onto the next line; such files are its own.
            if (lineEnd[-1] == '\\' || std::find(lineBegin, lineEnd, '\0') != lineEnd) return false;
            continue;
        }
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
            for (int k = 0; k < 3; ++k) {
                const auto& token = tokens[static_cast<size_t>(k) + 1];
                if (!parseFloat(token.first, token.second, value[k])) {
                    refuseMisreadNumber(data, token.first, token.second, refusal);
                    return false;
                }
            }
            (keyword == "v" ? positions : normals).push_back(tVec3{value[0], value[1], value[2]});
        } else if (keyword == "vt") {
            if (tokens.size() != 3 && tokens.size() != 4) return false;
            float value;
            for (size_t k = 1; k < tokens.size(); ++k)
                if (!parseFloat(tokens[k].first, tokens[k].second, value)) {
                    refuseMisreadNumber(data, tokens[k].first, tokens[k].second, refusal);
                    return false;
                }
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
            if (objectNames.count(name) != 0) return false;
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

}  // namespace contour::importer
