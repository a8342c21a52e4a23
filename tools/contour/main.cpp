// contour: turns model files into line drawings.
#include <cstdio>
#include <cstring>

#include "ctr/Version.h"

int main(int argc, char** argv) {
    if (argc == 2 && (std::strcmp(argv[1], "--version") == 0 || std::strcmp(argv[1], "-V") == 0)) {
        std::printf("contour %s\n", qeContouringLib::Version::GetDescStringMajorMinorReleaseRevisionDate());
        return 0;
    }
    if (argc == 1 || (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0))) {
        std::printf(
            "usage: contour --version\n"
            "Line drawings of triangle meshes (library %s).\n",
            qeContouringLib::Version::GetDescStringMajorMinorReleaseRevision(false, true));
        return 0;
    }
    std::fprintf(stderr, "contour: unknown option '%s' (try --help)\n", argv[1]);
    return 2;
}
