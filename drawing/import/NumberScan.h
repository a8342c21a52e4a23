// Scanning of the text formats: lines into blank-separated tokens, tokens
// into numbers. Each parser takes a whole token and declines it (returns
// false, out untouched) unless all of it is a number in the spelling given.
#ifndef CONTOUR_NUMBERSCAN_H
#define CONTOUR_NUMBERSCAN_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace contour::importer {

// Decimal numbers [-]digits[.[digits]][(e|E)[+|-]digits], rounded exactly as
// assimp's text readers round them: the integer part and up to 15 fraction
// digits are read as integers, the fraction scaled in double, both summed in
// float, then scaled by a float power of ten. This differs from correctly
// rounded parsing (strtof) in the last bit for some inputs. Other spellings
// (leading '+' or '.', nan, inf, very long integer parts) are declined.
bool parseFloat(const char* begin, const char* end, float& out);

// Unsigned decimal integer without sign or leading zeros (a lone 0 is fine).
bool parseIndex(const char* begin, const char* end, uint64_t& out);

// Whether assimp would take the token for a number other than the one it
// spells, without a word: it reads the leading digits of "0x1p3", "1.5.5",
// "1,5" or "2e0x" and drops the rest, and wraps integer parts above
// 2^64 - 1. Such a file is refused rather than drawn
// wrong. Spellings assimp reads right, or refuses itself, are not flagged.
bool isMisreadNumber(const char* begin, const char* end);

// At most maxBytes of text as a quotable excerpt: bytes other than printable
// ASCII become '?', and a cut is marked with "...". File contents quoted in
// an error message go through it, so that a message stays one short line.
std::string printableExcerpt(const char* begin, const char* end, size_t maxBytes = 32);

inline bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Splits a line (without its end) into tokens separated by blanks.
void splitTokens(const char* begin, const char* end, std::vector<std::pair<const char*, const char*>>& tokens);

}  // namespace contour::importer

#endif
