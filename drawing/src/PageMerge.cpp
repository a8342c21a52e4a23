#include "ctr/drawing/PageMerge.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qe/qeAttributes.h"

namespace contour {

namespace {

// A drawn piece of one of the view's sets, with its ends on the page.
struct tPiece {
    uint32_t set;
    uint32_t segment;
    double a[2], b[2];
    double length;
};

// An end of a piece: a vertex of one of the sets.
struct tEnd {
    uint32_t set;
    uint32_t vertex;
};

// A stretch along the line of a group, from one piece end to another.
struct tRun {
    double from, to;
    tEnd start, end;
};

// One of the sets of a view and where its pieces are counted.
struct tSetEntry {
    qe::qePointer<ctr::LineSegmentSet>* slot;
    size_t* merged;
    bool crease = false;
    bool visible = true;
    bool silhouetteLike = false;
};

// Pieces spread over a grid of square cells: two pieces that share a stretch
// of one line within the tolerance share a cell. A piece covers every cell
// that comes within twice the tolerance of it (a point off its line by the
// tolerance is off it by less than that along the axis it runs closer to),
// column by column along its longer axis, so a long piece covers a narrow
// band of cells rather than its bounding box.
class PieceGrid {
public:
    PieceGrid(const std::vector<tPiece>& pieces, double cell, double tolerance)
        : m_cell(cell), m_reach(2.0 * tolerance) {
        std::vector<uint64_t> keys;
        for (uint32_t p = 0; p < pieces.size(); ++p) {
            keys.clear();
            cover(pieces[p], keys);
            for (const uint64_t key : keys) m_entries.push_back({key, p});
        }
        std::sort(m_entries.begin(), m_entries.end());
        m_entries.erase(std::unique(m_entries.begin(), m_entries.end()), m_entries.end());
    }

    // The cells a piece covers (possibly repeated).
    void cover(const tPiece& piece, std::vector<uint64_t>& keys) const {
        // Along the longer axis (major), the shorter one follows.
        const int major = std::abs(piece.b[0] - piece.a[0]) >= std::abs(piece.b[1] - piece.a[1]) ? 0 : 1;
        const int minor = 1 - major;
        const double* lo = piece.a[major] <= piece.b[major] ? piece.a : piece.b;
        const double* hi = lo == piece.a ? piece.b : piece.a;
        const double run = hi[major] - lo[major];
        const double slope = run > 0.0 ? (hi[minor] - lo[minor]) / run : 0.0;
        const auto minorAt = [&](double x) { return lo[minor] + slope * (std::clamp(x, lo[major], hi[major]) - lo[major]); };
        const int64_t first = index(lo[major] - m_reach), last = index(hi[major] + m_reach);
        for (int64_t column = first; column <= last; ++column) {
            const double x0 = std::max(lo[major] - m_reach, static_cast<double>(column) * m_cell);
            const double x1 = std::min(hi[major] + m_reach, static_cast<double>(column + 1) * m_cell);
            const double y0 = minorAt(x0), y1 = minorAt(x1);
            const int64_t bottom = index(std::min(y0, y1) - m_reach), top = index(std::max(y0, y1) + m_reach);
            for (int64_t row = bottom; row <= top; ++row)
                keys.push_back(major == 0 ? key(column, row) : key(row, column));
        }
    }

    // Calls visit with every piece listed in a cell.
    template <class Visit>
    void forEachIn(uint64_t cellKey, Visit&& visit) const {
        auto it = std::lower_bound(m_entries.begin(), m_entries.end(), std::make_pair(cellKey, uint32_t{0}));
        for (; it != m_entries.end() && it->first == cellKey; ++it) visit(it->second);
    }

private:
    int64_t index(double coordinate) const { return static_cast<int64_t>(std::floor(coordinate / m_cell)); }
    static uint64_t key(int64_t x, int64_t y) {
        // Page coordinates over the cell size stay far inside 32 bits.
        return (static_cast<uint64_t>(static_cast<uint32_t>(x)) << 32) | static_cast<uint32_t>(y);
    }

    double m_cell;
    double m_reach;
    std::vector<std::pair<uint64_t, uint32_t>> m_entries;
};

// The union of runs sorted by start, joining runs that overlap or leave a gap
// no wider than the tolerance; each joined run keeps its extreme ends.
std::vector<tRun> JoinRuns(std::vector<tRun> runs, double tolerance) {
    std::sort(runs.begin(), runs.end(), [](const tRun& x, const tRun& y) { return x.from < y.from; });
    std::vector<tRun> joined;
    for (const tRun& run : runs) {
        if (!joined.empty() && run.from <= joined.back().to + tolerance) {
            if (run.to > joined.back().to) {
                joined.back().to = run.to;
                joined.back().end = run.end;
            }
        } else {
            joined.push_back(run);
        }
    }
    return joined;
}

// What is left of runs where covers (joined) do not draw them: a cover
// takes a stretch where it overlaps a run by more than float noise (pieces
// that merely meet end to end are left alone), and a remainder no longer
// than the tolerance is dropped. A remainder ends at the cover's end point.
std::vector<tRun> SubtractRuns(const std::vector<tRun>& runs, const std::vector<tRun>& covers, double tolerance,
                               double noise) {
    std::vector<tRun> left;
    for (tRun run : runs) {
        bool alive = true;
        for (const tRun& cover : covers) {
            if (cover.from >= run.to) break;
            if (std::min(run.to, cover.to) - std::max(run.from, cover.from) <= noise) continue;
            if (cover.from - run.from > tolerance) left.push_back(tRun{run.from, cover.from, run.start, cover.start});
            if (run.to - cover.to > tolerance) {
                run.from = cover.to;
                run.start = cover.end;
            } else {
                alive = false;
                break;
            }
        }
        if (alive) left.push_back(run);
    }
    return left;
}

// The set made from source with its segments replaced: extra vertices (world
// positions of other sets under the same placement) appended to its own.
ctr::LineSegmentSet* RebuildSet(const ctr::LineSegmentSet& source, const std::vector<tEnd>& segments,
                                const std::vector<Wm4::Vector3<float>>& extra) {
    const qe::qeVertexBuffer& sourceVertices = *source.VBuffer;
    const int own = sourceVertices.GetVertexQuantity();
    std::unique_ptr<ctr::LineSegmentSet> result(new ctr::LineSegmentSet);
    if (extra.empty()) {
        result->VBuffer = source.VBuffer;
    } else {
        qe::qeAttributes attributes;
        attributes.SetPositionChannels(3);
        qe::qePointer<qe::qeVertexBuffer> vertices =
            new qe::qeVertexBuffer(attributes, own + static_cast<int>(extra.size()));
        for (int i = 0; i < own; ++i) vertices->Position3(i) = sourceVertices.Position3(i);
        for (size_t i = 0; i < extra.size(); ++i) vertices->Position3(own + static_cast<int>(i)) = extra[i];
        result->VBuffer = vertices;
    }
    result->IBuffer = new qe::qeIndexBuffer(static_cast<int>(segments.size()), qe::qeIndexBuffer::IBT_LINE_LIST);
    unsigned int* index = result->IBuffer->GetData();
    for (size_t i = 0; i < segments.size(); ++i) index[i] = segments[i].vertex;
    // Placement and look as the source has them, in the order the
    // framework's dirty marking expects.
    result->setDirtyDown(false);
    result->Local = source.Local;
    result->setDirtyDown(false);
    result->World = source.World;
    result->WorldIsCurrent = source.WorldIsCurrent;
    result->setColor(source.getColor());
    result->setWidth(source.getWidth());
    result->UpdateMS(true, false, -2);
    return result.release();
}

}  // namespace

double PageRoundingMM(const ctr::ExportParameters& parameters) {
    const double size = std::max(std::abs(static_cast<double>(parameters.getPageSizeInMM()[0])),
                                 std::abs(static_cast<double>(parameters.getPageSizeInMM()[1])));
    if (!(size >= 1.0) || !std::isfinite(size)) return 1e-5;
    // Six significant digits: the last printed digit of a number below
    // 10^(k+1) is worth 10^(k-5).
    return std::pow(10.0, std::floor(std::log10(size)) - 5.0);
}

void MergeOnPage(ViewLines& lines, bool keepCommon, DrawingStats& stats) {
    const auto started = std::chrono::steady_clock::now();
    if (!lines.parameters) return;
    const ctr::ExportParameters& parameters = *lines.parameters;
    const double step = PageRoundingMM(parameters);
    // Pieces count as on one line, and as meeting, this close: the step the
    // file prints, plus what the printing may add to a distance (two points
    // each moved up to half a step on both axes, √2 steps), so that no pair
    // the file shows within a step is left.
    const double tolerance = 2.5 * step;
    // Overlaps below this are float noise where pieces meet end to end.
    const double noise = 0.1 * step;

    // Sets in the order in which they win a stretch of page.
    std::vector<tSetEntry> sets = {{&lines.silhouettes, &stats.silhouette.mergedOnPage, false, true, true},
                                   {&lines.intersections, &stats.intersection.mergedOnPage, false, true, true},
                                   {&lines.creases, &stats.crease.mergedOnPage, true, true, false}};
    for (qe::qePointer<ctr::LineSegmentSet>& hidden : lines.hidden)
        sets.push_back({&hidden, &stats.hidden.mergedOnPage, false, false, false});
    const auto setOf = [&](uint32_t s) -> const ctr::LineSegmentSet& { return **sets[s].slot; };
    const auto usable = [&](uint32_t s) {
        const ctr::LineSegmentSet* set = *sets[s].slot;
        return set && set->VBuffer && set->IBuffer && set->VBuffer->GetAttributes().HasPosition();
    };
    // Whether set s gives up to set t what both draw.
    const auto yields = [&](uint32_t s, uint32_t t) {
        if (t >= s || !usable(t) || setOf(s).World != setOf(t).World) return false;
        if (!sets[t].visible) return !sets[s].visible;
        return !(keepCommon && sets[s].crease && sets[t].silhouetteLike);
    };

    // Every piece of some length, on the page as the writers put it.
    std::vector<tPiece> pieces;
    double totalLength = 0.0;
    for (uint32_t s = 0; s < sets.size(); ++s) {
        if (!usable(s)) continue;
        const ctr::LineSegmentSet& set = setOf(s);
        const qe::qeVertexBuffer& vertices = *set.VBuffer;
        const unsigned int* index = set.IBuffer->GetData();
        const int count = set.getSegmentQuantity();
        for (int k = 0; k < count; ++k) {
            const unsigned int ends[2] = {index[2 * k], index[2 * k + 1]};
            if (ends[0] >= static_cast<unsigned int>(vertices.GetVertexQuantity()) ||
                ends[1] >= static_cast<unsigned int>(vertices.GetVertexQuantity()))
                continue;
            tPiece piece{s, static_cast<uint32_t>(k), {0.0, 0.0}, {0.0, 0.0}, 0.0};
            for (int e = 0; e < 2; ++e) {
                const Wm4::Vector2<float> page =
                    parameters.worldToSheet(set.World.ApplyForward(vertices.Position3(static_cast<int>(ends[e])), true));
                double* out = e == 0 ? piece.a : piece.b;
                out[0] = page[0];
                out[1] = page[1];
            }
            piece.length = std::hypot(piece.b[0] - piece.a[0], piece.b[1] - piece.a[1]);
            // Far off the page (a point the projection sends to infinity)
            // nothing prints in a way that could repeat.
            const double far = 1e6;
            if (!(piece.length > 0.0) || !(std::abs(piece.a[0]) < far && std::abs(piece.a[1]) < far &&
                                                 std::abs(piece.b[0]) < far && std::abs(piece.b[1]) < far))
                continue;
            totalLength += piece.length;
            pieces.push_back(piece);
        }
    }
    if (pieces.size() < 2) {
        stats.phases.push_back(
            PhaseTime{"page merge", std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count()});
        return;
    }

    // Cells about as long as the mean piece: a piece covers a few of them,
    // and a cell holds a few pieces, so both the grid and the search grow
    // with the number of pieces.
    const double cell = std::max(totalLength / static_cast<double>(pieces.size()), 8.0 * tolerance);
    const PieceGrid grid(pieces, cell, tolerance);

    // Groups: the longest piece not yet placed owns a line, and takes every
    // piece that lies on that line within the tolerance and reaches, through
    // pieces already taken, one that it overlaps or touches. Measuring
    // against the owner's line only keeps a chain of nearly straight pieces
    // from drifting off it.
    std::vector<uint32_t> byLength(pieces.size());
    for (uint32_t p = 0; p < byLength.size(); ++p) byLength[p] = p;
    std::sort(byLength.begin(), byLength.end(), [&](uint32_t x, uint32_t y) {
        if (pieces[x].length != pieces[y].length) return pieces[x].length > pieces[y].length;
        return x < y;
    });
    constexpr uint32_t kNoGroup = std::numeric_limits<uint32_t>::max();
    std::vector<uint32_t> group(pieces.size(), kNoGroup);

    // Per set: segments taken out, and the new segments, each pair listed
    // under the first segment of its group (in set order) so that the drawing
    // keeps its order.
    struct tChanges {
        std::vector<bool> removed;
        std::vector<std::vector<std::pair<tEnd, tEnd>>> replacement;
        bool changed = false;
    };
    std::vector<tChanges> changes(sets.size());

    std::vector<uint32_t> members, queue;
    std::vector<uint64_t> cells;
    for (const uint32_t owner : byLength) {
        if (group[owner] != kNoGroup) continue;
        group[owner] = owner;
        const tPiece& line = pieces[owner];
        const double ux = (line.b[0] - line.a[0]) / line.length, uy = (line.b[1] - line.a[1]) / line.length;
        const auto along = [&](const double* p) { return (p[0] - line.a[0]) * ux + (p[1] - line.a[1]) * uy; };
        const auto off = [&](const double* p) { return std::abs((p[0] - line.a[0]) * uy - (p[1] - line.a[1]) * ux); };
        // Takes the free pieces within reach of the line that overlap (or,
        // with a gap allowed, touch) the reached piece.
        // A twin is only taken, and searched no further from.
        const auto take = [&](uint32_t from, double reach, double gap, bool twin) {
            const tPiece& reached = pieces[from];
            const double r0 = std::min(along(reached.a), along(reached.b));
            const double r1 = std::max(along(reached.a), along(reached.b));
            cells.clear();
            grid.cover(reached, cells);
            for (const uint64_t c : cells)
                grid.forEachIn(c, [&](uint32_t p) {
                    if (group[p] != kNoGroup) return;
                    const tPiece& piece = pieces[p];
                    if (off(piece.a) > reach || off(piece.b) > reach) return;
                    const double p0 = along(piece.a), p1 = along(piece.b);
                    if (std::min(p0, p1) > r1 + gap || std::max(p0, p1) < r0 - gap) return;
                    group[p] = owner;
                    members.push_back(p);
                    if (!twin) queue.push_back(p);
                });
        };
        members.assign(1, owner);
        queue.assign(1, owner);
        while (!queue.empty()) {
            const uint32_t reached = queue.back();
            queue.pop_back();
            take(reached, tolerance, tolerance, false);
        }
        // A piece just beyond the reach, while its twin in another kind just
        // made it, would keep that stretch drawn twice: a second look with
        // twice the reach takes what overlaps a member. Runs thus stay
        // within twice the reach of the owner's line.
        for (size_t m = 0, taken = members.size(); m < taken; ++m) take(members[m], 2.0 * tolerance, -noise, true);
        if (members.size() < 2) continue;

        // Each set's runs along the line, joined, then less what the sets it
        // gives way to draw there.
        std::sort(members.begin(), members.end(), [&](uint32_t x, uint32_t y) {
            return pieces[x].set != pieces[y].set ? pieces[x].set < pieces[y].set : pieces[x].segment < pieces[y].segment;
        });
        std::vector<std::vector<tRun>> drawn(sets.size());
        for (size_t first = 0; first < members.size();) {
            const uint32_t s = pieces[members[first]].set;
            size_t last = first;
            std::vector<tRun> runs;
            for (; last < members.size() && pieces[members[last]].set == s; ++last) {
                const tPiece& piece = pieces[members[last]];
                const unsigned int* index = setOf(s).IBuffer->GetData();
                tRun run{along(piece.a), along(piece.b), tEnd{s, index[2 * piece.segment]},
                         tEnd{s, index[2 * piece.segment + 1]}};
                if (run.from > run.to) {
                    std::swap(run.from, run.to);
                    std::swap(run.start, run.end);
                }
                runs.push_back(run);
            }
            runs = JoinRuns(std::move(runs), tolerance);
            std::vector<tRun> covers;
            for (uint32_t t = 0; t < s; ++t)
                if (yields(s, t)) covers.insert(covers.end(), drawn[t].begin(), drawn[t].end());
            if (!covers.empty()) runs = SubtractRuns(runs, JoinRuns(std::move(covers), tolerance), tolerance, noise);
            drawn[s] = runs;

            // A lone piece that nothing took from stays as it is.
            const size_t count = last - first;
            const tPiece& lead = pieces[members[first]];
            const bool same = count == 1 && runs.size() == 1 && runs[0].start.set == s && runs[0].end.set == s &&
                              ((runs[0].start.vertex == setOf(s).IBuffer->GetData()[2 * lead.segment] &&
                                runs[0].end.vertex == setOf(s).IBuffer->GetData()[2 * lead.segment + 1]) ||
                               (runs[0].end.vertex == setOf(s).IBuffer->GetData()[2 * lead.segment] &&
                                runs[0].start.vertex == setOf(s).IBuffer->GetData()[2 * lead.segment + 1]));
            if (!same) {
                tChanges& change = changes[s];
                if (!change.changed) {
                    const size_t segments = static_cast<size_t>(setOf(s).getSegmentQuantity());
                    change.removed.assign(segments, false);
                    change.replacement.assign(segments, {});
                    change.changed = true;
                }
                for (size_t m = first; m < last; ++m) change.removed[pieces[members[m]].segment] = true;
                for (const tRun& run : runs) change.replacement[lead.segment].push_back({run.start, run.end});
                if (runs.size() < count) *sets[s].merged += count - runs.size();
            }
            first = last;
        }
    }

    // The changed sets rebuilt; a vertex of another set is copied once.
    for (uint32_t s = 0; s < sets.size(); ++s) {
        tChanges& change = changes[s];
        if (!change.changed) continue;
        const ctr::LineSegmentSet& set = setOf(s);
        const unsigned int* index = set.IBuffer->GetData();
        const unsigned int own = static_cast<unsigned int>(set.VBuffer->GetVertexQuantity());
        std::vector<Wm4::Vector3<float>> extra;
        std::unordered_map<uint64_t, unsigned int> copied;  // set << 32 | vertex to the new index
        const auto vertexOf = [&](const tEnd& end) {
            if (end.set == s) return end.vertex;
            const auto [at, added] = copied.try_emplace((static_cast<uint64_t>(end.set) << 32) | end.vertex,
                                                        own + static_cast<unsigned int>(extra.size()));
            if (added) extra.push_back(setOf(end.set).VBuffer->Position3(static_cast<int>(end.vertex)));
            return at->second;
        };
        std::vector<tEnd> segments;
        for (size_t k = 0; k < change.removed.size(); ++k) {
            for (const auto& [from, to] : change.replacement[k]) {
                segments.push_back(tEnd{s, vertexOf(from)});
                segments.push_back(tEnd{s, vertexOf(to)});
            }
            if (!change.removed[k]) {
                segments.push_back(tEnd{s, index[2 * k]});
                segments.push_back(tEnd{s, index[2 * k + 1]});
            }
        }
        *sets[s].slot = segments.empty() ? nullptr : RebuildSet(set, segments, extra);
    }
    stats.phases.push_back(
        PhaseTime{"page merge", std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count()});
}

}  // namespace contour
