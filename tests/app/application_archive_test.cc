#include "app/application_archive.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/app_device.h"
#include "app/application_package.h"
#include "archive/archive_test_support.h"
#include "archive/metadata_entry.h"
#include "base/flags.h"
#include "support/captured_output.h"
#include "support/tree.h"

namespace {

using test::dir;
using test::file;
using test::link;
using test::Tree;
using updater::RegisteredApplication;
using Texts = std::vector<std::string>;

constexpr char FOLDER[] = "/accounts/1000/appdata/a";

const RegisteredApplication APPLICATION{"a", "a.package", "1.0", "elsewhere"};
const RegisteredApplication STOREFRONT_APPLICATION{"a", "a.package", "1.0", "shopvale"};

std::string archive(const RegisteredApplication& application) {
  const test::Utf8Names names;
  test::Writer writer("/a.tar");
  const test::CapturedOutput errors(STDERR_FILENO);
  harbix::archive_application(writer, application);
  writer.close();
  return errors.text();
}

/// The first package of the archive.
harbix::ApplicationPackage first_package(test::Reader& reader) {
  std::optional<harbix::Package> package =
      harbix::find_manifest(reader, harbix::METADATA_NAME, harbix::OtherEntries::REFUSE);
  if (!package) throw std::runtime_error("no package");
  return harbix::ApplicationPackage(*std::move(package));
}

class ApplicationArchive : public test::AppDevice {};

TEST_F(ApplicationArchive, HoldsTheDataAndTheFoldersOfWhatIsNotKept) {
  EXPECT_TRUE(on_the_device([] {
    Tree{dir("a", {dir("data", {dir("d", {file("f", "text", 0640).owned_by(7, 8)}), link("l", "/etc/passwd")},
                       0770),
                   dir("logs", {file("log")}), dir("tmp", {file("scrap")}), dir("cache", {file("c")}),
                   file("top")})}
        .build(test::APPLICATION_DATA);
    const std::string errors = archive(APPLICATION);
    const std::string name = "/app/a.package/appdata/";
    test::Reader reader("/a.tar");
    const Texts names = reader.names();
    ASSERT_EQ(7U, names.size());
    EXPECT_EQ((Texts{name + ".backup.metadata", name + "data", name + "logs", name + "tmp"}),
              Texts(names.begin(), names.begin() + 4));
    for (const char* item : {"data/d", "data/d/f", "data/l"})
      EXPECT_EQ(1, std::count(names.begin(), names.end(), name + item)) << item;
    EXPECT_EQ(6U, test::count_of(errors, "Archive: " + std::string(FOLDER) + "/")) << errors;
    EXPECT_EQ(1U, test::count_of(errors, "Archive: " + std::string(FOLDER) + "/data/d/f\n")) << errors;
    EXPECT_EQ(0U, test::count_of(errors, "Entry: ")) << errors;
  }));
}

TEST_F(ApplicationArchive, DescribesTheApplicationAndEveryItemInTheArchivesOrder) {
  EXPECT_TRUE(on_the_device([] {
    Tree{dir("a", {dir("data", {file("f", "text", 0640).owned_by(7, 8), file("g\n", "", 0604)}, 0770)})}
        .build(test::APPLICATION_DATA);
    static_cast<void>(archive(APPLICATION));
    test::Reader reader("/a.tar");
    const harbix::ApplicationPackage package = first_package(reader);
    EXPECT_EQ("a", package.app_directory());
    EXPECT_EQ(FOLDER, package.data_directory());
    EXPECT_EQ("", package.extras());
    EXPECT_EQ("/app/a.package/appdata", package.name().text());
    EXPECT_TRUE(package.has_valid_paths(fs::Path(FOLDER)));
    ASSERT_EQ(5U, package.records().size());
    for (const harbix::FileRecord& record : package.records()) {
      const fs::Path path = record.path;
      ASSERT_TRUE(record.status) << path;
      if (!fs::exists(path)) continue;  // "logs" and "tmp"
      const std::optional<harbix::EntryView> entry = reader.next_header();
      ASSERT_TRUE(entry) << path;
      EXPECT_EQ("/app/a.package/appdata/" + path.relative_to(fs::Path(FOLDER)).text(), entry->name()->text());
      EXPECT_EQ(fs::File(path).record().st_mode, record.status->mode) << path;
      EXPECT_EQ(fs::File(path).record().st_uid, record.status->user) << path;
    }
    EXPECT_FALSE(reader.next_header());
  }));
}

TEST_F(ApplicationArchive, HasAPackageWithoutAnyData) {
  EXPECT_TRUE(on_the_device([] {
    const std::string errors = archive(APPLICATION);
    test::Reader reader("/a.tar");
    const harbix::ApplicationPackage package = first_package(reader);
    Texts paths;
    for (const harbix::FileRecord& record : package.records()) paths.push_back(record.path.text());
    EXPECT_EQ(
        (Texts{FOLDER + std::string("/data"), FOLDER + std::string("/logs"), FOLDER + std::string("/tmp")}),
        paths);
    EXPECT_FALSE(reader.next_header());
    std::string expected;
    for (const std::string& path : paths)
      expected.append("Archive: " + path + "\nError opening: ").append(path).append("\n");
    EXPECT_EQ(expected, errors);
  }));
}

TEST_F(ApplicationArchive, TellsOfEachEntryWhenVerbose) {
  EXPECT_TRUE(on_the_device([] {
    Tree{dir("a", {dir("data"), dir("logs"), dir("tmp")})}.build(test::APPLICATION_DATA);
    harbix::verbose = true;
    std::string expected;
    for (const std::string name : {"data", "logs", "tmp"})
      expected.append("Entry: ")
          .append(FOLDER)
          .append("/" + name + "\nArchive: ")
          .append(FOLDER)
          .append("/" + name + "\n");
    EXPECT_EQ(expected, archive(APPLICATION));
  }));
}

TEST_F(ApplicationArchive, OfTheStorefrontNeedsTheInstallersAnswer) {
  EXPECT_TRUE(on_the_device([] {
    test::put("/apps/a/bin/f", "text");
    harbix::verbose = true;
    const test::CapturedOutput errors(STDERR_FILENO);
    const std::string message = test::message_of<std::runtime_error>([] {
      test::Writer writer("/a.tar");
      harbix::archive_application(writer, STOREFRONT_APPLICATION);
    });
    EXPECT_EQ(0U, message.find("Failed to create file '/pps/system/installer/upd/current/")) << message;
    EXPECT_EQ("QUERY EXTRAS a\n", errors.text());
  }));
}

TEST_F(ApplicationArchive, IsNotAFolderThatALinkLeadsTo) {
  EXPECT_TRUE(on_the_device([] {
    test::put("/out/f", "text");
    std::filesystem::create_directory(FOLDER);
    std::filesystem::create_symlink("/out", FOLDER + std::string("/data"));
    static_cast<void>(archive(APPLICATION));
    test::Reader reader("/a.tar");
    EXPECT_EQ((Texts{"/app/a.package/appdata/.backup.metadata", "/app/a.package/appdata/data"}),
              reader.names());
  }));
}

}  // namespace
