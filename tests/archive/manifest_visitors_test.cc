#include "archive/manifest_visitors.h"

#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fs/identity.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::File;
using fs::Path;
using harbix::CreateDtmShareManifest;
using harbix::CreateManifest;

File item(const char* path) { return File(Path(path), {}); }

std::vector<std::string> texts(const std::vector<Path>& paths) {
  std::vector<std::string> result;
  result.reserve(paths.size());
  for (const Path& path : paths) result.push_back(path.text());
  return result;
}

TEST(CreateDtmShareManifest, CollectsEveryPathButTheDots) {
  std::vector<std::string> collected;
  CreateDtmShareManifest visitor(
      [&collected](const File& file) {
        collected.push_back(file.path().text());
        return true;
      },
      [](const Path&, const fs::Exception&) {});
  for (const char* path : {"a", ".", "a/..", "a/.", "..", ".hidden", "a/...", "b"}) visitor(item(path));
  const std::vector<std::string> expected{"a", ".hidden", "a/...", "b"};
  EXPECT_EQ(expected, collected);
  EXPECT_EQ(expected, texts(visitor.paths()));
  EXPECT_EQ(expected, texts(visitor.take_paths()));
}

TEST(CreateDtmShareManifest, KeepsOnlyWhatTheCollectorTakes) {
  CreateDtmShareManifest visitor([](const File& file) { return file.path().text() != "b"; },
                                 [](const Path&, const fs::Exception&) {});
  for (const char* path : {"a", "b", "c"}) visitor(item(path));
  EXPECT_EQ((std::vector<std::string>{"a", "c"}), texts(visitor.paths()));
}

TEST(CreateManifest, HandsTheCollectorOnlyWhatThePredicateAccepts) {
  std::vector<std::string> collected;
  CreateManifest visitor([](const File& file) { return !file.path().text().starts_with("no"); },
                         [&collected](const File& file) {
                           collected.push_back(file.path().text());
                           return true;
                         },
                         [](const Path&, const fs::Exception&) {});
  for (const char* path : {"a", "no", "no/child", "a/.", "b"}) visitor(item(path));
  EXPECT_EQ((std::vector<std::string>{"a", "b"}), collected);
  EXPECT_EQ(collected, texts(visitor.paths()));
}

TEST(CreateManifest, IsCalledThroughTheWalk) {
  const test::TemporaryFolder folder;
  test::Tree{test::dir("a", {test::file("1"), test::dir("no", {test::file("2")})}), test::file("b")}.build(
      folder.path());
  std::size_t taken = 0;
  CreateManifest visitor([](const File& file) { return file.path().basename() != Path("no"); },
                         [&taken](const File&) { return ++taken > 0; },
                         [](const Path&, const fs::Exception&) {});
  fs::TreeVisitor& walker = visitor;
  fs::walk(Path(folder.path()), fs::Descent::DEFERRED, walker);
  // Each item is judged by itself: what is inside a folder that was refused is taken.
  EXPECT_EQ(4U, taken);
}

TEST(CreateManifest, EntersWhatMayBeRead) {
  CreateManifest visitor([](const File&) { return false; }, [](const File&) { return true; },
                         [](const Path&, const fs::Exception&) {});
  struct ::stat record {};
  record.st_mode = S_IFDIR | 0700;
  EXPECT_TRUE(visitor.enters(File(Path("d"), record)));
  const fs::EffectiveUser user(4001);
  EXPECT_FALSE(visitor.enters(File(Path("d"), record)));
}

TEST(CreateManifest, HandsOnWhatCannotBeReached) {
  std::vector<std::string> told;
  CreateManifest visitor([](const File&) { return true; }, [](const File&) { return true; },
                         [&told](const Path& path, const fs::Exception& reason) {
                           told.push_back(path.text() + ": " + reason.what());
                         });
  fs::walk(Path("/nonexistent"), fs::Descent::IMMEDIATE, visitor);
  EXPECT_EQ((std::vector<std::string>{
                "/nonexistent: Directory '/nonexistent' could not be opened. [errno:2 'No such "
                "file or directory']"}),
            told);
}

}  // namespace
