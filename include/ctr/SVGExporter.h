// Writes line sets as a technical drawing: one SVG file in sheet millimetres.
#ifndef CTR_SVGEXPORTER_H
#define CTR_SVGEXPORTER_H

#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "Wm4ColorRGB.h"

#include "ctr/Export.h"
#include "ctr/ExportParameters.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"

namespace ctr {

struct CTR_API SVGLineStyle {
    Wm4::ColorRGB color;
    float width;  // sheet millimetres
};

// openFile writes the header, each stream call one group of paths holding
// the visible parts of a set chained into polylines, closeFile the footer.
// Every operation reports failure by its result; nothing is thrown.
class CTR_API SVGExporter {
public:
    class tInternal;

    // Styles "silhouette" (black, 0.2 mm) and "crease" (black, 2/15 mm), the
    // title "Illustration", no file, no export parameters.
    SVGExporter();
    // Closes an open file without writing its footer.
    ~SVGExporter();
    SVGExporter(const SVGExporter&) = delete;
    SVGExporter& operator=(const SVGExporter&) = delete;

    void setExportParameters(const ExportParameters& parameters);
    // Both take effect for the next file opened; written verbatim, so escape
    // them first (EscapeXmlText in ctr/SvgText.h).
    void setTitle(const std::string& title);
    void setDescription(const std::string& description);
    void setLineStyle(const std::string& name, const SVGLineStyle& style);
    // Black, 1 mm wide when there is no style of that name.
    SVGLineStyle getLineStyle(const std::string& name) const;
    const std::map<std::string, SVGLineStyle>& getLineStyles() const;

    // False while a file is open, or when it cannot be opened. A file whose
    // header fails (no export parameters) stays open: closeFile() ends it.
    bool openFile(const std::string& name);
    // False when no file is open or a write failed, closing included.
    bool closeFile();
    // True also when nothing is left to draw; false without an open file,
    // for a style that does not exist, an index that names no vertex, or a
    // failed write.
    bool streamLineSegments(const LineSegmentSet& set, const std::string& styleName);
    // Creases under "crease", silhouettes and intersections under "silhouette".
    bool streamGeometricFeatures(const GeometricFeatures& features);

    // The path elements written into the file opened last, one per polyline,
    // over all the sets streamed into it so far; 0 once openFile succeeds.
    size_t pathsWritten() const;

private:
    std::unique_ptr<tInternal> internal;
};

}  // namespace ctr

#endif
