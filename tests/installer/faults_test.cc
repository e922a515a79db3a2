#include "device/installer/faults.h"

#include <chrono>
#include <string>

#include <gtest/gtest.h>

namespace installer {
namespace {

using std::chrono::milliseconds;

TEST(InstallerFaults, AreNoneWithoutAControlObject) {
  const Faults faults = Faults::parse({});
  EXPECT_EQ(faults.delay, milliseconds(0));
  EXPECT_FALSE(faults.noise);
  EXPECT_EQ(faults.omit, "");
  EXPECT_FALSE(faults.refuses("query"));
  EXPECT_FALSE(faults.dies_of("query"));
}

TEST(InstallerFaults, AreWhatTheControlObjectSays) {
  const Faults faults = Faults::parse(parse_attributes(
      "@control\n[n]delay_ms:n:250\nrefuse::register\nnoise:b:true\nomit::actual_gid\ndie::all\n"));
  EXPECT_EQ(faults.delay, milliseconds(250));
  EXPECT_TRUE(faults.noise);
  EXPECT_EQ(faults.omit, "actual_gid");
  EXPECT_TRUE(faults.refuses("register"));
  EXPECT_FALSE(faults.refuses("query"));
  EXPECT_TRUE(faults.dies_of("register"));
  EXPECT_TRUE(faults.dies_of("query"));
}

TEST(InstallerFaults, DelayByANumberWithinReasonOnly) {
  for (const char* text : {"", "soon", "5s", "-1", "600001", "99999999999"}) {
    EXPECT_EQ(Faults::parse({{"delay_ms", text}}).delay, milliseconds(0)) << text;
  }
  EXPECT_EQ(Faults::parse({{"delay_ms", "600000"}}).delay, milliseconds(600000));
}

const Answer ANSWER = {{"actual_gid", "10000"}, {"actual_extras", "a::b"}, {"result", "0"}};

TEST(InstallerAnswer, IsOneLineForEachAttributeInOrder) {
  EXPECT_EQ(to_lines(ANSWER), "actual_gid::10000\nactual_extras::a::b\nresult::0\n");
  EXPECT_EQ(to_lines({{"error", "two\nlines"}}), "error::two lines\n");
  EXPECT_EQ(to_lines({}), "");
}

TEST(InstallerAnswer, CanLackAnAttribute) {
  EXPECT_EQ(to_lines(without(ANSWER, "actual_gid")), "actual_extras::a::b\nresult::0\n");
  EXPECT_EQ(to_lines(without(ANSWER, "result")), "actual_gid::10000\nactual_extras::a::b\n");
  EXPECT_EQ(to_lines(without(ANSWER, "")), to_lines(ANSWER));
}

TEST(InstallerAnswer, CanComeAfterNoiseThatNeverHoldsAResult) {
  EXPECT_EQ(noise_before(ANSWER),
            "progress::1\nactual_gid::not yet: 10000\nactual_extras::not yet: a::b\nempty::\ncolons::a::b:c\n"
            "-action\n");
  EXPECT_EQ(to_lines(with_noise(ANSWER)),
            "progress::100\nactual_gid::10000\nactual_extras::a::b\nresult::0\n");
}

}  // namespace
}  // namespace installer
