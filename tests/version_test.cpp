#include "ctr/Version.h"

#include <string>

#include <gtest/gtest.h>

namespace {

namespace version = qeContouringLib::Version;

// The stored strings must agree with the numbers: each is the numbers joined
// by "." as far as its name reaches, then " #commit" where asked and
// " year-month" for the dated form.
TEST(Version, DescriptionStringsAgreeWithTheNumbers) {
    const std::string majorMinor = std::to_string(version::GetMajor()) + "." + std::to_string(version::GetMinor());
    const std::string release = majorMinor + "." + std::to_string(version::GetRelease());
    const std::string revision = release + "." + std::to_string(version::GetRevision());
    const std::string commit = revision + " #" + version::GetCommitId();
    for (bool ignored : {false, true}) {
        EXPECT_EQ(version::GetDescStringMajorMinor(ignored), majorMinor);
        EXPECT_EQ(version::GetDescStringMajorMinorRelease(ignored), release);
        EXPECT_EQ(version::GetDescStringMajorMinorReleaseRevision(ignored, false), revision);
        EXPECT_EQ(version::GetDescStringMajorMinorReleaseRevision(ignored, true), commit);
    }
    EXPECT_EQ(version::GetDescStringMajorMinorReleaseRevisionDate(),
              commit + " " + std::to_string(version::GetYear()) + "-" + std::to_string(version::GetMonth()));
    // A released library: the flags a host shows next to the version are off.
    EXPECT_FALSE(version::IsBeta() || version::IsDebug() || version::IsDev());
}

}  // namespace
