#include "export/SvgDocument.h"

#include <cstdint>

#include "qe/qeStringUtils.h"

#include "ctr/SvgText.h"

namespace ctr {

namespace {

uint32_t ColorChannel(float channel) {
    const float scaled = channel * 255.0f;
    // Out of the 64-bit range the conversion would be undefined; 0 is the low
    // word of what x86 truncation yields there.
    constexpr float kTwoTo63 = 9223372036854775808.0f;
    if (!(scaled >= -kTwoTo63 && scaled < kTwoTo63)) return 0u;
    return static_cast<uint32_t>(static_cast<int64_t>(scaled));
}

void WritePoint(std::ostream& out, const Wm4::Vector2<float>& p) { out << p[0] << ',' << p[1]; }

}  // namespace

std::string EscapeXmlText(const std::string& text, XmlTextContext context) {
    const bool attribute = context == XmlTextContext::kAttribute;
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += attribute ? "&quot;" : "\"";
                break;
            case '\'':
                escaped += attribute ? "&apos;" : "'";
                break;
            case '\t':
            case '\n':
            case '\r':
                // A parser turns these into blanks in an attribute anyway;
                // writing blanks says so, and keeps a label on its line.
                escaped += attribute ? ' ' : c;
                break;
            default:
                escaped += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
        }
    }
    return escaped;
}

void EndLine(std::ostream& out) { out << '\n' << std::flush; }

void UseSvgNumberFormat(std::ios& stream) {
    stream.imbue(std::locale::classic());
    stream.flags(std::ios::fmtflags{});
    stream.precision(6);
}

SvgNumberFormat::SvgNumberFormat(std::ios& stream)
    : m_stream(stream), m_locale(stream.getloc()), m_flags(stream.flags()), m_precision(stream.precision()) {
    UseSvgNumberFormat(stream);
}

SvgNumberFormat::~SvgNumberFormat() {
    m_stream.imbue(m_locale);
    m_stream.flags(m_flags);
    m_stream.precision(m_precision);
}

bool OpenSvgFile(std::ofstream& file, const std::string& name) {
    // Failures are reported by results; the stream must never throw.
    file.exceptions(std::ios::goodbit);
    UseSvgNumberFormat(file);
    const std::string converted =
        qe::qeStringUtils::convertCharset(name, qe::qeStringUtils::CS_UTF8, qe::qeStringUtils::CS_FILESYSTEM);
    // open() clears the error state left by an earlier file on success and
    // sets the fail state on failure.
    file.open(converted, std::ios::out | std::ios::trunc);
    if (!file.is_open()) return false;
    if (!file.good()) {
        file.close();
        return false;
    }
    return true;
}

bool CloseSvgFile(std::ofstream& file) {
    const bool written = file.good();
    file.close();
    return written && !file.fail();
}

void WriteSvgStart(std::ostream& out, const Wm4::Vector2<float>& pageSizeInMM, SvgRoot root, const std::string& title,
                   const std::string& description) {
    out << "<?xml version=\"1.0\"?>";
    EndLine(out);
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\"";
    if (root == SvgRoot::kLayers) out << " xmlns:inkscape=\"http://www.inkscape.org/namespaces/inkscape\"";
    out << " width=\"" << pageSizeInMM[0] << "mm\" height=\"" << pageSizeInMM[1] << "mm\" viewBox=\"0 0 "
        << pageSizeInMM[0] << ' ' << pageSizeInMM[1] << (root == SvgRoot::kPlain ? "\" >" : "\">");
    EndLine(out);
    if (!title.empty()) {
        out << "<title>" << title << "</title>";
        EndLine(out);
    }
    if (!description.empty()) {
        out << "<desc>" << description << "</desc>";
        EndLine(out);
    }
}

void WriteSvgEnd(std::ostream& out) { EndTag(out, "svg"); }

StartTag::StartTag(std::ostream& out, const char* name, int indent) : m_out(out), m_name(name) {
    for (int i = 0; i < indent; ++i) m_out << ' ';
    m_out << '<' << name;
}

StartTag& StartTag::attribute(const char* name, const Wm4::ColorRGB& color) {
    m_out << ' ' << name << "=\"rgb(" << ColorChannel(color.R()) << ',' << ColorChannel(color.G()) << ','
          << ColorChannel(color.B()) << ")\"";
    return *this;
}

void StartTag::open() {
    m_out << '>';
    EndLine(m_out);
}

void StartTag::empty() {
    m_out << "/>";
    EndLine(m_out);
}

void StartTag::text(const std::string& content) {
    m_out << '>' << EscapeXmlText(content, XmlTextContext::kAttribute) << "</" << m_name << '>';
    EndLine(m_out);
}

void EndTag(std::ostream& out, const char* name) {
    out << "</" << name << '>';
    EndLine(out);
}

PathData::PathData() { UseSvgNumberFormat(m_text); }

void PathData::command(char letter) {
    if (!m_empty) m_text << ' ';
    m_empty = false;
    m_text << letter;
}

void PathData::move(const Wm4::Vector2<float>& to) {
    command('M');
    WritePoint(m_text, to);
}

void PathData::line(const Wm4::Vector2<float>& to) {
    command('L');
    WritePoint(m_text, to);
}

void PathData::arc(float radius, int sweep, const Wm4::Vector2<float>& to) {
    command('A');
    m_text << radius << ',' << radius << " 0 0 " << sweep << ' ';
    WritePoint(m_text, to);
}

void PathData::close() { command('Z'); }

std::string PathData::take() {
    std::string text = m_text.str();
    m_text.str(std::string());
    m_empty = true;
    return text;
}

}  // namespace ctr
