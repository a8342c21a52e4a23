#include "ctr/SheetLayout.h"

#include <algorithm>
#include <cmath>

#include "Wm4Matrix2.h"

namespace ctr {

namespace {

// The series runs by powers of ten as far as a scale's two whole numbers
// stay within an int: from 1000000000:1 (10^-9 model millimetres per sheet
// millimetre) to 1:1000000000 (10^9), a micrometre part on a sheet to a
// continent on one.
constexpr int kLowestDecade = -9;
constexpr int kHighestDecade = 9;

// ISO 7200 keeps the title block within 170 mm of width (180 with its
// border); 30 mm of height holds two rows of lettering of 3.5 and 5 mm.
constexpr float kTitleBlockWidthMM = 170.0f;
constexpr float kTitleBlockHeightMM = 30.0f;

}  // namespace

std::string SheetScale::label() const { return std::to_string(drawn) + ":" + std::to_string(model); }

bool ParseSheetScale(const std::string& text, SheetScale& scale) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) return false;
    // Up to nine digits each, so that the numbers stay within an int.
    const auto whole = [](const std::string& digits, int& value) {
        if (digits.empty() || digits.size() > 9) return false;
        value = 0;
        for (const char c : digits) {
            if (c < '0' || c > '9') return false;
            value = value * 10 + (c - '0');
        }
        return value > 0;
    };
    SheetScale parsed;
    if (!whole(text.substr(0, colon), parsed.drawn) || !whole(text.substr(colon + 1), parsed.model)) return false;
    scale = parsed;
    return true;
}

bool ChooseStandardScale(double minModelPerSheetMM, SheetScale& scale) {
    if (!(minModelPerSheetMM > 0.0) || !std::isfinite(minModelPerSheetMM)) return false;
    for (int decade = kLowestDecade; decade <= kHighestDecade; ++decade)
        for (const int step : {1, 2, 5}) {
            if (decade == kHighestDecade && step > 1) return false;
            // Whole numbers on both sides, so that the comparison below is
            // the only rounding: 10^-1 * 2 is drawn 5, model 1.
            int power = 1;
            for (int i = 0; i < std::abs(decade); ++i) power *= 10;
            SheetScale candidate;
            if (decade < 0)
                candidate.drawn = power / step;
            else
                candidate.model = power * step;
            if (static_cast<double>(candidate.model) >= minModelPerSheetMM * static_cast<double>(candidate.drawn)) {
                scale = candidate;
                return true;
            }
        }
    return false;
}

ExportParameters ScaledViewParameters(const DiscreteProjectionSpace& space, const Wm4::Vector2<float>& pageSizeInMM,
                                      double modelPerSheetMM, const Wm4::Vector2<float>& windowCentre) {
    ExportParameters parameters(space);
    parameters.setPageSizeInMM(pageSizeInMM);
    // The world length of one device unit along each axis: device
    // coordinates run from -1 to 1 across the window.
    const Wm4::Vector2<float> perDevice = space.computeFrustumSizeXY();
    const float perDeviceX = static_cast<float>(static_cast<double>(perDevice[0]) / modelPerSheetMM);
    const float perDeviceY = static_cast<float>(static_cast<double>(perDevice[1]) / modelPerSheetMM);
    parameters.setTransform(Wm4::Matrix2<float>(perDeviceX, 0.0f, 0.0f, perDeviceY), windowCentre);
    return parameters;
}

SheetRect SheetFrameRect(const Wm4::Vector2<float>& pageSizeInMM, float marginMM) {
    SheetRect frame;
    frame.x = marginMM;
    frame.y = marginMM;
    frame.width = std::max(0.0f, pageSizeInMM[0] - 2.0f * marginMM);
    frame.height = std::max(0.0f, pageSizeInMM[1] - 2.0f * marginMM);
    return frame;
}

SheetRect TitleBlockRect(const Wm4::Vector2<float>& pageSizeInMM, float marginMM) {
    const SheetRect frame = SheetFrameRect(pageSizeInMM, marginMM);
    SheetRect block;
    block.width = std::min(kTitleBlockWidthMM, frame.width);
    block.height = std::min(kTitleBlockHeightMM, frame.height);
    block.x = frame.x + frame.width - block.width;
    block.y = frame.y;
    return block;
}

}  // namespace ctr
