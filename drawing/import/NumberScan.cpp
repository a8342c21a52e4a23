#include "NumberScan.h"

#include <algorithm>
#include <cmath>

#include "MeshReaders.h"

namespace contour::importer {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Reads the run of digits at c into value (wrapping, as unsigned arithmetic
// does, past 19 digits); returns how many there were.
int readDigits(const char*& c, const char* end, uint64_t& value) {
    int digits = 0;
    for (value = 0; c < end && isDigit(*c); ++c, ++digits) value = value * 10 + static_cast<uint64_t>(*c - '0');
    return digits;
}

}  // namespace

bool parseFloat(const char* begin, const char* end, float& out) {
    const char* c = begin;
    const bool negative = c < end && *c == '-';
    if (negative) ++c;
    if (c == end || !isDigit(*c)) return false;
    uint64_t whole = 0;
    if (readDigits(c, end, whole) > 18) return false;
    float value = static_cast<float>(whole);
    if (c < end && *c == '.') {
        ++c;
        if (c < end && isDigit(*c)) {
            static const double kScale[16] = {0.0,  1e-1, 1e-2,  1e-3,  1e-4,  1e-5,  1e-6,  1e-7,
                                              1e-8, 1e-9, 1e-10, 1e-11, 1e-12, 1e-13, 1e-14, 1e-15};
            uint64_t fraction = 0;
            int digits = 0;
            for (; c < end && isDigit(*c); ++c)
                if (digits < 15) {
                    fraction = fraction * 10 + static_cast<uint64_t>(*c - '0');
                    ++digits;
                }
            value += static_cast<float>(static_cast<double>(fraction) * kScale[digits]);
        }
    }
    if (c < end && (*c == 'e' || *c == 'E')) {
        ++c;
        const bool negativeExponent = c < end && *c == '-';
        if (c < end && (*c == '-' || *c == '+')) ++c;
        if (c == end || !isDigit(*c)) return false;
        uint64_t exponent = 0;
        if (readDigits(c, end, exponent) > 9) return false;
        float power = static_cast<float>(exponent);
        if (negativeExponent) power = -power;
        value *= std::pow(10.0f, power);
    }
    if (c != end) return false;
    out = negative ? -value : value;
    return true;
}

bool parseIndex(const char* begin, const char* end, uint64_t& out) {
    if (begin == end || end - begin > 9 || (*begin == '0' && end - begin > 1)) return false;
    uint64_t value = 0;
    for (const char* c = begin; c < end; ++c) {
        if (!isDigit(*c)) return false;
        value = value * 10 + static_cast<uint64_t>(*c - '0');
    }
    out = value;
    return true;
}

bool isMisreadNumber(const char* begin, const char* end) {
    const char* c = begin;
    if (c < end && (*c == '-' || *c == '+')) ++c;
    const char* const wholeBegin = c;
    while (c < end && isDigit(*c)) ++c;
    const char* const wholeEnd = c;
    size_t digits = static_cast<size_t>(wholeEnd - wholeBegin);
    if (c < end && *c == '.')
        for (++c; c < end && isDigit(*c); ++c) ++digits;
    if (digits == 0) return false;  // not a number at all; assimp says so
    if (c < end && (*c == 'e' || *c == 'E')) {
        const char* exponent = c + 1;
        if (exponent < end && (*exponent == '-' || *exponent == '+')) ++exponent;
        if (exponent == end || !isDigit(*exponent)) return true;
        for (c = exponent; c < end && isDigit(*c); ++c) {
        }
    }
    if (c != end) return true;
    const char* significant = std::find_if(wholeBegin, wholeEnd, [](char d) { return d != '0'; });
    // Past 2^64 - 1 the integer part wraps.
    static const char kLargest[] = "18446744073709551615";
    const ptrdiff_t length = wholeEnd - significant;
    return length > 20 || (length == 20 && std::lexicographical_compare(kLargest, kLargest + 20, significant, wholeEnd));
}

std::string printableExcerpt(const char* begin, const char* end, size_t maxBytes) {
    const size_t length = static_cast<size_t>(end - begin);
    const bool cut = length > maxBytes;
    std::string excerpt(begin, cut ? begin + maxBytes : end);
    for (char& c : excerpt)
        if (c < 0x20 || c > 0x7e) c = '?';
    if (cut) excerpt += "...";
    return excerpt;
}

void refuseMisreadNumber(const tMappedFile& data, const char* begin, const char* end, std::string* refusal) {
    if (!refusal || !isMisreadNumber(begin, end)) return;
    const size_t line = 1 + static_cast<size_t>(std::count(data.begin(), begin, '\n'));
    *refusal = "line " + std::to_string(line) + ": '" + printableExcerpt(begin, end) +
               "' is not a number that can be read exactly";
}

void splitTokens(const char* begin, const char* end, std::vector<std::pair<const char*, const char*>>& tokens) {
    tokens.clear();
    const char* c = begin;
    for (;;) {
        while (c < end && isBlank(*c)) ++c;
        if (c == end) return;
        const char* start = c;
        while (c < end && !isBlank(*c)) ++c;
        tokens.emplace_back(start, c);
    }
}

}  // namespace contour::importer
