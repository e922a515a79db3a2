#pragma once

#include <string>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {

/// Sample content in a folder of the host's that stands for a device's root.
class ContentTest : public testing::Test {
 protected:
  /// Where the host finds an absolute path of the device's.
  [[nodiscard]] std::string on_host(const std::string& path) const { return folder_ / path.substr(1); }

  TemporaryFolder folder_;
};

}  // namespace harbix::test
