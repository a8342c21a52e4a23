// Version numbers and description strings of the library. Every value is a
// compile-time constant; the strings are static and must not be freed.
#ifndef CTR_VERSION_H
#define CTR_VERSION_H

#include "ctr/Export.h"

namespace qeContouringLib {
namespace Version {

CTR_API int GetMajor();
CTR_API int GetMinor();
CTR_API int GetRelease();
CTR_API int GetRevision();
CTR_API const char* GetCommitId();
CTR_API int GetYear();
CTR_API int GetMonth();

// The boolean arguments are ignored; they stay for interface compatibility.
CTR_API const char* GetDescStringMajorMinor(bool);
CTR_API const char* GetDescStringMajorMinorRelease(bool);
// With withCommitId, " #" and the commit id follow the four numbers.
CTR_API const char* GetDescStringMajorMinorReleaseRevision(bool, bool withCommitId);
CTR_API const char* GetDescStringMajorMinorReleaseRevisionDate();

CTR_API bool IsBeta();
CTR_API bool IsDebug();
CTR_API bool IsDev();

}  // namespace Version
}  // namespace qeContouringLib

#endif
