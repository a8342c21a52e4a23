// A drawing sheet in layers: the lines of a view (later several, each placed
// by its own export parameters) written as one SVG page in millimetres with
// every kind of line in a layer of its own. Inkscape shows the layers as such,
// so a reader can switch kinds on and off, and a plotter driver can take them
// one by one. The single-view SVGExporter is left as it is.
#ifndef CTR_SHEETWRITER_H
#define CTR_SHEETWRITER_H

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>

#include "Wm4ColorRGB.h"
#include "Wm4Vector2.h"

#include "ctr/Export.h"
#include "ctr/ExportParameters.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"
#include "ctr/SheetLayout.h"

namespace ctr {

// The layers in the order they are written, bottom first, so that visible
// lines are drawn over hidden ones.
enum class SheetLayer { kHidden, kCreases, kSilhouettes, kIntersections };
constexpr int kSheetLayerCount = 4;

struct CTR_API SheetLineStyle {
    Wm4::ColorRGB color;
    float width;  // sheet millimetres
    // A dashed line: dashes and gaps in millimetres; 0 for a continuous line.
    float dash;
    float gap;
};

// Line widths of ISO 128: a narrow line is half as wide as the wide line of
// the same group (0.5/0.25, 0.35/0.18, ...).
CTR_API float NarrowLineWidth(float wideWidth);
// A dashed line of width d as ISO 128-20 draws hidden edges: dashes of 12 d
// and gaps of 3 d, so the pattern scales with the line.
CTR_API SheetLineStyle DashedLineStyle(const Wm4::ColorRGB& color, float width);

// Collects the lines of each view, then writes the sheet at once: the layers
// span all views, so nothing can be written before the last view is in.
// Nothing is thrown; failures are reported by results.
class CTR_API SheetWriter {
public:
    class tInternal;

    // Black lines as the SVG exporter draws them: creases 2/15 mm, silhouettes
    // and intersections 0.2 mm; hidden lines dashed at the narrow width of
    // the silhouettes. Every layer but the hidden one is enabled. The title
    // is "Illustration"; the page takes the first view's size.
    SheetWriter();
    ~SheetWriter();
    SheetWriter(const SheetWriter&) = delete;
    SheetWriter& operator=(const SheetWriter&) = delete;

    // A page size other than the first view's.
    void setPageSizeInMM(const Wm4::Vector2<float>& size);
    // Written verbatim, like the exporter's: escape them first
    // (EscapeXmlText in ctr/SvgText.h).
    void setTitle(const std::string& title);
    void setDescription(const std::string& description);
    void setLayerStyle(SheetLayer layer, const SheetLineStyle& style);
    SheetLineStyle getLayerStyle(SheetLayer layer) const;
    // A disabled layer is not written, and lines added to it are dropped.
    void setLayerEnabled(SheetLayer layer, bool enabled);
    bool isLayerEnabled(SheetLayer layer) const;

    // Arcs that the polyline fitting finds, and that are circles on the
    // sheet (a circle seen face on), written as SVG arc commands through the
    // same end points as their segments: smaller files, and true circles for
    // a CAD program that reads them. Off by default: segments only.
    void setWriteArcs(bool arcs);
    bool getWriteArcs() const;

    // Starts a view: the lines added after it are placed on the sheet by
    // these parameters (camera, fit and page offset). Returns its number.
    size_t addView(const ExportParameters& parameters);
    // A named view: in every layer its lines form a group of their own,
    // labelled with the name (escaped), after the lines of unnamed views.
    size_t addView(const ExportParameters& parameters, const std::string& name);
    // Adds to a layer of the latest view the visible pieces of set, as the
    // SVG exporter draws a set: cut where its occlusion data says (a set
    // without any, such as a set of pieces, is drawn whole) and chained into
    // polylines. Before chaining, two segment ends that lie on one position
    // under different vertices are joined when no other end is there, so
    // that pieces (hidden ones above all) chain into one dashed path.
    // False without a view.
    bool addLines(SheetLayer layer, const LineSegmentSet& set);
    // Every kind of a feature record into the latest view: creases,
    // silhouettes, intersections and, when the hidden layer is enabled, the
    // hidden pieces of the creases and silhouettes (BakeHiddenSegments) and
    // hiddenIntersectionEdges (from computeGeometricFeatures; may be null).
    bool addFeatures(const GeometricFeatures& features, const LineSegmentSet* hiddenIntersectionEdges);

    // A frame marginMM inside the page's edges and the title block in its
    // bottom-right corner (see TitleBlockRect), in a layer "Sheet" of their
    // own below the lines.
    void setFrame(float marginMM, const TitleBlock& block);

    // The whole sheet. False when no view was added or the stream failed.
    // The stream's number format is set for the sheet and put back after.
    bool write(std::ostream& out) const;
    // The same into a file of a UTF-8 name (created or truncated); false
    // also when it cannot be opened or closed.
    bool writeFile(const std::string& fileName) const;
    // The path elements of lines that the latest write or writeFile wrote,
    // one per polyline over all layers and views; the frame and the title
    // block are not counted. 0 before the first write and after one that
    // wrote no header.
    size_t pathsWritten() const;

private:
    std::unique_ptr<tInternal> internal;
};

}  // namespace ctr

#endif
