#include "tests/support/hostile_archives.h"

#include <sys/stat.h>

#include <cstdint>
#include <initializer_list>
#include <random>
#include <utility>

namespace harbix::test::hostile {
namespace {

const std::string DATA = "/accounts/1000/appdata/a";

CraftedPackage named(CraftedPackage package, const std::string& folder) {
  // The empty one stands last, or it would take the next line for its value.
  return package.without("App-Directory")
      .attribute("Data-Directory", "/accounts/1000/appdata/" + folder)
      .attribute("App-Directory", folder);
}

CraftedPackage with_links(CraftedPackage package, const std::string& in) {
  return package.link(in + "out", "/tmp/victim")
      .file(in + "out/file", "evil")
      .file(in + "out/evil", "evil")
      .link(in + "up", "../../../../../tmp/victim")
      .file(in + "up/evil", "evil")
      .link(in + "first", "second")
      .link(in + "second", "/tmp/victim")
      .file(in + "first/evil", "evil")
      .link(in + "direct", "/tmp/victim/file")
      .file(in + "direct", "evil")
      .link(in + "alone", "/tmp/victim")
      .link(in + "folder", "/tmp/victim")
      .folder(in + "folder", 0777)
      .file(in + "last", "last");
}

CraftedPackage with_kinds(CraftedPackage package, const std::string& base, const std::string& name) {
  // Whether the record is honest about it or not.
  for (const mode_t type :
       std::initializer_list<mode_t>{S_IFREG, S_IFCHR, S_IFBLK, S_IFIFO, S_IFSOCK, S_IFDIR, S_IFLNK}) {
    const std::string number = std::to_string(type);
    const auto add = [&](const std::string& kind, char entry_type, const std::string& target = "") {
      std::string item = kind;
      item += number;
      package.record(type | 0666U, base + item).entry(entry_type, name + item, "", 0666, target);
    };
    add("hard", TarBuilder::HARD_LINK, "/tmp/victim/file");
    add("character", TarBuilder::CHARACTER_DEVICE);
    add("block", TarBuilder::BLOCK_DEVICE);
    add("fifo", TarBuilder::FIFO);
    // Records of another kind than their entries.
    if (type != S_IFREG) add("file", TarBuilder::FILE);
    if (type != S_IFDIR) add("folder", TarBuilder::FOLDER);
    if (type != S_IFLNK) add("link", TarBuilder::SYMBOLIC_LINK, "/tmp/victim/file");
  }
  return package;
}

/// One bit is another one, anywhere but in the end mark.
std::string with_flipped_bit(std::string archive, std::mt19937& random) {
  constexpr std::size_t END_MARK = 1024;
  char& byte = archive[random() % (archive.size() - END_MARK)];
  byte = static_cast<char>(byte ^ (1 << (random() % 8)));
  return archive;
}

/// Names the archives of a test.
class Collection {
 public:
  void add(const std::string& what, const std::vector<CraftedPackage>& packages) {
    archives_.push_back({what, archive_of(packages)});
  }
  void add(const std::string& what, const TarBuilder& tar) { archives_.push_back({what, tar.text()}); }
  std::vector<Archive> take() { return std::move(archives_); }

 private:
  std::vector<Archive> archives_;
};

}  // namespace

CraftedPackage binary() { return CraftedPackage::binary("a").attribute("Extras", "source::sideload"); }
CraftedPackage data() { return CraftedPackage::data("a"); }

const std::vector<std::string> APPLICATION_FOLDERS{
    "..",    ".", "", "a/b", "/apps/a", "/", "a/..", "../apps/a", "a/", "//", "../accounts/1000/appdata/a",
    "../etc"};

CraftedPackage binary_in(const std::string& folder) {
  return named(CraftedPackage("/app/a.pkg/bin", "/apps/" + folder), folder).file("evil", "evil");
}
CraftedPackage data_in(const std::string& folder) {
  return named(CraftedPackage("/app/a.pkg/appdata", "/accounts/1000/appdata/" + folder), folder)
      .file("data/evil", "evil");
}

std::vector<CraftedPackage> home_screen_part(const std::string& component) {
  const std::string data_folder = "/accounts/1000/appdata/" + component;
  const auto called = [&](CraftedPackage package) {
    return package.attribute("App-Directory", component).attribute("Data-Directory", data_folder);
  };
  return {called(CraftedPackage("/app/any.pkg/bin", "/apps/" + component)).file("main", "evil"),
          called(CraftedPackage("/app/other.pkg/appdata", data_folder))
              .folder("data")
              .file("data/state", "evil")};
}

const std::vector<std::string> RECORD_ENDS{"/../other/evil",      "//evil", "/./evil", "",     "/", "/..",
                                           "/x/../../other/evil", "/evil/", "bc/evil", "/x//y"};
const std::vector<std::string> RECORD_PATHS{"/etc/evil",
                                            "/apps/other/evil",
                                            "apps/a/evil",
                                            "evil",
                                            "/",
                                            "/accounts/1000/appdata/other/data/evil",
                                            "/tmp/victim/file"};

CraftedPackage binary_with(const std::string& path, const std::string& name) {
  return binary().file("good", "good").record(S_IFREG | 0660U, path, 4).entry(TarBuilder::FILE, name, "evil");
}
CraftedPackage data_with(const std::string& path, const std::string& name) {
  return data()
      .folder("data")
      .file("data/good", "good")
      .record(S_IFREG | 0660U, path, 4)
      .entry(TarBuilder::FILE, name, "evil");
}

const std::vector<std::string> DATA_FOLDERS{"/etc",
                                            "/",
                                            "/accounts/1000/appdata/other",
                                            "/accounts/1000/appdata",
                                            "/accounts/1000/appdata/abc",
                                            "/accounts/1000/appdata/../appdata/a",
                                            "accounts/1000/appdata/a",
                                            "/apps/a",
                                            "/tmp/victim"};

CraftedPackage data_called(const std::string& folder) {
  return CraftedPackage("/app/a.pkg/appdata", folder)
      .attribute("App-Directory", "a")
      .attribute("Data-Directory", folder)
      .file("data/evil", "evil");
}
CraftedPackage binary_with_data_called(const std::string& folder) {
  return binary().attribute("Data-Directory", folder).file("evil", "evil");
}

CraftedPackage data_beside_the_three_folders() {
  return data()
      .folder("data")
      .file("data/a", "1")
      .file("logs/b", "2")
      .file("tmp/c", "3")
      .file("database/d", "4")
      .file("top", "5")
      .folder("other")
      .link("data2", "/etc");
}

std::vector<CraftedPackage> through_own_links() {
  return {with_links(binary(), ""), with_links(data().folder("data"), "data/")};
}

std::vector<CraftedPackage> through_links_that_were_there() {
  return {binary().file("there/evil", "evil").file("there/file", "evil").file("last", "last"),
          data().folder("data").file("data/there/evil", "evil"),
          CraftedPackage::binary("link").file("evil", "evil").file("file", "evil"),
          CraftedPackage::data("link").file("data/evil", "evil"),
          CraftedPackage::binary("file").file("evil", "evil")};
}

std::vector<CraftedPackage> other_kinds() {
  return {with_kinds(binary(), "/apps/a/", "/app/a.pkg/bin/").file("last", "last"),
          with_kinds(data().folder("data"), DATA + "/data/", "/app/a.pkg/appdata/data/")
              .file("data/last", "last")};
}

std::vector<CraftedPackage> set_id_bits() {
  return {binary().file("s", "s", 06777).folder("d", 07777),
          data().folder("data").file("data/s", "s", 07777)};
}

CraftedPackage other_records_names() {
  const std::string base = DATA + "/data/";
  return data()
      .folder("data")
      .record(S_IFREG | 0660U, base + "a", 4)
      .entry(TarBuilder::FILE, "/app/a.pkg/appdata/data/b", "evil")
      .entry(TarBuilder::FILE, "/app/a.pkg/bin/data/a", "evil")
      .entry(TarBuilder::FILE, "/app/other.pkg/appdata/data/a", "evil")
      .entry(TarBuilder::FILE, base + "a", "evil")
      .entry(TarBuilder::FILE, "data/a", "evil")
      .entry(TarBuilder::FILE, "/app/a.pkg/appdata/data/../data/a", "evil")
      .entry(TarBuilder::FILE, "/etc/evil", "evil");
}

const std::vector<std::string> PACKAGE_NAMES{"/app/../bin", "/app/./appdata", "/app/%s%n/bin",
                                             "/app/ÿ/appdata"};

CraftedPackage package_called(const std::string& name) {
  return CraftedPackage(name, "/apps/x")
      .attribute("App-Directory", "../etc")
      .attribute("Data-Directory", "/etc");
}

TarBuilder media_with_dots() {
  return TarBuilder()
      .file("/media/../../../../tmp/evil", "evil")
      .file("/media/M/../../../../tmp/evil", "evil")
      .file("/dtm/../../../../tmp/evil", "evil")
      .file("/dtm../../../../tmp/evil", "evil")
      .file("/media/..", "evil")
      .file("/media//tmp/victim/file", "inside")
      .file("/media/M/last", "last");
}

TarBuilder media_through_own_links() {
  return TarBuilder()
      .link("/media/M/out", "/tmp/victim")
      .file("/media/M/out/evil", "evil")
      .file("/media/M/out/file", "evil")
      .link("/media/M/up", "../../../../tmp/victim")
      .file("/media/M/up/evil", "evil")
      .link("/media/M/a", "b")
      .link("/media/M/b", "/tmp/victim")
      .file("/media/M/a/evil", "evil")
      .link("/dtm/out", "/tmp/victim")
      .file("/dtm/out/file", "evil")
      .file("/dtm/out/evil", "evil")
      .link("/media/top", "/tmp/victim/file")
      .file("/media/top", "evil")
      .link("/dtm/direct", "/tmp/victim/file")
      .file("/dtm/direct", "evil")
      .file("/media/M/last", "last");
}

TarBuilder media_through_links_that_were_there() {
  return TarBuilder()
      .file("/media/TopLink/evil", "evil")
      .file("/dtm/link/evil", "evil")
      .file("/dtm/link/file", "evil")
      .file("/media/M/last", "last");
}

TarBuilder media_of_other_kinds() {
  return TarBuilder()
      .add(TarBuilder::HARD_LINK, "/media/M/hard", "", 0660, "/tmp/victim/file")
      .add(TarBuilder::HARD_LINK, "/dtm/hard", "", 0660, "../../../../tmp/victim/file")
      .add(TarBuilder::CHARACTER_DEVICE, "/media/M/null", "", 0666)
      .add(TarBuilder::BLOCK_DEVICE, "/dtm/disk", "", 0666)
      .add(TarBuilder::FIFO, "/media/M/fifo", "", 0666)
      .file("/media/M/last", "last");
}

TarBuilder media_with_set_id_bits() {
  return TarBuilder().file("/media/M/s", "s", 06777).file("/dtm/s", "s", 06777).folder("/dtm/d/", 07777);
}

TarBuilder media_beyond_the_end() {
  return TarBuilder()
      .file("/media/M/first", "first")
      .add(TarBuilder::FILE, "/media/M/huge", "short", 0660, "", (std::uint64_t{1} << 33) - 1);
}

TarBuilder media_with_a_huge_manifest() {
  return TarBuilder().add(TarBuilder::FILE, "/media/M/.backup.metadata", "x", 0660, "",
                          std::uint64_t{1} << 32);
}

std::string good_application_archive() {
  return archive_of({binary().folder("lib").link("lib/link", "../main").file("main", "1"),
                     data().folder("data").file("data/state", "2")});
}

std::string good_media_archive() {
  return TarBuilder()
      .folder("/media/M/")
      .link("/media/M/link", "first")
      .file("/media/M/first", "1")
      .file("/dtm/second", "2")
      .text();
}

std::vector<Archive> flipped_archives(const std::string& archive, int count) {
  std::mt19937 random(20);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same damage every time
  std::vector<Archive> archives;
  for (int i = 0; i < count; ++i)
    archives.push_back({"round " + std::to_string(i), with_flipped_bit(archive, random)});
  return archives;
}

std::vector<Archive> application_archives() {
  Collection all;
  for (const std::string& folder : APPLICATION_FOLDERS) {
    all.add("binaries in '" + folder + "'", {binary_in(folder)});
    all.add("data in '" + folder + "'", {data_in(folder)});
  }
  for (const std::string component : {"sys.navigator", "sys.systemtray"})
    all.add("home screen " + component, home_screen_part(component));
  for (const std::string& end : RECORD_ENDS) {
    all.add("record of binaries '" + end + "'", {binary_with("/apps/a" + end, "/app/a.pkg/bin" + end)});
    all.add("record of data '" + end + "'", {data_with(DATA + end, "/app/a.pkg/appdata" + end)});
  }
  for (const std::string& path : RECORD_PATHS) {
    all.add("record of binaries elsewhere '" + path + "'", {binary_with(path, "/app/a.pkg/bin/" + path)});
    all.add("record of data elsewhere '" + path + "'", {data_with(path, "/app/a.pkg/appdata/" + path)});
  }
  for (const std::string& folder : DATA_FOLDERS) {
    all.add("data called '" + folder + "'", {data_called(folder)});
    all.add("binaries with data called '" + folder + "'", {binary_with_data_called(folder)});
  }
  all.add("data beside the three folders", {data_beside_the_three_folders()});
  all.add("through own links", through_own_links());
  all.add("through links that were there", through_links_that_were_there());
  all.add("other kinds", other_kinds());
  all.add("set-id bits", set_id_bits());
  all.add("other records' names", {other_records_names()});
  for (const std::string& name : PACKAGE_NAMES)
    all.add("package called '" + name + "'", {package_called(name)});
  return all.take();
}

std::vector<Archive> media_archives() {
  Collection all;
  all.add("dots", media_with_dots());
  all.add("through own links", media_through_own_links());
  all.add("through links that were there", media_through_links_that_were_there());
  all.add("other kinds", media_of_other_kinds());
  all.add("set-id bits", media_with_set_id_bits());
  all.add("beyond the end", media_beyond_the_end());
  all.add("huge manifest", media_with_a_huge_manifest());
  return all.take();
}

}  // namespace harbix::test::hostile
