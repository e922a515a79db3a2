#include "app/application_archive.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/application_package.h"
#include "archive/metadata_entry.h"
#include "base/flags.h"
#include "tests/app/app_device.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using updater::RegisteredApplication;
using Texts = std::vector<std::string>;

constexpr char FOLDER[] = "/accounts/1000/appdata/a";

const RegisteredApplication APPLICATION{"a", "a.package", "1.0", "elsewhere"};
const RegisteredApplication STOREFRONT_APPLICATION{"a", "a.package", "1.0", "shopvale"};

std::string archive(const RegisteredApplication& application) {
  const Utf8Names names;
  Writer writer("/a.tar");
  const CapturedOutput errors(STDERR_FILENO);
  Completeness completeness;
  harbix::archive_application(writer, application, completeness);
  EXPECT_TRUE(completeness.is_complete());
  writer.close();
  return errors.text();
}

/// The first package of the archive.
harbix::ApplicationPackage first_package(Reader& reader) {
  std::optional<harbix::Package> package =
      harbix::find_manifest(reader, harbix::METADATA_NAME, harbix::OtherEntries::REFUSE);
  if (!package) throw std::runtime_error("no package");
  return harbix::ApplicationPackage(*std::move(package));
}

class ApplicationArchive : public AppDevice {};

TEST_F(ApplicationArchive, HoldsTheDataAndTheFoldersOfWhatIsNotKept) {
  EXPECT_TRUE(on_the_device([] {
    Tree{dir("a", {dir("data", {dir("d", {file("f", "text", 0640).owned_by(7, 8)}), link("l", "/etc/passwd")},
                       0770),
                   dir("logs", {file("log")}), dir("tmp", {file("scrap")}), dir("cache", {file("c")}),
                   file("top")})}
        .build(APPLICATION_DATA);
    const std::string errors = archive(APPLICATION);
    const std::string name = "/app/a.package/appdata/";
    Reader reader("/a.tar");
    const Texts names = reader.names();
    ASSERT_EQ(names.size(), 7U);
    EXPECT_EQ(Texts(names.begin(), names.begin() + 4),
              (Texts{name + ".backup.metadata", name + "data", name + "logs", name + "tmp"}));
    for (const char* item : {"data/d", "data/d/f", "data/l"})
      EXPECT_EQ(std::count(names.begin(), names.end(), name + item), 1) << item;
    EXPECT_EQ(count_of(errors, "Archive: " + std::string(FOLDER) + "/"), 6U) << errors;
    EXPECT_EQ(count_of(errors, "Archive: " + std::string(FOLDER) + "/data/d/f\n"), 1U) << errors;
    EXPECT_EQ(count_of(errors, "Entry: "), 0U) << errors;
  }));
}

TEST_F(ApplicationArchive, DescribesTheApplicationAndEveryItemInTheArchivesOrder) {
  EXPECT_TRUE(on_the_device([] {
    Tree{dir("a", {dir("data", {file("f", "text", 0640).owned_by(7, 8), file("g\n", "", 0604)}, 0770)})}
        .build(APPLICATION_DATA);
    static_cast<void>(archive(APPLICATION));
    Reader reader("/a.tar");
    const harbix::ApplicationPackage package = first_package(reader);
    EXPECT_EQ(package.app_directory(), "a");
    EXPECT_EQ(package.data_directory(), FOLDER);
    EXPECT_EQ(package.extras(), "");
    EXPECT_EQ(package.name().text(), "/app/a.package/appdata");
    EXPECT_TRUE(package.has_valid_paths(fs::Path(FOLDER)));
    ASSERT_EQ(package.records().size(), 5U);
    for (const harbix::FileRecord& record : package.records()) {
      const fs::Path path = record.path;
      ASSERT_TRUE(record.status) << path;
      if (!fs::exists(path)) continue;  // "logs" and "tmp"
      const std::optional<harbix::EntryView> entry = reader.next_header();
      ASSERT_TRUE(entry) << path;
      EXPECT_EQ(entry->name()->text(), "/app/a.package/appdata/" + path.relative_to(fs::Path(FOLDER)).text());
      EXPECT_EQ(record.status->mode, fs::File(path).record().st_mode) << path;
      EXPECT_EQ(record.status->user, fs::File(path).record().st_uid) << path;
    }
    EXPECT_FALSE(reader.next_header());
  }));
}

TEST_F(ApplicationArchive, HasAPackageWithoutAnyData) {
  EXPECT_TRUE(on_the_device([] {
    const std::string errors = archive(APPLICATION);
    Reader reader("/a.tar");
    const harbix::ApplicationPackage package = first_package(reader);
    Texts paths;
    for (const harbix::FileRecord& record : package.records()) paths.push_back(record.path.text());
    EXPECT_EQ(paths, (Texts{FOLDER + std::string("/data"), FOLDER + std::string("/logs"),
                            FOLDER + std::string("/tmp")}));
    EXPECT_FALSE(reader.next_header());
    std::string expected;
    for (const std::string& path : paths)
      expected.append("Archive: " + path + "\nError opening: ")
          .append(path)
          .append(": No such file or directory\n");
    EXPECT_EQ(errors, expected);
  }));
}

TEST_F(ApplicationArchive, TellsOfEachEntryWhenVerbose) {
  EXPECT_TRUE(on_the_device([] {
    Tree{dir("a", {dir("data"), dir("logs"), dir("tmp")})}.build(APPLICATION_DATA);
    harbix::verbose = true;
    std::string expected;
    for (const std::string name : {"data", "logs", "tmp"})
      expected.append("Entry: ")
          .append(FOLDER)
          .append("/" + name + "\nArchive: ")
          .append(FOLDER)
          .append("/" + name + "\n");
    EXPECT_EQ(archive(APPLICATION), expected);
  }));
}

TEST_F(ApplicationArchive, OfTheStorefrontNeedsTheInstallersAnswer) {
  EXPECT_TRUE(on_the_device([] {
    put("/apps/a/bin/f", "text");
    harbix::verbose = true;
    const CapturedOutput errors(STDERR_FILENO);
    const std::string message = message_of<std::runtime_error>([] {
      Writer writer("/a.tar");
      Completeness completeness;
      harbix::archive_application(writer, STOREFRONT_APPLICATION, completeness);
    });
    EXPECT_EQ(message.find("Failed to create file '/pps/system/installer/upd/current/"), 0U) << message;
    EXPECT_EQ(errors.text(), "QUERY EXTRAS a\n");
  }));
}

TEST_F(ApplicationArchive, IsNotAFolderThatALinkLeadsTo) {
  EXPECT_TRUE(on_the_device([] {
    put("/out/f", "text");
    std::filesystem::create_directory(FOLDER);
    std::filesystem::create_symlink("/out", FOLDER + std::string("/data"));
    static_cast<void>(archive(APPLICATION));
    Reader reader("/a.tar");
    EXPECT_EQ(reader.names(),
              (Texts{"/app/a.package/appdata/.backup.metadata", "/app/a.package/appdata/data"}));
  }));
}

}  // namespace
}  // namespace harbix::test
