#include <string_view>

#include <gtest/gtest.h>

#include "base/domains.h"
#include "base/flags.h"
#include "base/places.h"
#include "base/size_result.h"

namespace harbix::test {
namespace {

namespace domains = harbix::domains;
namespace places = harbix::places;

TEST(Domains, AreTheDevicesOwnNames) {
  EXPECT_EQ(std::string_view(domains::SHARED_GROUP), "1000_shared");
  EXPECT_EQ(std::string_view(domains::MEDIA_USER), "media");
  EXPECT_EQ(std::string_view(domains::PROTECTED_MEDIA_GROUP), "protected_media");
  EXPECT_EQ(std::string_view(domains::SYSTEM_GROUP), "1000_sys");
  EXPECT_EQ(std::string_view(domains::APPLICATIONS_USER), "apps");
  EXPECT_EQ(std::string_view(domains::STOREFRONT_SOURCE), "shopvale");
  EXPECT_EQ(std::string_view(domains::BUILT_IN_MARKER), "websl");
  EXPECT_EQ(domains::USER_ACCOUNT, 1000U);
}

TEST(Domains, KeepTwoInstallerNamesWithOneText) {
  EXPECT_EQ(std::string_view(domains::INSTALLER_USER), "upd");
  EXPECT_EQ(std::string_view(domains::INSTALLER_GROUP), "upd");
  EXPECT_NE(static_cast<const void*>(&domains::INSTALLER_USER),
            static_cast<const void*>(&domains::INSTALLER_GROUP));
}

TEST(Places, AreTheDevicesFixedPaths) {
  EXPECT_EQ(std::string_view(places::ROOT), "/");
  EXPECT_EQ(std::string_view(places::DEV_NULL), "/dev/null");
  EXPECT_EQ(std::string_view(places::DEV_STDOUT), "/dev/stdout");
  EXPECT_EQ(std::string_view(places::ACCOUNT), "/accounts/1000");
  EXPECT_EQ(std::string_view(places::SHARED), "/accounts/1000/shared");
  EXPECT_EQ(std::string_view(places::DTM_SHARE), "/accounts/1000/sys/dtm");
  EXPECT_EQ(std::string_view(places::APPLICATIONS), "/apps");
  EXPECT_EQ(std::string_view(places::SUBSCRIBER_SCRIPTS), "/base/scripts/backup_and_restore");
  EXPECT_EQ(std::string_view(places::PPS), "/pps");
}

TEST(Flags, AreClearAtTheStart) {
  EXPECT_FALSE(harbix::verbose);
  EXPECT_FALSE(harbix::pretend);
}

TEST(SizeResult, IsZeroAtFirst) {
  const harbix::SizeResult result;
  EXPECT_EQ(result.bytes, 0);
  EXPECT_EQ(result.files, 0);
  EXPECT_EQ(sizeof(result.bytes), 8U);
  EXPECT_EQ(sizeof(result.files), 4U);
}

}  // namespace
}  // namespace harbix::test
