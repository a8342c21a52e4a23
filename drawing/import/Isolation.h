// Running a third-party reader where it cannot take the process down.
#ifndef CONTOUR_ISOLATION_H
#define CONTOUR_ISOLATION_H

#include <cstddef>
#include <functional>
#include <string>

namespace contour::importer {

// Runs work in a child process and hands back the bytes it returns.
//
// Assimp asserts on some malformed files (an abort, which no exception
// handler sees), trusts the element counts that headers declare, and has
// readers whose time is hard to bound. In a child process an abort, a
// crash or a runaway allocation ends only the child, and the caller gets
// a one-line reason instead; that matters most to hosts such as an
// interpreter session, which must survive any file. Where no sanitizer
// reserves the address space, the child's memory is limited to what it
// already maps plus a fixed multiple of inputBytes and a constant, and its
// processor time to a minute plus a second per megabyte of input.
//
// The child runs only work and ends with _exit: no destructor, handler or
// buffer of the parent's runs in it twice. Interrupt and termination
// signals get their default action there, so that Ctrl-C ends the child
// too. Returns false with the reason in error when work throws or the
// child ends without handing back its whole result. Builds with the address
// sanitizer, whose allocator is not safe across fork, run work in-process.
bool RunIsolated(size_t inputBytes, const std::function<std::string()>& work, std::string& result,
                 std::string& error);

}  // namespace contour::importer

#endif
