// Replacing an output file without ever losing what was there: the drawing is
// written to a temporary file beside the target and renamed onto it only once
// it is complete.
#ifndef CTR_DRAWING_OUTPUTFILE_H
#define CTR_DRAWING_OUTPUTFILE_H

#include <string>

namespace contour {

class AtomicOutput {
public:
    AtomicOutput() = default;
    // Removes the temporary unless it was committed.
    ~AtomicOutput();
    AtomicOutput(const AtomicOutput&) = delete;
    AtomicOutput& operator=(const AtomicOutput&) = delete;

    // Makes an empty temporary file for target; "-" stands for standard
    // output, whose temporary goes to $TMPDIR. False with a one-line reason.
    bool create(const std::string& target, std::string& error);
    const std::string& temporaryPath() const { return temporary; }
    // Renames the temporary onto the target (or copies it to standard output
    // and removes it).
    bool commit(std::string& error);

private:
    void discard();

    std::string target;
    std::string temporary;
};

// A termination signal removes the temporary of the AtomicOutput in use
// before the process ends. An interrupt (Ctrl-C) only sets a flag, which the
// drawing polls so that it can stop and clean up as on any failure; a second
// interrupt ends the process at once, temporary removed.
void InstallInterruptHandling();
bool InterruptRequested();

}  // namespace contour

#endif
