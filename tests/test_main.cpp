#include <gtest/gtest.h>

#include "check/Check.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // Every hierarchy and every merged hidden-interval list that a test
    // builds is validated where it is built.
    ctr::check::SetValidation(true);
    return RUN_ALL_TESTS();
}
