#include <string_view>

#include <gtest/gtest.h>

#include "base/domains.h"
#include "base/flags.h"
#include "base/places.h"
#include "base/size_result.h"

namespace {

namespace domains = harbix::domains;
namespace places = harbix::places;

TEST(Domains, AreTheDevicesOwnNames) {
  EXPECT_EQ("1000_shared", std::string_view(domains::SHARED_GROUP));
  EXPECT_EQ("media", std::string_view(domains::MEDIA_USER));
  EXPECT_EQ("protected_media", std::string_view(domains::PROTECTED_MEDIA_GROUP));
  EXPECT_EQ("1000_sys", std::string_view(domains::SYSTEM_GROUP));
  EXPECT_EQ("apps", std::string_view(domains::APPLICATIONS_USER));
  EXPECT_EQ("shopvale", std::string_view(domains::STOREFRONT_SOURCE));
  EXPECT_EQ("websl", std::string_view(domains::BUILT_IN_MARKER));
  EXPECT_EQ(1000U, domains::USER_ACCOUNT);
}

TEST(Domains, KeepTwoInstallerNamesWithOneText) {
  EXPECT_EQ("upd", std::string_view(domains::INSTALLER_USER));
  EXPECT_EQ("upd", std::string_view(domains::INSTALLER_GROUP));
  EXPECT_NE(static_cast<const void*>(&domains::INSTALLER_USER),
            static_cast<const void*>(&domains::INSTALLER_GROUP));
}

TEST(Places, AreTheDevicesFixedPaths) {
  EXPECT_EQ("/", std::string_view(places::ROOT));
  EXPECT_EQ("/dev/null", std::string_view(places::DEV_NULL));
  EXPECT_EQ("/dev/stdout", std::string_view(places::DEV_STDOUT));
  EXPECT_EQ("/accounts/1000", std::string_view(places::ACCOUNT));
  EXPECT_EQ("/accounts/1000/shared", std::string_view(places::SHARED));
  EXPECT_EQ("/accounts/1000/sys/dtm", std::string_view(places::DTM_SHARE));
  EXPECT_EQ("/apps", std::string_view(places::APPLICATIONS));
  EXPECT_EQ("/base/scripts/backup_and_restore", std::string_view(places::SUBSCRIBER_SCRIPTS));
  EXPECT_EQ("/pps", std::string_view(places::PPS));
}

TEST(Flags, AreClearAtTheStart) {
  EXPECT_FALSE(harbix::verbose);
  EXPECT_FALSE(harbix::pretend);
}

TEST(SizeResult, IsZeroAtFirst) {
  const harbix::SizeResult result;
  EXPECT_EQ(0, result.bytes);
  EXPECT_EQ(0, result.files);
  EXPECT_EQ(8U, sizeof(result.bytes));
  EXPECT_EQ(4U, sizeof(result.files));
}

}  // namespace
