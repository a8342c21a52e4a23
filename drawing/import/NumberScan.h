// Scanning of the text formats: lines into blank-separated tokens, tokens
// into numbers. Each parser takes a whole token and declines it (returns
// false, out untouched) unless all of it is a number in the spelling given.
#ifndef CONTOUR_NUMBERSCAN_H
#define CONTOUR_NUMBERSCAN_H

#include <cstdint>
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

inline bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Splits a line (without its end) into tokens separated by blanks.
void splitTokens(const char* begin, const char* end, std::vector<std::pair<const char*, const char*>>& tokens);

}  // namespace contour::importer

#endif
