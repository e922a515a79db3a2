#include "device/processes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace harbix::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ProcessIds, AreReadAsTheKernelWritesThem) {
  EXPECT_THAT(device::parse_process_ids(""), IsEmpty());
  EXPECT_THAT(device::parse_process_ids("2 "), ElementsAre(2));
  EXPECT_THAT(device::parse_process_ids("2 17 4194303 "), ElementsAre(2, 17, 4194303));
}

}  // namespace
}  // namespace harbix::test
