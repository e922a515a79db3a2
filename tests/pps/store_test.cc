#include "device/pps/store.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "device/pps/store_loader.h"
#include "tests/pps/rules.h"
#include "tests/support/folder.h"

namespace pps {
namespace {

namespace files = std::filesystem;
using namespace std::string_literals;  // texts with a NUL inside

/// A running system on one store, which can be ended and started again.
struct Device {
  explicit Device(const std::string& folder, const std::string& passing = {}) : store(folder, passing) {
    load(store, tree, warnings);
  }

  void put(Node& directory, std::string_view name, std::string_view text) {
    Node* node = tree.find(directory, name);
    if (node == nullptr) node = &catalog.make_object(directory, name, new_metadata(0640, 0, 0));
    const OpenId id = publisher.open(*node, {});
    publisher.write(id, text);
    publisher.close(id);
  }

  std::string text(Node& directory, std::string_view name) {
    Node* node = tree.find(directory, name);
    return node == nullptr ? "(none)" : whole_text(*node);
  }
  std::string text(std::string_view name) { return text(tree.root(), name); }

  std::ostringstream warnings;
  Store store;
  Tree tree{new_metadata(0755, 0, 0)};
  Publisher publisher{tree, store, [](ReaderToken, std::string_view) {}};
  Catalog catalog{tree, store, publisher};
};

class StoreRules : public testing::Test {
 protected:
  [[nodiscard]] std::string store() const { return folder_ / "store"; }

  void write_file(const std::string& path, const std::string& text) const {
    files::create_directories(files::path(store() + "/" + path).parent_path());
    std::ofstream(store() + "/" + path) << text;
  }

  [[nodiscard]] std::string read_file(const std::string& path) const {
    std::ifstream file(store() + "/" + path);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /// Every regular file in the store with its text.
  [[nodiscard]] std::map<std::string, std::string> all_files() const {
    std::map<std::string, std::string> found;
    for (const auto& each : files::recursive_directory_iterator(store())) {
      const std::string path = files::relative(each.path(), store());
      if (each.is_regular_file()) found[path] = read_file(path);
    }
    return found;
  }

  harbix::test::TemporaryFolder folder_;
};

using Files = std::map<std::string, std::string>;

TEST_F(StoreRules, KeepsOneFileForEachObject) {
  Device device(store());
  Node& dir = device.catalog.make_directory(device.tree.root(), "dir", new_metadata(0755, 0, 0));
  device.put(device.tree.root(), "obj", "a::1\n[n]b::2\n");
  device.put(dir, "empty", "");
  EXPECT_EQ(all_files(), (Files{{"obj", "@obj\na::1\n"}, {"dir/empty", "@empty\n"}}));
}

TEST_F(StoreRules, ComesBackAtTheNextStart) {
  {
    Device device(store());
    Node& dir = device.catalog.make_directory(device.tree.root(), "dir", new_metadata(02751, 11, 12));
    device.put(dir, "obj", "b::2\na::1\n[n]c::3\n");
    Metadata metadata = new_metadata(0604, 21, 22);
    metadata.accessed = {.tv_sec = 1000, .tv_nsec = 5};
    metadata.modified = {.tv_sec = 2000, .tv_nsec = 6};
    device.catalog.change_metadata(*device.tree.find(dir, "obj"), metadata);
    device.put(dir, ".all", "app::1\n");
  }
  Device device(store());
  EXPECT_EQ(device.warnings.str(), "");
  Node& dir = *device.tree.find(device.tree.root(), "dir");
  EXPECT_EQ(device.text(dir, "obj"), "@obj\nb::2\na::1\n");
  EXPECT_EQ(device.text(dir, ".all"), "@.all\napp::1\n");
  EXPECT_EQ(dir.metadata.mode, 02751U);
  EXPECT_EQ(dir.metadata.uid, 11U);
  EXPECT_EQ(dir.metadata.gid, 12U);
  const Metadata metadata = device.tree.find(dir, "obj")->metadata;
  EXPECT_EQ(metadata.mode, 0604U);
  EXPECT_EQ(metadata.uid, 21U);
  EXPECT_EQ(metadata.gid, 22U);
  EXPECT_EQ(metadata.accessed.tv_sec, 1000);
  EXPECT_EQ(metadata.accessed.tv_nsec, 5);
  EXPECT_EQ(metadata.modified.tv_sec, 2000);
  EXPECT_EQ(metadata.modified.tv_nsec, 6);
}

TEST_F(StoreRules, SavesAtTheFlushAndNotBefore) {
  Device device(store());
  Node& node = device.catalog.make_object(device.tree.root(), "obj", new_metadata(0640, 0, 0));
  const OpenId writer = device.publisher.open(node, {});
  device.publisher.write(writer, "a::1\n");
  EXPECT_EQ(all_files(), Files{});
  device.publisher.flush(writer);
  EXPECT_EQ(read_file("obj"), "@obj\na::1\n");
  device.publisher.write(writer, "a::2\n");
  EXPECT_EQ(read_file("obj"), "@obj\na::1\n");
  EXPECT_EQ(device.catalog.save_all(), 0);
  EXPECT_EQ(read_file("obj"), "@obj\na::2\n");
}

TEST_F(StoreRules, WritesNothingForAReader) {
  Device device(store());
  device.put(device.tree.root(), "obj", "a::1\n");
  write_file("obj", "someone else's text");
  const OpenId reader = device.publisher.open(*device.tree.find(device.tree.root(), "obj"), {});
  device.publisher.close(reader);
  EXPECT_EQ(read_file("obj"), "someone else's text");
}

TEST_F(StoreRules, TakesNamesUpToTheFirstAt) {
  write_file("services/x/obj@y", "@obj\na::1\n");
  write_file("services/x@1/other@y@z", "@other\nb::2\n");
  write_file("services@2/third", "c::3\n");
  Device device(store());
  EXPECT_EQ(device.warnings.str(), "");
  Node& services = *device.tree.find(device.tree.root(), "services");
  Node& x = *device.tree.find(services, "x");
  EXPECT_EQ(device.text(x, "obj"), "@obj\na::1\n");
  EXPECT_EQ(device.text(x, "other"), "@other\nb::2\n");
  EXPECT_EQ(device.text(services, "third"), "@third\nc::3\n");

  device.put(x, "obj", "a::5\n");
  device.put(services, "third", "c::7\n");
  EXPECT_EQ(all_files(), (Files{{"services/x/obj@y", "@obj\na::5\n"},
                                {"services/x@1/other@y@z", "@other\nb::2\n"},
                                {"services@2/third", "@third\nc::7\n"}}));
}

TEST_F(StoreRules, LetsTheLastOfSeveralFilesStandForAnObject) {
  write_file("obj", "@obj\na::1\nold::1\n");
  write_file("obj@a", "@obj\na::2\n");
  write_file("obj@b", "@obj\na::3\n");
  Device device(store());
  EXPECT_EQ(device.text("obj"), "@obj\na::3\n");
  device.put(device.tree.root(), "obj", "a::4\n");
  EXPECT_EQ(all_files(),
            (Files{{"obj", "@obj\na::1\nold::1\n"}, {"obj@a", "@obj\na::2\n"}, {"obj@b", "@obj\na::4\n"}}));
  device.catalog.remove_object(device.tree.root(), "obj");
  EXPECT_EQ(all_files(), Files{});
}

TEST_F(StoreRules, RemovesEveryFolderOfADirectory) {
  write_file("dir/one", "@one\n");
  write_file("dir@2/two", "@two\n");
  Device device(store());
  Node& dir = *device.tree.find(device.tree.root(), "dir");
  device.catalog.remove_object(dir, "one");
  device.catalog.remove_object(dir, "two");
  device.catalog.remove_directory(device.tree.root(), "dir");
  EXPECT_TRUE(files::is_empty(store()));
}

TEST_F(StoreRules, LeavesWhatIsNoObjectAlone) {
  write_file("@lost", "a::1\n");
  write_file("what?", "a::1\n");
  write_file("both/obj", "a::1\n");
  write_file("both@file", "a::1\n");
  files::create_symlink("/etc/passwd", store() + "/link");
  Device device(store());
  EXPECT_EQ(device.warnings.str(),
            "no object can be made of '@lost' of the store\n"
            "no object can be made of 'both@file' of the store\n"
            "no object can be made of 'link' of the store\n"
            "no object can be made of 'what?' of the store\n");
  EXPECT_EQ(device.tree.size(), 3U) << "the root, 'both' and the object in it";
  EXPECT_TRUE(files::exists(store() + "/@lost"));
}

TEST_F(StoreRules, PassesOverLinesThatAreNoStoredAttributes) {
  write_file("obj", "@obj\na::1\nnonsense\n\n[n]b::2\n-a\nc::3");
  Device device(store());
  EXPECT_EQ(device.text("obj"), "@obj\na::1\nc::3\n");
  EXPECT_EQ(device.warnings.str(), "malformed line in 'obj' of the store: 'nonsense'\n");
}

TEST_F(StoreRules, DoesNotShowWhatAKilledSaveLeft) {
  write_file(Store::UNFINISHED, "@obj\na::1\nb::");
  write_file("obj", "@obj\na::0\n");
  Device device(store());
  EXPECT_EQ(device.text("obj"), "@obj\na::0\n");
  EXPECT_EQ(device.warnings.str(), "");
  EXPECT_EQ(all_files(), (Files{{"obj", "@obj\na::0\n"}}));
}

TEST_F(StoreRules, TellsTheWriterWhenItCannotSave) {
  Device device(store());
  Node& dir = device.catalog.make_directory(device.tree.root(), "dir", new_metadata(0755, 0, 0));
  Node& node = device.catalog.make_object(dir, "obj", new_metadata(0640, 0, 0));
  files::remove_all(store() + "/dir");
  const OpenId writer = device.publisher.open(node, {});
  device.publisher.write(writer, "a::1\n");
  EXPECT_EQ(error_of([&] { device.publisher.flush(writer); }), ENOENT);
  EXPECT_TRUE(node.unsaved);
  EXPECT_EQ(device.catalog.save_all(), 1);
  files::create_directory(store() + "/dir");
  EXPECT_EQ(error_of([&] { device.publisher.close(writer); }), 0);
  EXPECT_EQ(read_file("dir/obj"), "@obj\na::1\n");
}

TEST_F(StoreRules, MakesNoDirectoryThatTheStoreCannotHave) {
  Device device(store());
  files::remove_all(store());
  const Metadata any = new_metadata(0755, 0, 0);
  EXPECT_EQ(error_of([&] { device.catalog.make_directory(device.tree.root(), "dir", any); }), ENOENT);
  EXPECT_EQ(device.tree.find(device.tree.root(), "dir"), nullptr);
}

TEST_F(StoreRules, LeavesOneDirectoryOut) {
  const Metadata any = new_metadata(0755, 0, 0);
  {
    Device device(store(), "a/b");
    Node& a = device.catalog.make_directory(device.tree.root(), "a", any);
    Node& b = device.catalog.make_directory(a, "b", any);
    Node& c = device.catalog.make_directory(b, "c", any);
    Node& bb = device.catalog.make_directory(a, "bb", any);
    for (Node* directory : {&a, &b, &c, &bb}) device.put(*directory, "obj", "x::1\n");
    device.put(a, "b.obj", "x::1\n");
    device.catalog.change_metadata(c, new_metadata(0700, 1, 2));
    device.catalog.change_metadata(*device.tree.find(c, "obj"), new_metadata(0600, 1, 2));
    EXPECT_EQ(device.text(c, "obj"), "@obj\nx::1\n");
    EXPECT_EQ(device.catalog.save_all(), 0);
    device.catalog.remove_object(c, "obj");
    device.catalog.remove_directory(b, "c");
  }
  EXPECT_EQ(all_files(),
            (Files{{"a/b.obj", "@b.obj\nx::1\n"}, {"a/bb/obj", "@obj\nx::1\n"}, {"a/obj", "@obj\nx::1\n"}}));
  EXPECT_FALSE(files::exists(store() + "/a/b"));
}

TEST_F(StoreRules, LoadsWhatItWasGivenForTheDirectoryThatItLeavesOut) {
  write_file("a/b/obj", "x::1\n");
  Device device(store(), "a");
  Node& b = *device.tree.find(*device.tree.find(device.tree.root(), "a"), "b");
  device.put(b, "obj", "x::2\n");
  EXPECT_EQ(device.text(b, "obj"), "@obj\nx::2\n");
  EXPECT_EQ(read_file("a/b/obj"), "x::1\n");
  device.catalog.remove_object(b, "obj");
  EXPECT_EQ(all_files(), Files{});
}

TEST_F(StoreRules, NeedsOnlyTheFolderAboveIt) {
  EXPECT_EQ(error_of([&] { Store missing(folder_ / "no/store"); }), ENOENT);
  const Store made(store());
  EXPECT_TRUE(files::is_directory(store()));
}

TEST_F(StoreRules, HoldsBytesOfAnyKind) {
  const std::string odd = "nul::a\0b\nutf\xc3\xa9::\xff\xfe\nlong::"s;
  const std::string text = odd + std::string(100000, 'x') + "\n";
  {
    Device device(store());
    device.put(device.tree.root(), "caf\xc3\xa9 \xff", text);
  }
  Device device(store());
  EXPECT_EQ(device.text("caf\xc3\xa9 \xff"), "@caf\xc3\xa9 \xff\n" + text);
}

}  // namespace
}  // namespace pps
