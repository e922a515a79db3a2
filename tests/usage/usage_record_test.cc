#include "device/usage/usage_record.h"

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include "support/process.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using usage::usage_record;

TEST(UsageRecord, IsWhatTheProgramWasBuiltWith) {
  EXPECT_EQ(test::read_file(HARBIX_USAGE_RECORD), usage_record(HARBIX_PROGRAM));
}

TEST(UsageRecord, StaysWhenTheProgramIsStripped) {
  const test::TemporaryFolder folder;
  ASSERT_EQ(0, test::run_program({"strip", "-o", folder / "harbix", HARBIX_PROGRAM}).status);
  EXPECT_EQ(test::read_file(HARBIX_USAGE_RECORD), usage_record(folder / "harbix"));
}

TEST(UsageRecord, IsMissingInOtherFiles) {
  const test::TemporaryFolder folder;
  EXPECT_EQ(std::nullopt, usage_record(HARBIX_DEVICE_PROGRAM)) << "another program";
  for (const std::string text : {"", "#!/bin/sh\n", "\177ELF",
                                 "\177ELF and more than a header's length of text, "
                                 "which no program begins with"}) {
    test::write_file(folder / "file", text);
    EXPECT_EQ(std::nullopt, usage_record(folder / "file")) << text;
  }
  EXPECT_EQ(std::nullopt, usage_record(folder.path())) << "a folder";
  ASSERT_EQ(0, ::mkfifo((folder / "pipe").c_str(), 0600));
  EXPECT_EQ(std::nullopt, usage_record(folder / "pipe")) << "a pipe, which must not be waited for";
}

TEST(UsageRecord, IsMissingInADamagedProgram) {
  const test::TemporaryFolder folder;
  // Small, so that each byte of what is read of it can be damaged.
  ASSERT_EQ(0, test::run_program({"sh", "-c",
                                  "cp /bin/true \"$0\" && objcopy --strip-all "
                                  "--add-section .usage=/etc/passwd \"$0\"",
                                  folder / "program"})
                   .status);
  const std::string whole = test::read_file(folder / "program");
  const std::optional<std::string> record = usage_record(folder / "program");
  ASSERT_EQ(test::read_file("/etc/passwd"), record);
  for (std::size_t size = 0; size < whole.size(); size += 97) {
    test::write_file(folder / "cut", whole.substr(0, size));
    EXPECT_EQ(std::nullopt, usage_record(folder / "cut")) << size;
  }
  constexpr std::size_t HEADER_BYTES = 64;
  for (std::size_t at = 0; at < HEADER_BYTES; ++at) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 0xFF);
    test::write_file(folder / "damaged", damaged);
    const std::optional<std::string> found = usage_record(folder / "damaged");
    EXPECT_TRUE(!found || found == record) << at;
  }
}

TEST(UsageRecord, TellsThatAFileIsNotThere) {
  try {
    static_cast<void>(usage_record("/none/at/all"));
    ADD_FAILURE();
  } catch (const std::system_error& error) {
    EXPECT_STREQ("cannot open '/none/at/all': No such file or directory", error.what());
  }
}

}  // namespace
