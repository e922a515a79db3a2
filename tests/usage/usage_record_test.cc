#include "device/usage/usage_record.h"

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using usage::usage_record;

TEST(UsageRecord, IsWhatTheProgramWasBuiltWith) {
  EXPECT_EQ(usage_record(HARBIX_PROGRAM), read_file(HARBIX_USAGE_RECORD));
}

TEST(UsageRecord, StaysWhenTheProgramIsStripped) {
  const TemporaryFolder folder;
  ASSERT_EQ(run_program({"strip", "-o", folder / "harbix", HARBIX_PROGRAM}).status, 0);
  EXPECT_EQ(usage_record(folder / "harbix"), read_file(HARBIX_USAGE_RECORD));
}

TEST(UsageRecord, IsMissingInOtherFiles) {
  const TemporaryFolder folder;
  EXPECT_EQ(usage_record(HARBIX_DEVICE_PROGRAM), std::nullopt) << "another program";
  for (const std::string text : {"", "#!/bin/sh\n", "\177ELF",
                                 "\177ELF and more than a header's length of text, "
                                 "which no program begins with"}) {
    write_file(folder / "file", text);
    EXPECT_EQ(usage_record(folder / "file"), std::nullopt) << text;
  }
  EXPECT_EQ(usage_record(folder.path()), std::nullopt) << "a folder";
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(usage_record(folder / "pipe"), std::nullopt) << "a pipe, which must not be waited for";
}

TEST(UsageRecord, IsMissingInADamagedProgram) {
  const TemporaryFolder folder;
  // Small, so that each byte of what is read of it can be damaged.
  ASSERT_EQ(run_program({"sh", "-c",
                         "cp /bin/true \"$0\" && objcopy --strip-all "
                         "--add-section .usage=/etc/passwd \"$0\"",
                         folder / "program"})
                .status,
            0);
  const std::string whole = read_file(folder / "program");
  const std::optional<std::string> record = usage_record(folder / "program");
  ASSERT_EQ(record, read_file("/etc/passwd"));
  for (std::size_t size = 0; size < whole.size(); size += 97) {
    write_file(folder / "cut", whole.substr(0, size));
    EXPECT_EQ(usage_record(folder / "cut"), std::nullopt) << size;
  }
  constexpr std::size_t HEADER_BYTES = 64;
  for (std::size_t at = 0; at < HEADER_BYTES; ++at) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 0xFF);
    write_file(folder / "damaged", damaged);
    const std::optional<std::string> found = usage_record(folder / "damaged");
    EXPECT_TRUE(!found || found == record) << at;
  }
}

TEST(UsageRecord, TellsThatAFileIsNotThere) {
  try {
    static_cast<void>(usage_record("/none/at/all"));
    ADD_FAILURE();
  } catch (const std::system_error& error) {
    EXPECT_STREQ(error.what(), "cannot open '/none/at/all': No such file or directory");
  }
}

}  // namespace
}  // namespace harbix::test
