// Readers that bring in large third-party libraries live in modules of their
// own, loaded by the first process that reads such a file, so that every
// other start of a front end skips their symbol binding.
#ifndef CONTOUR_READERMODULE_H
#define CONTOUR_READERMODULE_H

#include <string>

namespace contour::importer {

// The address of entry in the reader module named module, loaded once per
// process and kept. The module is looked for beside the executable or shared
// object that holds the importer (the Python package carries it there), in
// the installed library folder relative to it, and in the build tree.
// Null with a one-line reason in error when no copy loads or the entry is
// missing.
void* ReaderEntry(const char* module, const char* entry, std::string& error);

}  // namespace contour::importer

#endif
