#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/folder.h"

namespace harbix::test {

inline constexpr uid_t NOBODY = 65534;  ///< an account that owns nothing

/// Runs part of a test in a process of its own whose root folder is `root`, for code that works on fixed
/// absolute paths. The system's programs, libraries and devices are there as well; everything else is what
/// the test put below `root`. Starts in "/", as the superuser.
[[nodiscard]] ::testing::AssertionResult passes_in_root(const std::string& root,
                                                        const std::function<void()>& body);

/// The same as a fixture: a root folder of the test's own stands for a device's.
class RootTest : public ::testing::Test {
 protected:
  /// Runs `body` in a process of its own, with the device's root.
  [[nodiscard]] ::testing::AssertionResult on_the_device(const std::function<void()>& body) const;

 private:
  /// Called there, as the first and as the last.
  virtual void set_up_root() const {}
  virtual void leave_root() const {}

  TemporaryFolder root_;
};

/// The ids that the device's accounts have in passes_with_device_accounts().
inline constexpr gid_t SHARED_GROUP = 5001;
inline constexpr gid_t PROTECTED_GROUP = 5002;
inline constexpr gid_t SYSTEM_GROUP = 5003;
inline constexpr uid_t MEDIA_USER = 5004;

/// Runs part of a test in a process of its own, for which the device's users and groups exist: /etc/passwd
/// and /etc/group are replaced there, and nowhere else.
[[nodiscard]] ::testing::AssertionResult passes_with_device_accounts(const std::function<void()>& body);

}  // namespace harbix::test
