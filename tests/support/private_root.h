#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace test {

/// Runs part of a test in a process of its own whose root folder is `root`, for code that works on fixed
/// absolute paths. The system's programs, libraries and devices are there as well; everything else is what
/// the test put below `root`. Starts in "/", as the superuser.
[[nodiscard]] ::testing::AssertionResult passes_in_root(const std::string& root,
                                                        const std::function<void()>& body);

}  // namespace test
