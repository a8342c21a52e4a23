#include "ctr/Version.h"

namespace qeContouringLib {
namespace Version {

// The strings are stored whole rather than assembled, so that every call
// returns the same static pointer.
namespace {
constexpr const char kMajorMinor[] = "1.0";
constexpr const char kMajorMinorRelease[] = "1.0.0";
constexpr const char kRevision[] = "1.0.0.1297";
constexpr const char kRevisionCommit[] = "1.0.0.1297 #3d96f40405c8d0b4";
constexpr const char kRevisionCommitDate[] = "1.0.0.1297 #3d96f40405c8d0b4 2026-2";
}  // namespace

int GetMajor() { return 1; }
int GetMinor() { return 0; }
int GetRelease() { return 0; }
int GetRevision() { return 1297; }
const char* GetCommitId() { return "3d96f40405c8d0b4"; }
int GetYear() { return 2026; }
int GetMonth() { return 2; }

const char* GetDescStringMajorMinor(bool) { return kMajorMinor; }
const char* GetDescStringMajorMinorRelease(bool) { return kMajorMinorRelease; }
const char* GetDescStringMajorMinorReleaseRevision(bool, bool withCommitId) {
    return withCommitId ? kRevisionCommit : kRevision;
}
const char* GetDescStringMajorMinorReleaseRevisionDate() { return kRevisionCommitDate; }

bool IsBeta() { return false; }
bool IsDebug() { return false; }
bool IsDev() { return false; }

}  // namespace Version
}  // namespace qeContouringLib
