#include <random>
#include <string>

#include <gmock/gmock.h>

#include "tests/device/measured_run.h"
#include "tests/inspect/inspect_run.h"

namespace harbix::test {
namespace {

#ifdef HARBIX_SANITIZED
// The sanitizers take memory of their own, and their time.
const std::string MEMORY_LIMIT;
constexpr std::size_t LARGE_MANIFEST = std::size_t{6} << 20;
#else
const std::string MEMORY_LIMIT = "ulimit -d 65536; ";  // KiB of all that a process can write to
constexpr std::size_t LARGE_MANIFEST = std::size_t{60} << 20;
#endif

using ::testing::AnyOf;

class InspectHostile : public InspectRun {};

TEST_F(InspectHostile, AnyByteChangedEndsInAnAnswer) {
  const std::string whole = music().text();
  const unsigned seed = std::random_device()();
  std::mt19937 random(seed);
  for (int i = 0; i < 60; ++i) {
    std::string bytes = whole;
    bytes[random() % bytes.size()] ^= static_cast<char>(1U << random() % 8);
    const std::string name = archive(bytes);
    for (const char* command : {"list", "verify", "checksums"})
      EXPECT_THAT(inspect({command, name}).status, AnyOf(0, 1, 2)) << command << " seed " << seed;
  }
}

TEST_F(InspectHostile, EveryCutIsDamage) {
  const std::string whole = music().text();
  for (std::size_t size = 0; size < whole.size(); size += 256)
    EXPECT_EQ(inspect({"verify", archive(whole.substr(0, size))}).status, 2) << size;
}

TEST_F(InspectHostile, LargeManifestsTakeLittleMemory) {
  std::string manifest = "App-Directory: a\nData-Directory: /accounts/1000/appdata/a\n";
  for (int i = 0; manifest.size() < LARGE_MANIFEST; ++i)
    manifest += "File: 1 100644 0 0 0 /apps/a/" + std::string(100, 'x') + std::to_string(i) + "\n";
  manifest += "K: " + std::string(std::size_t{8} << 20, 'v') + "\n";
  for (const char* name :
       {"/app/a.pkg/bin/.backup.metadata", "/media/A/.backup.metadata", "/settings/.backup.metadata"}) {
    const std::string tar = archive(TarBuilder().file(name, manifest).text());
    const Outcome outcome = run_program(
        {"sh", "-c",
         MEMORY_LIMIT + "exec '" HARBIX_INSPECT_PROGRAM "' verify --json " + tar + " >/dev/null"});
    EXPECT_EQ(outcome.status, std::string(name).starts_with("/media") ? 0 : 1) << name << outcome.errors;
  }
}

TEST_F(InspectHostile, ManyRecordsTakeLittleMemory) {
  std::string manifest;
  for (int i = 0; i < 4'000'000; ++i) manifest += "File: 0\nA\n";
  const std::string tar =
      archive(TarBuilder().file("/media/A/.backup.metadata", manifest).folder("/media/A").text());
  const Outcome outcome =
      run_program({"sh", "-c", MEMORY_LIMIT + "exec '" HARBIX_INSPECT_PROGRAM "' verify --notes " + tar});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_NE(outcome.output.find("note: /media/A: The manifest has more records than can be held"),
            std::string::npos)
      << outcome.output;
}

#ifndef HARBIX_SANITIZED
TEST_F(InspectHostile, AMillionRecordsTakeTwentyBytesEach) {
  std::string manifest;
  for (int i = 0; i < 1'000'000; ++i)
    manifest += "File: 0\nA/folder " + std::to_string(i / 1000) + '/' + std::to_string(i) + '\n';
  TarBuilder tar;
  tar.file("/media/A/.backup.metadata", manifest + '\n').file("/media/A/folder 999/999999", "");
  const std::string name = archive(tar.text());
  struct ThisMachine {
    static Outcome run(const std::vector<std::string>& command) { return run_program(command); }
  } machine;
  const MeasuredRun run =
      measured_run(machine, {"sh", "-c", "exec '" HARBIX_INSPECT_PROGRAM "' verify " + name + " >/dev/null"});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_LE(run.mebibytes, 32);
}
#endif

TEST_F(InspectHostile, NamesOfManyComponentsTakeLittleTime) {
  std::string name = "/media/A";
  for (int i = 0; i < 30'000; ++i) name += "/x";
  std::string pax = " path=" + name + "\n";
  pax = std::to_string(pax.size() + 5) + pax;
  TarBuilder tar;
  tar.file("/media/A/.backup.metadata", "\n");
  for (int i = 0; i < 20; ++i) tar.add('x', "pax", pax).file("short", "");
  const std::string file = archive(tar.text());
  const Outcome outcome = inspect({"verify", file});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.output.find("The same name stands twice"), std::string::npos);
}

TEST_F(InspectHostile, EachFormatOfTarIsRead) {
  put(folder_ / "in/media/A/.backup.metadata", media_manifest({{"A", 0}, {"A/x", 1}}));
  put(folder_ / "in/media/A/x", "1");
  for (const char* program : {"tar --format=gnu", "tar --format=posix", "tar --format=v7",
                              "bsdtar --format=ustar", "bsdtar --format=cpio", "tar -z", "bsdtar --zstd"}) {
    const std::string name = folder_ / "packed";
    const std::string command = std::string(program) + " -cf " + name + " -C " + (folder_ / "in") +
                                " media/A/.backup.metadata media/A/x";
    ASSERT_EQ(run_program({"sh", "-c", command}).status, 0) << command;
    const Outcome outcome = inspect({"verify", name});
    EXPECT_EQ(outcome.output, name + ": good: 1 packages, 1 items, 1 bytes, 1 notes\n") << command;
    EXPECT_EQ(inspect({"list", name}).output.substr(0, 18), "media media 1 1 0:") << command;
  }
}

}  // namespace
}  // namespace harbix::test
