#include "ctr/Version.h"

#include <gtest/gtest.h>

namespace {

namespace version = qeContouringLib::Version;

TEST(Version, NumbersAndFlags) {
    EXPECT_EQ(version::GetMajor(), 1);
    EXPECT_EQ(version::GetMinor(), 0);
    EXPECT_EQ(version::GetRelease(), 0);
    EXPECT_EQ(version::GetRevision(), 1297);
    EXPECT_STREQ(version::GetCommitId(), "3d96f40405c8d0b4");
    EXPECT_EQ(version::GetYear(), 2026);
    EXPECT_EQ(version::GetMonth(), 2);
    EXPECT_FALSE(version::IsBeta());
    EXPECT_FALSE(version::IsDebug());
    EXPECT_FALSE(version::IsDev());
}

// Every string is the numbers joined by "." as far as the name reaches, then
// " #commit" where asked and " year-month" (no leading zero) for the dated
// form. Flags other than withCommitId are ignored, and the strings are static:
// the same pointer comes back on every call.
TEST(Version, DescriptionStrings) {
    for (bool ignored : {false, true}) {
        EXPECT_STREQ(version::GetDescStringMajorMinor(ignored), "1.0");
        EXPECT_STREQ(version::GetDescStringMajorMinorRelease(ignored), "1.0.0");
        EXPECT_STREQ(version::GetDescStringMajorMinorReleaseRevision(ignored, false), "1.0.0.1297");
        EXPECT_STREQ(version::GetDescStringMajorMinorReleaseRevision(ignored, true), "1.0.0.1297 #3d96f40405c8d0b4");
    }
    EXPECT_STREQ(version::GetDescStringMajorMinorReleaseRevisionDate(), "1.0.0.1297 #3d96f40405c8d0b4 2026-2");

    EXPECT_EQ(version::GetDescStringMajorMinor(true), version::GetDescStringMajorMinor(false));
    EXPECT_EQ(version::GetDescStringMajorMinorRelease(true), version::GetDescStringMajorMinorRelease(false));
    EXPECT_EQ(version::GetDescStringMajorMinorReleaseRevision(true, true),
              version::GetDescStringMajorMinorReleaseRevision(false, true));
    EXPECT_EQ(version::GetDescStringMajorMinorReleaseRevision(true, false),
              version::GetDescStringMajorMinorReleaseRevision(false, false));
    EXPECT_EQ(version::GetDescStringMajorMinorReleaseRevisionDate(),
              version::GetDescStringMajorMinorReleaseRevisionDate());
    EXPECT_EQ(version::GetCommitId(), version::GetCommitId());
}

}  // namespace
