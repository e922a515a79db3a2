#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/program.h"

namespace harbix::test {
namespace {

using Words = std::vector<std::string>;

/// What the probe prints when one call is made to fail.
std::string probe(const std::string& call, const std::string& nth, const std::string& error) {
  // By its name alone: a blank in a path of LD_PRELOAD would end the path.
  const std::filesystem::path library(HARBIX_FAILING_CALLS);
  const Outcome outcome =
      run_program({"env", "LD_PRELOAD=" + library.filename().string(),
                   "LD_LIBRARY_PATH=" + library.parent_path().string(), "HARBIX_FAIL_CALL=" + call,
                   "HARBIX_FAIL_NTH=" + nth, "HARBIX_FAIL_ERRNO=" + error, HARBIX_FAILING_CALLS_PROBE});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  return outcome.output;
}

/// In the probe's order.
const std::vector<std::string> PROBED{"openat",    "read",     "write",    "lstat",   "fstatat",   "openat2",
                                      "pwrite",    "syncfs",   "fchmod",   "mkdirat", "symlinkat", "renameat",
                                      "renameat2", "fchownat", "unlinkat", "close",   "open"};

/// All probes untouched, with one line exchanged.
std::string report(const std::string& call, const std::string& line) {
  std::string text;
  for (const std::string& name : PROBED) {
    text += name + ": " + (name == call ? line : "0 0 0") + "\n";
  }
  return text;
}

TEST(FailingCalls, FailTheCallThatIsNamedAndNoOther) {
  for (const std::string& call : PROBED) {
    if (call == "open") continue;
    EXPECT_EQ(probe(call, "1", "28"), report(call, "28 0 0")) << call;
    EXPECT_EQ(probe(call, "2", "5"), report(call, "0 5 0")) << call;
  }
  EXPECT_EQ(probe("read", "2+", "5"), report("read", "0 5 5"));
  // The probe itself has opened one file before.
  EXPECT_EQ(probe("open", "3", "13"), report("open", "0 13 0"));
}

TEST(FailingCalls, PassWithoutAPlanOrBeyondItsCount) {
  EXPECT_EQ(probe("read", "4", "5"), report("", ""));
  EXPECT_EQ(probe("", "1", "5"), report("", ""));
  EXPECT_EQ(probe("unlink", "1", "5"), report("", ""));
}

}  // namespace
}  // namespace harbix::test
