#include "PackageUnit.h"

#include <algorithm>
#include <cstdint>
#include <vector>
#include <zlib.h>

namespace contour::importer {

namespace {

// The model element stands at the start of its part, after the XML
// declaration and perhaps a comment; the relationships part is short. A
// part is not inflated beyond this, however large it claims to be.
constexpr size_t kPrefixBytes = 64 * 1024;

uint32_t little(const unsigned char* at, int bytes) {
    uint32_t value = 0;
    for (int i = bytes - 1; i >= 0; --i) value = (value << 8) | at[i];
    return value;
}

struct tEntry {
    std::string name;
    uint32_t method = 0;
    uint32_t compressedSize = 0;
    uint32_t localOffset = 0;
};

class tArchive {
public:
    tArchive(const char* data, size_t size) : m_data(reinterpret_cast<const unsigned char*>(data)), m_size(size) {}

    // The central directory, located through its end record (the last one
    // in the file; the archive comment after it is at most 65,535 bytes).
    bool readDirectory() {
        if (m_size < 22) return false;
        const size_t lowest = m_size - 22 > 65535 ? m_size - 22 - 65535 : 0;
        for (size_t at = m_size - 22;; --at) {
            if (little(m_data + at, 4) == 0x06054b50u) return readEntries(m_data + at);
            if (at == lowest) return false;
        }
    }

    // The first kPrefixBytes of the part named name, or nothing.
    std::optional<std::string> part(const std::string& name) const {
        for (const tEntry& entry : m_entries)
            if (entry.name == name) return contents(entry);
        return std::nullopt;
    }

private:
    bool readEntries(const unsigned char* end) {
        const uint32_t count = little(end + 10, 2);
        const uint32_t directorySize = little(end + 12, 4);
        const uint32_t directoryOffset = little(end + 16, 4);
        if (directoryOffset > m_size || directorySize > m_size - directoryOffset) return false;
        const unsigned char* at = m_data + directoryOffset;
        const unsigned char* const stop = at + directorySize;
        for (uint32_t k = 0; k < count; ++k) {
            if (stop - at < 46 || little(at, 4) != 0x02014b50u) return false;
            const size_t nameLength = little(at + 28, 2);
            const size_t skip = 46 + nameLength + little(at + 30, 2) + little(at + 32, 2);
            if (static_cast<size_t>(stop - at) < skip) return false;
            tEntry entry;
            entry.name.assign(reinterpret_cast<const char*>(at + 46), nameLength);
            entry.method = little(at + 10, 2);
            entry.compressedSize = little(at + 20, 4);
            entry.localOffset = little(at + 42, 4);
            m_entries.push_back(std::move(entry));
            at += skip;
        }
        return true;
    }

    std::optional<std::string> contents(const tEntry& entry) const {
        // The data follows the local header, whose name and extra field may
        // differ in length from the central directory's.
        if (entry.localOffset > m_size || m_size - entry.localOffset < 30) return std::nullopt;
        const unsigned char* const local = m_data + entry.localOffset;
        if (little(local, 4) != 0x04034b50u) return std::nullopt;
        const size_t start = size_t(entry.localOffset) + 30 + little(local + 26, 2) + little(local + 28, 2);
        if (start > m_size || entry.compressedSize > m_size - start) return std::nullopt;
        const unsigned char* const data = m_data + start;
        if (entry.method == 0)  // stored
            return std::string(reinterpret_cast<const char*>(data), std::min<size_t>(entry.compressedSize, kPrefixBytes));
        if (entry.method != 8) return std::nullopt;  // only deflate is allowed besides
        std::string out(kPrefixBytes, '\0');
        z_stream stream{};
        if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return std::nullopt;
        stream.next_in = const_cast<unsigned char*>(data);
        stream.avail_in = entry.compressedSize;
        stream.next_out = reinterpret_cast<unsigned char*>(&out[0]);
        stream.avail_out = static_cast<uInt>(out.size());
        int status = Z_OK;
        while (status == Z_OK && stream.avail_out > 0 && stream.avail_in > 0) status = inflate(&stream, Z_NO_FLUSH);
        const size_t produced = out.size() - stream.avail_out;
        inflateEnd(&stream);
        // A stream cut short or corrupt further on still gives its prefix.
        if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR && status != Z_DATA_ERROR)
            return std::nullopt;
        out.resize(produced);
        return out;
    }

    const unsigned char* m_data;
    size_t m_size;
    std::vector<tEntry> m_entries;
};

bool blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// The model's start part: the package relationship of the 3D model type,
// or the customary name when the relationships cannot be read.
std::string modelPartName(const tArchive& archive) {
    const std::string fallback = "3D/3dmodel.model";
    const std::optional<std::string> rels = archive.part("_rels/.rels");
    if (!rels) return fallback;
    size_t at = 0;
    while ((at = rels->find("<Relationship", at)) != std::string::npos) {
        const size_t close = rels->find('>', at);
        if (close == std::string::npos) break;
        const std::string tag = rels->substr(at, close + 1 - at);
        at = close;
        const std::optional<std::string> type = ElementAttribute(tag, "Relationship", "Type");
        const std::optional<std::string> target = ElementAttribute(tag, "Relationship", "Target");
        const std::string suffix = "/3dmodel";
        if (type && target && type->size() >= suffix.size() &&
            type->compare(type->size() - suffix.size(), suffix.size(), suffix) == 0)
            return !target->empty() && (*target)[0] == '/' ? target->substr(1) : *target;
    }
    return fallback;
}

}  // namespace

std::optional<std::string> ElementAttribute(const std::string& text, const std::string& element,
                                            const std::string& attribute) {
    size_t at = 0;
    for (;;) {
        at = text.find("<" + element, at);
        if (at == std::string::npos) return std::nullopt;
        at += 1 + element.size();
        if (at < text.size() && (blank(text[at]) || text[at] == '>' || text[at] == '/')) break;
    }
    while (at < text.size()) {
        while (at < text.size() && blank(text[at])) ++at;
        if (at >= text.size() || text[at] == '>' || text[at] == '/') return std::nullopt;
        const size_t nameStart = at;
        while (at < text.size() && text[at] != '=' && !blank(text[at]) && text[at] != '>') ++at;
        const std::string name = text.substr(nameStart, at - nameStart);
        while (at < text.size() && blank(text[at])) ++at;
        if (at >= text.size() || text[at] != '=') return std::nullopt;
        ++at;
        while (at < text.size() && blank(text[at])) ++at;
        if (at >= text.size() || (text[at] != '"' && text[at] != '\'')) return std::nullopt;
        const size_t close = text.find(text[at], at + 1);
        if (close == std::string::npos) return std::nullopt;
        if (name == attribute) return text.substr(at + 1, close - at - 1);
        at = close + 1;
    }
    return std::nullopt;
}

std::optional<LengthUnit> PackageModelUnit(const char* data, size_t size) {
    tArchive archive(data, size);
    if (!archive.readDirectory()) return std::nullopt;
    const std::optional<std::string> model = archive.part(modelPartName(archive));
    if (!model) return std::nullopt;
    // The element must be there whole: a unit cut off at the end of the
    // prefix would be no unit.
    const size_t start = model->find("<model");
    if (start == std::string::npos || model->find('>', start) == std::string::npos) return std::nullopt;
    const std::optional<std::string> unit = ElementAttribute(*model, "model", "unit");
    if (!unit) return LengthUnit::kMillimetre;
    static const struct {
        const char* name;
        LengthUnit unit;
    } kNames[] = {{"micron", LengthUnit::kMicrometre}, {"millimeter", LengthUnit::kMillimetre},
                  {"centimeter", LengthUnit::kCentimetre}, {"inch", LengthUnit::kInch},
                  {"foot", LengthUnit::kFoot},           {"meter", LengthUnit::kMetre}};
    for (const auto& entry : kNames)
        if (*unit == entry.name) return entry.unit;
    return std::nullopt;
}

}  // namespace contour::importer
