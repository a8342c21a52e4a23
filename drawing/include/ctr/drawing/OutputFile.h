// Writing a drawing without ever losing what was there. A regular file (new,
// or the one at the end of a chain of symbolic links) is written as a file
// of its own in the target's folder and put in place only once complete, so
// that the final rename never crosses file systems. That file has no name
// until then (O_TMPFILE), so not even a killed process leaves it behind;
// where the file system refuses unnamed files, a hidden named temporary
// stands in, which the signal handlers below remove. Character devices and
// named pipes (/dev/stdout, /dev/null, a FIFO) are written directly: there
// is no file to replace there.
#ifndef CTR_DRAWING_OUTPUTFILE_H
#define CTR_DRAWING_OUTPUTFILE_H

#include <string>
#include <sys/types.h>

namespace contour {

class AtomicOutput {
public:
    AtomicOutput() = default;
    // Drops the drawing unless it was committed.
    ~AtomicOutput();
    AtomicOutput(const AtomicOutput&) = delete;
    AtomicOutput& operator=(const AtomicOutput&) = delete;

    // Prepares an empty file for target; "-" stands for standard output,
    // which gets the drawing only once it is complete, from a file in
    // $TMPDIR. False with a one-line reason.
    bool create(const std::string& target, std::string& error);
    // The name the drawing is written through: /proc/self/fd/N for an
    // unnamed file, else the named temporary or the device or pipe itself.
    const std::string& writePath() const { return writeTo; }
    // A writer's message names the file it opened; this names the output as
    // it was given instead.
    std::string nameTheTarget(std::string message) const;
    // Puts the drawing in place: links it into the target's folder and
    // renames it onto the target, or copies it to standard output.
    bool commit(std::string& error);

private:
    bool makeFile(std::string& error);
    bool toStandardOutput(std::string& error);
    void discard();
    // Registers the named temporary for the signal handlers (empty: none).
    void setPending(const std::string& path);

    std::string given;   // the target as named by the caller
    std::string target;  // the name to replace, links followed
    std::string folder, name;
    std::string writeTo;
    std::string temporary;  // a name on disk that a failed run must remove
    int descriptor = -1;    // the file, kept open: an unnamed one lives on it
    bool unnamed = false;
    mode_t mode = 0;
    int pendingSlot = -1;  // this output's entry in the handlers' table
};

// A termination signal removes the named temporaries of the AtomicOutputs in
// use before the process ends. An interrupt (Ctrl-C) only sets a flag, which
// the drawing polls so that it can stop and clean up as on any failure; a
// second interrupt ends the process at once, temporary removed.
void InstallInterruptHandling();
bool InterruptRequested();

}  // namespace contour

#endif
