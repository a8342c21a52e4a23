// Several views on one drawing sheet at one scale: the standard scales of
// technical drawings, the placement of a view at a fixed scale instead of the
// best fit, and the frame and title block of the sheet.
#ifndef CTR_SHEETLAYOUT_H
#define CTR_SHEETLAYOUT_H

#include <string>

#include "Wm4Vector2.h"

#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/Export.h"
#include "ctr/ExportParameters.h"

namespace ctr {

// A drawing scale written as "drawn:model" (2:1, 1:1, 1:5, ...).
struct CTR_API SheetScale {
    int drawn = 1;
    int model = 1;
    // Model length that one millimetre of the sheet stands for.
    double modelPerSheetMM() const { return static_cast<double>(model) / static_cast<double>(drawn); }
    std::string label() const;
};

// Reads a scale written "drawn:model" with two positive whole numbers
// ("1:2", "10:1", "1:2.5" is refused). False for anything else.
CTR_API bool ParseSheetScale(const std::string& text, SheetScale& scale);

// The largest scale of the series 1, 2 and 5 times a power of ten (ISO 5455:
// ..., 100:1, 50:1, 20:1, ..., 1:1, 1:2, 1:5, 1:10, ...), continued both ways
// from 1000000000:1 down to 1:1000000000, at which one sheet millimetre
// stands for at least minModelPerSheetMM of the model: the largest drawing
// that fits where a drawing needs that much. False when the series has no
// such scale (or the argument is not a positive finite number).
CTR_API bool ChooseStandardScale(double minModelPerSheetMM, SheetScale& scale);

// Export parameters that place an orthographic view at a fixed scale: one
// sheet millimetre stands for modelPerSheetMM world units along both axes,
// and the centre of the camera's window (device point 0, 0) lands on
// windowCentre, in sheet millimetres from the bottom-left corner with y
// growing upwards as ExportParameters measures. The page size is the whole
// sheet's. A perspective camera is scaled at its near plane.
CTR_API ExportParameters ScaledViewParameters(const DiscreteProjectionSpace& space,
                                              const Wm4::Vector2<float>& pageSizeInMM, double modelPerSheetMM,
                                              const Wm4::Vector2<float>& windowCentre);

// A rectangle of the sheet in millimetres, from the bottom-left corner with y
// growing upwards.
struct CTR_API SheetRect {
    float x = 0.0f;
    float y = 0.0f;
    float width = 0.0f;
    float height = 0.0f;
};

// Where the projected views stand relative to the front view (ISO 128-30):
// first angle puts the top view below the front view and the view from the
// left on its right; third angle puts the top view above and the view from
// the right on its right.
enum class ProjectionMethod { kFirstAngle, kThirdAngle };

// What the title block of a sheet says. Text is escaped when written.
struct CTR_API TitleBlock {
    std::string title;
    std::string partNumber;
    std::string drawnBy;
    std::string scale;  // e.g. "1:2"
    ProjectionMethod projection = ProjectionMethod::kThirdAngle;
    std::string units = "mm";
    std::string date;      // ISO 8601, e.g. 2024-05-31
    std::string software;  // the program and library versions
};

// The frame of a sheet: the page inside a border of marginMM on every side.
CTR_API SheetRect SheetFrameRect(const Wm4::Vector2<float>& pageSizeInMM, float marginMM);
// The title block in the bottom-right corner of the frame: 170 mm wide, or
// the frame's width when narrower, and 30 mm high, or the frame's height.
CTR_API SheetRect TitleBlockRect(const Wm4::Vector2<float>& pageSizeInMM, float marginMM);

}  // namespace ctr

#endif
