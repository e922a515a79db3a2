#include "device/installer/ledger.h"

#include <sys/types.h>

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace installer {
namespace {

Application application(const std::string& id, gid_t gid) {
  return {.id = id,
          .package = "P." + id,
          .version = "1.0.0.1",
          .extras = "a:b:c::d,source::x",
          .gid = gid,
          .registered = true};
}

bool none_reserved(gid_t /*gid*/) { return false; }

TEST(Ledger, SurvivesBeingWrittenAndReadAgain) {
  Ledger ledger;
  ledger.enroll(application("one", 10000));
  ledger.enroll(application("caf\xe9 :: two", 10007));
  ledger.strike("one");
  const Ledger again = Ledger::parse(ledger.text());
  EXPECT_EQ(again.applications(), ledger.applications());
  EXPECT_EQ(ledger.text().substr(0, ledger.text().find("application::caf")),
            "application::one\npackage::P.one\nversion::1.0.0.1\nextras::a:b:c::d,source::x\ngid::10000\n"
            "registered::no\n");
}

TEST(Ledger, RefusesATextOfAnotherShape) {
  for (const char* line : {"package::before any", "application::", "nonsense", "application::a\ngid::x",
                           "application::a\nwhat::x", "application::a\nregistered::maybe",
                           "application::a\ngid", "application::a\n\n"}) {
    EXPECT_THROW(static_cast<void>(Ledger::parse(line)), std::runtime_error) << line;
  }
  try {
    static_cast<void>(Ledger::parse("application::a\ngid::12x\n"));
    FAIL() << "it was taken";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "the ledger's line 'gid::12x' does not fit");
  }
}

TEST(Ledger, FindsWhatIsRegistered) {
  Ledger ledger;
  ledger.enroll(application("one", 10000));
  ledger.enroll(application("two", 10001));
  ASSERT_NE(ledger.find("two"), nullptr);
  EXPECT_EQ(ledger.find("two")->package, "P.two");
  ASSERT_NE(ledger.find_package("P.one"), nullptr);
  EXPECT_EQ(ledger.find_package("P.one")->id, "one");
  ledger.strike("one");
  EXPECT_EQ(ledger.find("one"), nullptr);
  EXPECT_EQ(ledger.find_package("P.one"), nullptr);
  EXPECT_EQ(ledger.find("three"), nullptr);
  ledger.strike("three");
  EXPECT_EQ(ledger.applications().size(), 2U);
}

TEST(Ledger, PutsWhatIsRegisteredAgainAtTheEnd) {
  Ledger ledger;
  ledger.enroll(application("one", 10000));
  ledger.enroll(application("two", 10001));
  ledger.strike("one");
  ledger.enroll(application("one", 10000));
  ASSERT_EQ(ledger.applications().size(), 2U);
  EXPECT_EQ(ledger.applications().back(), application("one", 10000));
}

TEST(LedgerGroup, IsTheWantedOneIfItIsFree) {
  Ledger ledger;
  ledger.enroll(application("one", 10000));
  ledger.enroll(application("gone", 10003));
  ledger.strike("gone");
  struct Row {
    const char* id;
    const char* wanted;
    gid_t gid;
  };
  for (const Row& row : {
           Row{"new", "", 10001},
           Row{"new", "10500", 10500},
           Row{"new", "10000", 10001},
           Row{"new", "10003", 10001},
           Row{"new", "9999", 10001},
           Row{"new", "10500x", 10001},
           Row{"new", "-10500", 10001},
           Row{"new", " 10500", 10001},
           Row{"new", "429495", 429495},
           Row{"new", "429496", 10001},
           Row{"new", "99999999999999999999", 10001},
           Row{"one", "", 10000},
           Row{"one", "10000", 10000},
           Row{"one", "10500", 10500},
           Row{"one", "10003", 10000},
           Row{"gone", "", 10003},
           Row{"gone", "10003", 10003},
       }) {
    EXPECT_EQ(ledger.gid_for(row.id, row.wanted, none_reserved), row.gid) << row.id << " " << row.wanted;
  }
}

TEST(LedgerGroup, IsNoneThatTheDeviceUsesOtherwise) {
  const auto reserved = [](gid_t gid) { return gid <= 10002 || gid == 10500; };
  const Ledger ledger;
  EXPECT_EQ(ledger.gid_for("new", "", reserved), 10003U);
  EXPECT_EQ(ledger.gid_for("new", "10500", reserved), 10003U);
}

}  // namespace
}  // namespace installer
