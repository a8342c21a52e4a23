// The SVG text that the single-view exporter and the layered sheet writer
// share: one number format, one root element, one way to write a start tag
// and a path's data, one way to open and close the file. The two formats
// then differ only where they are meant to.
#ifndef CTR_EXPORT_SVGDOCUMENT_H
#define CTR_EXPORT_SVGDOCUMENT_H

#include <fstream>
#include <ios>
#include <locale>
#include <ostream>
#include <sstream>
#include <string>

#include "Wm4ColorRGB.h"
#include "Wm4Vector2.h"

namespace ctr {

// Default line widths of both writers, in sheet millimetres: silhouettes are
// drawn half as thick again as creases.
constexpr float kSilhouetteWidthMM = 0.2f;
constexpr float kCreaseWidthMM = 0.13333333f;

// Every line is flushed as soon as it is complete, so that a write error
// shows in the stream state of the writer that caused it.
void EndLine(std::ostream& out);

// Numbers as the files print them: the stream's default format (at most six
// significant digits, shortest general form) with "." as the decimal point,
// whatever global locale the host has installed.
void UseSvgNumberFormat(std::ios& stream);

// The number format above on a stream that the caller owns, put back as it
// was when done.
class SvgNumberFormat {
public:
    explicit SvgNumberFormat(std::ios& stream);
    ~SvgNumberFormat();
    SvgNumberFormat(const SvgNumberFormat&) = delete;
    SvgNumberFormat& operator=(const SvgNumberFormat&) = delete;

private:
    std::ios& m_stream;
    std::locale m_locale;
    std::ios::fmtflags m_flags;
    std::streamsize m_precision;
};

// Opens the file of a UTF-8 name for writing (created or truncated), on a
// stream that never throws and prints numbers as above. False when it could
// not be opened; the stream is then closed.
bool OpenSvgFile(std::ofstream& file, const std::string& name);
// Closes the file. False when closing failed or the stream had failed
// before: a file system may report a deferred write error only on close.
bool CloseSvgFile(std::ofstream& file);

enum class SvgRoot {
    // The single-view format: the SVG namespace alone, and a blank before the
    // start tag's closing bracket, which that format fixes.
    kPlain,
    // The Inkscape namespace as well, which layer groups need.
    kLayers,
};

// The XML declaration and the svg start tag sized in millimetres, with a
// view box of the same numbers so that one user unit is one millimetre; then
// the title and the description, each only when not empty and written
// verbatim (the caller escapes them).
void WriteSvgStart(std::ostream& out, const Wm4::Vector2<float>& pageSizeInMM, SvgRoot root, const std::string& title,
                   const std::string& description);
// The end tag of the root.
void WriteSvgEnd(std::ostream& out);

// A start tag, written as it is built: `<name`, then ` name="value"` for
// each attribute, then one of the endings. Values are printed by the stream
// (numbers as above, text verbatim: escape it first); the values of one
// attribute are separated by blanks.
class StartTag {
public:
    // indent: the blanks before the tag.
    StartTag(std::ostream& out, const char* name, int indent = 0);

    template <typename... Values>
    StartTag& attribute(const char* name, const Values&... values) {
        m_out << ' ' << name << "=\"";
        const char* separator = "";
        ((m_out << separator << values, separator = " "), ...);
        m_out << '"';
        return *this;
    }
    // rgb(R,G,B): each channel times 255 truncated toward zero, with no
    // rounding and no clamping, a negative channel wrapping around as an
    // unsigned 32-bit number; 0 where no 64-bit integer holds it (NaN too).
    StartTag& attribute(const char* name, const Wm4::ColorRGB& color);

    // `>`: the element's children follow, each on lines of its own, and then
    // EndTag.
    void open();
    // `/>`: the element has no content.
    void empty();
    // The element holds text drawn on one line: escaped as an attribute
    // value is, so line breaks become blanks.
    void text(const std::string& content);

private:
    std::ostream& m_out;
    const char* m_name;
};

void EndTag(std::ostream& out, const char* name);

// The data of a path as text for its d attribute: commands with blanks
// between them, each command letter followed by its numbers (M10,20 L30,40).
class PathData {
public:
    PathData();

    void move(const Wm4::Vector2<float>& to);
    void line(const Wm4::Vector2<float>& to);
    // A circular arc under half a turn (large-arc flag 0); sweep is the SVG
    // sweep flag.
    void arc(float radius, int sweep, const Wm4::Vector2<float>& to);
    void close();

    bool empty() const { return m_empty; }
    // The commands so far, which are then cleared.
    std::string take();

private:
    void command(char letter);

    std::ostringstream m_text;
    bool m_empty = true;
};

}  // namespace ctr

#endif
