#include "HeaderChecks.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "NumberScan.h"

namespace contour::importer {

namespace {

// A non-negative decimal integer, saturating instead of wrapping: the
// check must see a huge count as huge.
bool readCount(const char* begin, const char* end, uint64_t& out) {
    if (begin == end) return false;
    uint64_t value = 0;
    for (const char* c = begin; c < end; ++c) {
        if (*c < '0' || *c > '9') return false;
        const uint64_t digit = static_cast<uint64_t>(*c - '0');
        value = value > (UINT64_MAX - digit) / 10 ? UINT64_MAX : value * 10 + digit;
    }
    out = value;
    return true;
}

// count * bytes, saturating.
uint64_t product(uint64_t count, uint64_t bytes) {
    return bytes != 0 && count > UINT64_MAX / bytes ? UINT64_MAX : count * bytes;
}

uint64_t plyTypeBytes(const std::string& type) {
    if (type == "char" || type == "uchar" || type == "int8" || type == "uint8") return 1;
    if (type == "short" || type == "ushort" || type == "int16" || type == "uint16") return 2;
    if (type == "double" || type == "float64") return 8;
    return 4;  // int, uint, float and their sized names; unknown types are the reader's to refuse
}

// The next line of [c, end), without its end; false at the end of data.
bool nextLine(const char*& c, const char* end, const char*& lineBegin, const char*& lineEnd) {
    if (c >= end) return false;
    lineBegin = c;
    while (c < end && *c != '\n') ++c;
    lineEnd = c;
    if (lineEnd > lineBegin && lineEnd[-1] == '\r') --lineEnd;
    if (c < end) ++c;
    return true;
}

// The count as the header spells it: a saturated one would misquote it.
std::string tooMany(const std::pair<const char*, const char*>& count, const std::string& what, size_t fileBytes) {
    return "its header declares " + printableExcerpt(count.first, count.second) + " " + what + ", more than its " +
           std::to_string(fileBytes) + " bytes can hold";
}

bool checkPly(const tMappedFile& data, std::string& error) {
    const char* c = data.begin();
    const char* const end = data.end();
    const char* lineBegin;
    const char* lineEnd;
    if (!nextLine(c, end, lineBegin, lineEnd) || std::string(lineBegin, lineEnd) != "ply") return true;
    struct tElement {
        std::string name;
        std::pair<const char*, const char*> spelled;
        uint64_t count = 0;
        uint64_t leastBytes = 0;
    };
    std::vector<tElement> elements;
    bool ascii = true;
    std::vector<std::pair<const char*, const char*>> tokens;
    for (;;) {
        if (!nextLine(c, end, lineBegin, lineEnd)) return true;  // no end of header: the reader says so
        splitTokens(lineBegin, lineEnd, tokens);
        if (tokens.empty()) continue;
        const auto token = [&](size_t k) { return std::string(tokens[k].first, tokens[k].second); };
        const std::string keyword = token(0);
        if (keyword == "end_header") break;
        if (keyword == "format" && tokens.size() >= 2) {
            ascii = token(1) == "ascii";
        } else if (keyword == "element" && tokens.size() >= 3) {
            tElement element;
            element.name = token(1);
            element.spelled = tokens[2];
            if (!readCount(tokens[2].first, tokens[2].second, element.count)) return true;
            elements.push_back(element);
        } else if (keyword == "property" && !elements.empty() && tokens.size() >= 3) {
            // In text, every value takes a digit and a separator; in binary,
            // a scalar its size and a list at least its count.
            const bool list = token(1) == "list";
            elements.back().leastBytes += ascii ? 2 : plyTypeBytes(token(list ? 2 : 1));
        }
    }
    const uint64_t available = static_cast<uint64_t>(end - c) + (ascii ? 1 : 0);  // text may end without a separator
    uint64_t needed = 0;
    for (const tElement& element : elements) {
        const uint64_t bytes = product(element.count, std::max<uint64_t>(element.leastBytes, ascii ? 1 : 0));
        needed = needed > UINT64_MAX - bytes ? UINT64_MAX : needed + bytes;
        if (needed > available) {
            error = tooMany(element.spelled, "'" + printableExcerpt(element.name.data(), element.name.data() + element.name.size()) + "' elements", data.size());
            return false;
        }
    }
    return true;
}

bool checkOff(const tMappedFile& data, std::string& error) {
    const char* c = data.begin();
    const char* const end = data.end();
    const char* lineBegin;
    const char* lineEnd;
    std::vector<std::pair<const char*, const char*>> tokens;
    if (!nextLine(c, end, lineBegin, lineEnd)) return true;
    splitTokens(lineBegin, lineEnd, tokens);
    if (tokens.empty()) return true;
    const std::string keyword(tokens[0].first, tokens[0].second);
    if (keyword.size() < 3 || keyword.compare(keyword.size() - 3, 3, "OFF") != 0) return true;
    // The counts follow on the same line or on the next line that is not a
    // comment.
    size_t first = 1;
    while (tokens.size() <= first) {
        if (!nextLine(c, end, lineBegin, lineEnd)) return true;
        splitTokens(lineBegin, lineEnd, tokens);
        first = 0;
        if (!tokens.empty() && *tokens[0].first == '#') tokens.clear();
    }
    uint64_t vertices = 0, faces = 0;
    if (tokens.size() < first + 2 || !readCount(tokens[first].first, tokens[first].second, vertices) ||
        !readCount(tokens[first + 1].first, tokens[first + 1].second, faces))
        return true;
    // A vertex is at least three values, a face at least its corner count.
    const uint64_t available = static_cast<uint64_t>(end - c) + 1;
    if (product(vertices, 6) > available) {
        error = tooMany(tokens[first], "vertices", data.size());
        return false;
    }
    if (product(faces, 2) > available - product(vertices, 6)) {
        error = tooMany(tokens[first + 1], "faces", data.size());
        return false;
    }
    return true;
}

}  // namespace

bool checkDeclaredCounts(const std::string& extension, const tMappedFile& data, std::string& error) {
    if (extension == ".ply") return checkPly(data, error);
    if (extension == ".off") return checkOff(data, error);
    return true;
}

}  // namespace contour::importer
