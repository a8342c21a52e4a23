// Fuzz target: an arbitrary camera, bit sizes, triangles and edges are baked
// and queried. Checks that nothing crashes or overflows (run under the
// sanitizers) and that the results keep their invariants: a valid baked
// structure and hidden intervals that are non-empty parts of [0, 1].
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "qe/qeTriMesh.h"

#include "ctr/BakedTriangles.h"
#include "exact/Exact.h"

namespace {

class tReader {
public:
    tReader(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    template <class T>
    T read() {
        T value{};
        if (m_size >= sizeof(T)) {
            std::memcpy(&value, m_data, sizeof(T));
            m_data += sizeof(T);
            m_size -= sizeof(T);
        } else {
            m_size = 0;
        }
        return value;
    }
    bool empty() const { return m_size == 0; }

private:
    const uint8_t* m_data;
    size_t m_size;
};

void require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "invariant broken: %s\n", what);
        __builtin_trap();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tReader in(data, size);
    ctr::DiscreteProjectionSpace space;
    Wm4::Matrix4<float> worldToClip(false), clipToWorld(false);
    // Mostly sane cameras: perturb the identity by the input's floats.
    for (int i = 0; i < 16; ++i) worldToClip[i / 4][i % 4] += in.read<float>();
    for (int i = 0; i < 16; ++i) clipToWorld[i / 4][i % 4] += in.read<float>();
    space.setViewProjection(worldToClip, clipToWorld);
    space.setVoxelBitSize(in.read<uint8_t>(), in.read<uint8_t>());
    space.updateRatios();

    const uint8_t vertexCount = in.read<uint8_t>() % 24 + 3;
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    qe::qePointer<qe::qeVertexBuffer> vertices = new qe::qeVertexBuffer(attributes, vertexCount);
    for (int i = 0; i < vertexCount; ++i)
        vertices->Position3(i) = Wm4::Vector3<float>(in.read<float>(), in.read<float>(), in.read<float>());
    const uint8_t triangleCount = in.read<uint8_t>() % 16 + 1;
    qe::qePointer<qe::qeIndexBuffer> indices =
        new qe::qeIndexBuffer(3 * triangleCount, qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    for (int i = 0; i < 3 * triangleCount; ++i) indices->GetData()[i] = in.read<uint8_t>() % (vertexCount + 2);
    qe::qePointer<qe::qeTriMesh> mesh = new qe::qeTriMesh(vertices, indices);

    ctr::BakedTriangles baked;
    baked.setProjectionSpace(&space);
    baked.setMeshes({mesh});
    baked.initialize();
    std::string why;
    require(baked.validate(&why), why.c_str());

    std::vector<ctr::RationalInterval> list;
    while (!in.empty()) {
        ctr::BakedVertex a, b;
        float wa = 0.0f, wb = 0.0f;
        const Wm4::Vector3<float> p(in.read<float>(), in.read<float>(), in.read<float>());
        const Wm4::Vector3<float> q(in.read<float>(), in.read<float>(), in.read<float>());
        const auto range = space.clipEdgeWorld(p, q, a, b, wa, wb);
        if (!(range.first < range.second)) continue;
        list.clear();
        baked.computeOcclusionIntervals(a, b, list);
        for (const ctr::RationalInterval& r : list) {
            require(r.startDenominator > 0 && r.endDenominator > 0, "positive denominators");
            require(r.startNumerator >= 0 && r.endNumerator <= r.endDenominator, "inside [0, 1]");
            require(ctr::exact::Less(r.startNumerator, r.startDenominator, r.endNumerator, r.endDenominator),
                    "non-empty");
        }
    }
    return 0;
}
