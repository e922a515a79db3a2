#pragma once

#include <string>

#include <gtest/gtest.h>

namespace harbix::test {

/// For INSTANTIATE_TEST_SUITE_P: the parameter is the test's name.
inline std::string name_of(const testing::TestParamInfo<const char*>& parameter) { return parameter.param; }

}  // namespace harbix::test
