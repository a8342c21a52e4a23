// Checks of declared sizes before a reader trusts them.
#ifndef CONTOUR_HEADERCHECKS_H
#define CONTOUR_HEADERCHECKS_H

#include <string>

#include "MappedFile.h"

namespace contour::importer {

// PLY and OFF headers declare their element counts, and readers size their
// arrays by them: 200 bytes that claim a billion vertices would have a
// reader allocate gigabytes before it finds the data missing. Every element
// takes some least number of bytes in the file (its binary size, or a digit
// and a separator per value in text), so a count that the rest of the file
// cannot hold is refused here, and the memory an import takes stays within
// a multiple of the file's size. Returns false with a one-line reason; true
// for other formats and for headers it does not understand, which their
// reader then refuses itself.
bool checkDeclaredCounts(const std::string& extension, const tMappedFile& data, std::string& error);

}  // namespace contour::importer

#endif
