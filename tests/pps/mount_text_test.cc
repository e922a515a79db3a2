// What clients write, and what they read without waiting.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "tests/support/mounted_pps.h"

namespace harbix::test {
namespace {

class MountText : public MountedPps {};

TEST_F(MountText, IsMergedByTheShell) {
  run("echo a::1 >obj; echo b:n:2 >obj; echo '[n]c::3' >>obj; printf 'a::5\\nd::4' >obj");
  EXPECT_EQ(cat("obj"), "@obj\na::5\nb:n:2\n[n]c::3\nd::4\n");
  run("echo -b >obj; : >obj; truncate -s 0 obj; echo @other >obj");
  EXPECT_EQ(cat("obj"), "@obj\na::5\n[n]c::3\nd::4\n");
  EXPECT_NE(shell("echo nonsense >obj").status, 0);
}

TEST_F(MountText, IsReadByTheUsualPrograms) {
  run("for i in $(seq 4000); do echo \"name$i::value $i\"; done >obj");
  EXPECT_EQ(run("wc -l <obj"), "4001\n");
  EXPECT_EQ(run("tail -n 1 obj; sed -n 1p obj; grep -c ::value obj"), "name4000::value 4000\n@obj\n4000\n");
  EXPECT_EQ(run("cat obj | wc -c"), run("stat -c %s obj"));
  run("cp obj ../copy && cat obj | cmp - ../copy && dd if=obj bs=7 status=none | cmp - ../copy");
  run("cp obj second && sed -i 1d ../copy && tail -n +2 second | cmp - ../copy");
  std::ifstream stream(path("obj"));
  int lines = 0;
  for (std::string line; std::getline(stream, line);) ++lines;
  EXPECT_EQ(lines, 4001);
}

TEST_F(MountText, IsAppendedInThousandsOfWrites) {
  std::string expected = "@obj\n";
  {
    const auto object = open_object(path("obj"), O_WRONLY | O_APPEND | O_CREAT);
    for (int i = 0; i < 5000; ++i) {
      const std::string line = "name" + std::to_string(i) + "::" + std::to_string(i) + "\n";
      write_text(object, line);
      expected += line;
    }
  }
  EXPECT_EQ(cat("obj"), expected);
  const auto object = open_object(path("obj"), O_RDONLY);
  EXPECT_EQ(read_text(object).size(), 32768U) << "as much as was asked for, in one read";
}

TEST_F(MountText, TakesOneWriteOfAnySize) {
  std::string text;
  for (int i = 0; text.size() < 3000000; ++i)
    text += "name" + std::to_string(i) + "::" + std::string(50, 'x') + "\n";
  EXPECT_EQ(write_error("obj", O_WRONLY | O_CREAT, text), 0);
  EXPECT_EQ(cat("obj"), "@obj\n" + text);
  EXPECT_EQ(write_error("wide", O_WRONLY | O_CREAT, "wide::" + std::string(900000, 'y')), 0);
  EXPECT_EQ(cat("wide").size(), 900013U);
}

TEST_F(MountText, TakesALineInPieces) {
  const auto object = open_object(path("obj"), O_WRONLY | O_CREAT);
  write_text(object, "first:");
  write_text(object, ":1\nsecond::");
  EXPECT_EQ(cat("obj"), "@obj\nfirst::1\n");
  write_text(object, "2");
  ASSERT_EQ(::fsync(object.get()), 0);
  EXPECT_EQ(cat("obj"), "@obj\nfirst::1\nsecond::2\n");
}

TEST_F(MountText, TellsOfAMalformedLastLineWhenItIsClosed) {
  EXPECT_EQ(write_error("obj", O_WRONLY | O_CREAT, "a::1\nnonsense"), EINVAL);
  EXPECT_EQ(cat("obj"), "@obj\na::1\n");
}

TEST_F(MountText, HasNoPositions) {
  run("echo a::1 >obj");
  const auto object = open_object(path("obj"), O_RDWR);
  EXPECT_EQ(::lseek(object.get(), 0, SEEK_SET), -1);
  EXPECT_EQ(errno, ESPIPE);
  EXPECT_EQ(read_text(object, 3), "@ob");
  EXPECT_EQ(read_text(object, 3), "j\na");
  EXPECT_EQ(read_text(object), "::1\n");
  EXPECT_EQ(read_text(object), "");
  EXPECT_EQ(read_text(object), "");
  run("echo b::2 >obj");
  EXPECT_EQ(read_text(object), "@obj\na::1\nb::2\n");
}

TEST_F(MountText, KeepsBytesThatAreNoText) {
  const std::string text("nul::a\0b\nbytes::\xff\xfe\n", 19);
  EXPECT_EQ(write_error("caf\xc3\xa9 \xff", O_WRONLY | O_CREAT, text), 0);
  EXPECT_EQ(cat("caf\xc3\xa9 \xff"), "@caf\xc3\xa9 \xff\n" + text);
}

TEST_F(MountText, ShowsADirectorysObjectsTogether) {
  run("mkdir apps; echo one::/apps/one,1.0, >apps/first; echo two::/apps/two,2.0, >apps/second");
  EXPECT_EQ(cat("apps/.all"), "@first\none::/apps/one,1.0,\n@second\ntwo::/apps/two,2.0,\n");
  EXPECT_EQ(run("ls -A apps"), "first\nsecond\n");
  EXPECT_EQ(::unlink(path("apps/.all").c_str()), -1);
  EXPECT_EQ(errno, EPERM);
  run("echo app1::/apps/app1,1.0, >apps/.all; echo app2::/apps/app2,2.0, >>apps/.all");
  EXPECT_EQ(cat("apps/.all"), "@.all\napp1::/apps/app1,1.0,\napp2::/apps/app2,2.0,\n");
  EXPECT_EQ(run("ls -A apps"), ".all\nfirst\nsecond\n");
  run("rm apps/.all");
  EXPECT_EQ(cat("apps/.all"), "@first\none::/apps/one,1.0,\n@second\ntwo::/apps/two,2.0,\n");
}

}  // namespace
}  // namespace harbix::test
