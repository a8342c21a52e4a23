#include <algorithm>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "check/Check.h"
#include "ctr/FittingSystem.h"
#include "ctr/LineSegmentSet.h"
#include "lines/Placement.h"

namespace ctr {

namespace {

// Arcs spanning less than this many radians (22.5 degrees) stay polylines:
// a few chords of a shallow curve fit a circle too easily to mean one.
constexpr float kMinArcAngle = 0.3926991f;

// A stretch of one run while building; begin and end count segments in the
// run array. previous and next link the stretches of one run.
struct Piece {
    size_t begin;
    size_t end;
    int64_t previous;
    int64_t next;
    uint32_t flags;
};

class PolylineBuilder {
public:
    PolylineBuilder(const qe::qeVertexBuffer& vertexBuffer, const qe::qeIndexBuffer& indexBuffer,
                    const std::vector<bool>* segmentFlags)
        : vertices(vertexBuffer),
          indices(indexBuffer.GetData()),
          segmentCount(static_cast<size_t>(indexBuffer.GetIndexQuantity() / 2)),
          vertexCount(vertexBuffer.GetAttributes().HasPosition()
                          ? static_cast<uint32_t>(vertexBuffer.GetVertexQuantity())
                          : 0u),
          flags(segmentFlags && !segmentFlags->empty() ? segmentFlags : nullptr) {}

    void chain();
    void split();

    bool flagOf(uint32_t segment) const { return flags && segment < flags->size() && (*flags)[segment]; }

    const qe::qeVertexBuffer& vertices;
    const unsigned int* indices;
    const size_t segmentCount;
    const uint32_t vertexCount;
    const std::vector<bool>* flags;

    // Chained segments, oriented along their run: two vertex indices each,
    // and the source segment of each.
    std::vector<uint32_t> runIndices;
    std::vector<uint32_t> runSegments;
    // [first, end) segment positions of each run in the run array.
    std::vector<std::pair<size_t, size_t>> runs;
    std::deque<Piece> pieces;

private:
    void append(uint32_t segment, uint32_t from, uint32_t to) {
        runIndices.push_back(from);
        runIndices.push_back(to);
        runSegments.push_back(segment);
    }
    void walk(uint32_t vertex, uint32_t arrivedBy, const std::vector<uint32_t>& offsets,
              const std::vector<uint32_t>& adjacency, std::vector<bool>& visited);
    void splitRun(size_t first, size_t end);
    size_t addPiece(size_t begin, size_t end, uint32_t pieceFlags, int64_t previous);
    bool add(FittingSystem& system, size_t position, bool circleMode) const {
        const uint32_t from = runIndices[2 * position];
        const uint32_t to = runIndices[2 * position + 1];
        return system.addToSystem(vertices.Position3(static_cast<int>(from)), vertices.Position3(static_cast<int>(to)),
                                  false, circleMode);
    }
};

void PolylineBuilder::chain() {
    // A segment naming a vertex that does not exist is left out: it has no
    // position to draw or fit.
    const auto valid = [&](size_t s) { return indices[2 * s] < vertexCount && indices[2 * s + 1] < vertexCount; };
    std::vector<uint32_t> offsets(static_cast<size_t>(vertexCount) + 1, 0u);
    for (size_t s = 0; s < segmentCount; ++s) {
        if (!valid(s)) continue;
        ++offsets[indices[2 * s] + 1];
        ++offsets[indices[2 * s + 1] + 1];
    }
    for (size_t v = 0; v < vertexCount; ++v) offsets[v + 1] += offsets[v];
    std::vector<uint32_t> adjacency(offsets.back());
    {
        std::vector<uint32_t> fill(offsets.begin(), offsets.end() - 1);
        for (size_t s = 0; s < segmentCount; ++s) {
            if (!valid(s)) continue;
            adjacency[fill[indices[2 * s]]++] = static_cast<uint32_t>(s);
            adjacency[fill[indices[2 * s + 1]]++] = static_cast<uint32_t>(s);
        }
    }

    std::vector<bool> visited(segmentCount, false);
    runIndices.reserve(2 * static_cast<size_t>(offsets.back() / 2));
    runSegments.reserve(offsets.back() / 2);
    for (uint32_t v = 0; v < vertexCount; ++v) {
        for (uint32_t e = offsets[v]; e < offsets[v + 1]; ++e) {
            const uint32_t seed = adjacency[e];
            if (visited[seed]) continue;
            visited[seed] = true;
            const size_t first = runSegments.size();
            append(seed, indices[2 * seed], indices[2 * seed + 1]);
            walk(indices[2 * seed + 1], seed, offsets, adjacency, visited);
            // Turn what was found so far around and go on from the seed's
            // start, so that the run grows at both ends of the seed.
            std::reverse(runIndices.begin() + static_cast<std::ptrdiff_t>(2 * first), runIndices.end());
            std::reverse(runSegments.begin() + static_cast<std::ptrdiff_t>(first), runSegments.end());
            walk(indices[2 * seed], seed, offsets, adjacency, visited);
            runs.emplace_back(first, runSegments.size());
        }
    }
    // Every segment with both ends in the buffer, in exactly one run: the
    // output below is sized from the runs, not from the input.
    CTR_ASSERT(runSegments.size() == offsets.back() / 2);
}

void PolylineBuilder::walk(uint32_t vertex, uint32_t arrivedBy, const std::vector<uint32_t>& offsets,
                           const std::vector<uint32_t>& adjacency, std::vector<bool>& visited) {
    // Through vertices where exactly two segments meet; a run ends at any
    // other vertex, or where it comes back to its own start.
    while (offsets[vertex + 1] - offsets[vertex] == 2) {
        const uint32_t first = adjacency[offsets[vertex]];
        const uint32_t second = adjacency[offsets[vertex] + 1];
        const uint32_t next = first == arrivedBy ? second : first;
        if (visited[next]) return;
        visited[next] = true;
        const uint32_t far = indices[2 * next] == vertex ? indices[2 * next + 1] : indices[2 * next];
        append(next, vertex, far);
        vertex = far;
        arrivedBy = next;
    }
}

size_t PolylineBuilder::addPiece(size_t begin, size_t end, uint32_t pieceFlags, int64_t previous) {
    pieces.push_back(Piece{begin, end, previous, -1, pieceFlags});
    const size_t index = pieces.size() - 1;
    if (previous >= 0) pieces[static_cast<size_t>(previous)].next = static_cast<int64_t>(index);
    return index;
}

void PolylineBuilder::split() {
    for (const std::pair<size_t, size_t>& run : runs) splitRun(run.first, run.second);
}

void PolylineBuilder::splitRun(size_t first, size_t end) {
    if (end - first < 2) {
        addPiece(first, end, 0u, -1);
        return;
    }
    // Without flags every run is tried as arcs.
    const bool lineMode = flagOf(runSegments[first]);
    const uint32_t stretchFlag = lineMode ? LineSegmentSet::ArcFeature::kLine : LineSegmentSet::ArcFeature::kArc;
    const size_t last = end - 1;
    FittingSystem system;
    int64_t previous = -1;
    size_t pending = first;  // first segment not yet in a piece
    size_t cur = first;
    while (cur < last) {
        system.reset();
        float angle = 0.0f;
        const auto fits = [&]() { return lineMode ? system.fitLine() : system.fitCircle(&angle); };
        add(system, cur, !lineMode);
        add(system, cur + 1, !lineMode);
        if (!fits()) {
            ++cur;
            continue;
        }
        size_t next = cur + 2;
        for (; next <= last; ++next) {
            add(system, next, !lineMode);
            if (!fits()) break;
        }
        const size_t stretchLast = next - 1;
        // angle is what the last fit wrote, a failed final fit included.
        if (!lineMode && !(angle >= kMinArcAngle)) {
            cur = std::min(stretchLast, last);
            continue;
        }
        if (pending < cur) previous = static_cast<int64_t>(addPiece(pending, cur, 0u, previous));
        previous = static_cast<int64_t>(addPiece(cur, stretchLast + 1, stretchFlag, previous));
        pending = stretchLast + 1;
        cur = pending;
    }
    if (pending < end) addPiece(pending, end, 0u, previous);
}

}  // namespace

void LineSegmentSet::ArcFeature::reverseIndexBuffer(unsigned int* indexArray, std::vector<bool>* segmentFlags,
                                                    std::vector<unsigned char>* bytes) const {
    std::reverse(indexArray + begin, indexArray + end);
    const size_t firstSegment = begin / 2;
    const size_t endSegment = end / 2;
    if (segmentFlags && endSegment <= segmentFlags->size())
        std::reverse(segmentFlags->begin() + static_cast<std::ptrdiff_t>(firstSegment),
                     segmentFlags->begin() + static_cast<std::ptrdiff_t>(endSegment));
    if (bytes && endSegment <= bytes->size())
        std::reverse(bytes->begin() + static_cast<std::ptrdiff_t>(firstSegment),
                     bytes->begin() + static_cast<std::ptrdiff_t>(endSegment));
}

bool LineSegmentSet::BuildPolylinesImpl(const qe::qeVertexBuffer& vertices, const qe::qeIndexBuffer& indices,
                                        const std::vector<bool>* segmentFlags, std::vector<unsigned char>* segmentBytes,
                                        qe::qePointer<qe::qeIndexBuffer>& outIndices, std::vector<ArcFeature>& arcs,
                                        std::vector<bool>& outFlags) {
    arcs.clear();
    PolylineBuilder builder(vertices, indices, segmentFlags);
    builder.chain();
    if (builder.runs.empty()) return false;
    builder.split();

    // Every run is one polyline: its first piece is the head.
    size_t headCount = 0;
    size_t indexTotal = 0;
    for (const Piece& piece : builder.pieces) {
        if (piece.previous < 0 && piece.end > piece.begin) ++headCount;
        indexTotal += 2 * (piece.end - piece.begin);
    }
    arcs.reserve(headCount);
    qe::qePointer<qe::qeIndexBuffer> output =
        new qe::qeIndexBuffer(static_cast<int>(indexTotal), qe::qeIndexBuffer::IBT_LINE_LIST);
    const bool withFlags = builder.flags != nullptr;
    std::vector<bool> flagsOut;
    if (withFlags) flagsOut.reserve(indexTotal / 2);
    std::vector<unsigned char> bytesOut;
    if (segmentBytes) bytesOut.reserve(indexTotal / 2);

    unsigned int* cursor = output->GetData();
    std::vector<int64_t> linkPrevious;
    for (const Piece& head : builder.pieces) {
        if (head.previous >= 0 || head.end == head.begin) continue;
        int64_t previousRecord = -1;
        for (const Piece* piece = &head;;) {
            const uint32_t begin = static_cast<uint32_t>(cursor - output->GetData());
            for (size_t position = piece->begin; position < piece->end; ++position) {
                *cursor++ = builder.runIndices[2 * position];
                *cursor++ = builder.runIndices[2 * position + 1];
                const uint32_t source = builder.runSegments[position];
                if (withFlags) flagsOut.push_back(builder.flagOf(source));
                if (segmentBytes) bytesOut.push_back(source < segmentBytes->size() ? (*segmentBytes)[source] : 0);
            }
            const uint32_t end = static_cast<uint32_t>(cursor - output->GetData());
            arcs.push_back(ArcFeature{begin, end, nullptr, nullptr, piece->flags});
            linkPrevious.push_back(previousRecord);
            previousRecord = static_cast<int64_t>(arcs.size() - 1);
            if (piece->next < 0) break;
            piece = &builder.pieces[static_cast<size_t>(piece->next)];
        }
    }
    // The buffer was sized from the pieces; a slot left unwritten would be
    // drawn as a segment to whatever it held.
    CTR_ASSERT(static_cast<size_t>(cursor - output->GetData()) == indexTotal);
    // Links are set once the vector has stopped growing.
    for (size_t r = 0; r < arcs.size(); ++r) {
        if (linkPrevious[r] < 0) continue;
        ArcFeature& before = arcs[static_cast<size_t>(linkPrevious[r])];
        arcs[r].previous = &before;
        before.next = &arcs[r];
    }

    outIndices = output;
    outFlags = std::move(flagsOut);
    if (segmentBytes) *segmentBytes = std::move(bytesOut);
    return true;
}

LineSegmentSet* LineSegmentSet::BuildPolylines(const LineSegmentSet& source, std::vector<ArcFeature>& arcs,
                                               bool filterVertices) {
    if (!source.VBuffer || !source.IBuffer) {
        arcs.clear();
        return nullptr;
    }
    qe::qePointer<qe::qeIndexBuffer> chained;
    std::vector<bool> flags;
    if (!BuildPolylinesImpl(*source.VBuffer, *source.IBuffer, &source.segmentFlags, nullptr, chained, arcs, flags))
        return nullptr;

    std::unique_ptr<LineSegmentSet> result(new LineSegmentSet);
    if (filterVertices)
        CreateFilteredVertexBufferPatched(*source.VBuffer, *chained, result->VBuffer);
    else
        result->VBuffer = source.VBuffer;
    result->IBuffer = chained;
    result->segmentFlags = std::move(flags);
    CopyPlacement(source, *result);
    return result.release();
}

}  // namespace ctr
