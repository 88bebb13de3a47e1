#pragma once
// Helpers of the film tests: unique temporary names and raw file access.
#include <gtest/gtest.h>

#include <string>

#include "support/Bytes.h"

namespace filmtest {

using thermokit::test::At;
using thermokit::test::ExpectFields;
using thermokit::test::Put;
using thermokit::test::ReadAll;
using thermokit::test::TextAt;
using thermokit::test::u16;
using thermokit::test::u8;
using thermokit::test::WriteAll;

// Saving a frame reads the camera configuration: the tests keep it in
// stores of their own, never in the user's.
inline const bool kPrivateStores = thermokit::test::UsePrivateStores();

// A film path of its own, named after the running test.
inline std::string TempName(const std::string& tag) {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return thermokit::test::TempPath(std::string(info ? info->name() : "x") + "_" + tag + ".film");
}

}  // namespace filmtest
