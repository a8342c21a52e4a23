// Text for the SVG files the library writes. The exporter and the sheet
// writer take titles and descriptions verbatim, so a host escapes them with
// EscapeXmlText first; the sheet writer escapes its own labels the same way.
#ifndef CTR_SVGTEXT_H
#define CTR_SVGTEXT_H

#include <string>

#include "ctr/Export.h"

namespace ctr {

enum class XmlTextContext {
    // Between tags, as in a title or a description: "&", "<" and ">" become
    // entities, tabs and line breaks are kept, and the other control
    // characters, which XML forbids, become blanks.
    kContent,
    // An attribute value, or a label drawn on one line: quotes become
    // entities as well, and tabs and line breaks become blanks like every
    // other control character.
    kAttribute,
};

// Every other byte, UTF-8 sequences included, is copied as it is.
CTR_API std::string EscapeXmlText(const std::string& text, XmlTextContext context);

}  // namespace ctr

#endif
