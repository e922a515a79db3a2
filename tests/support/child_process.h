#pragma once

#include <functional>

#include <gtest/gtest.h>

namespace test {

/// Runs part of a test in a process of its own, which may ruin its identity, limits or locale. What fails
/// there is printed there.
[[nodiscard]] ::testing::AssertionResult passes_in_child(const std::function<void()>& body);

}  // namespace test
