#include "settings/verification.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>

#include "tests/settings/settings_device.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::AllowedSettings;
using harbix::Refusal;

constexpr std::optional<Refusal> ACCEPTED;

std::optional<Refusal> verdict_of(const AllowedSettings& allowed, const std::string& candidate) {
  return refusal_of_path(allowed, Path(candidate), exists_as_folder_or_link);
}

/// A device that backs up this very path.
AllowedSettings listing(const std::string& path) {
  return {.paths = {Path(path)}, .whitelist = {}, .blacklist = {}};
}

TEST(RestorePathText, IsCheckedForTricks) {
  struct Row {
    const char* path;
    bool accepted;
  };
  const Row rows[] = {
      {"/pps/services/x", true},
      {"/abc", true},
      {"/ab/", true},
      {"/a b", true},
      {"/a:b/\xFF", true},
      {"abc", true},
      // The beginning.
      {"./abc", false},
      {"../abc", false},
      {".../abc", true},
      {".abc", true},
      {"..abc", true},
      // The end, which is looked for at the first occurrence only.
      {"/abc/..", false},
      {"/abc/.", false},
      {"/..", false},
      {"/abc/...", true},
      {"/abc/..x", true},
      {"/abc/.x", true},
      {"/abc..", true},
      {"/abc.", true},
      {"/..x/..", true},
      {"/.x/.", true},
      {"/.x/..", false},
      {"/.x/abc/..", false},
      {"/..x/abc/.", true},
      {"/abc/.x/.", true},
      {"/abc/..x/..", true},
      // Numbers of 32 bits: what is not found stands where a text too short would end.
      {"/a", false},
      {"ab", false},
      {"/.", false},
      {"..", false},
      {"./", false},
      {"/", false},
      {"a", false},
      {".", false},
      {"", true},
      // The middle.
      {"/a/./b", false},
      {"/a/../b", false},
      {"/./abc", false},
      {"/../abc", false},
      {"/.x/./b", false},
      {"/..x/../b", false},
      {"/a/./", false},
      {"/a/../", false},
      {"/a/.../b", true},
      {"/a/.b/c", true},
      {"/a/b./c", true},
      {"/a/..b/c", true},
      {"/a/b../c", true},
      {"//abc", false},
      {"/a//b", false},
      {"/abc//", false},
      {"/a\n/./b", false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(verdict_of(listing(row.path), row.path),
              row.accepted ? ACCEPTED : std::optional(Refusal::TRICKS))
        << "'" << row.path << "'";
  }
}

TEST(RestorePathList, IsSearchedInItsOrder) {
  AllowedSettings allowed;
  for (int i = 0; i < 500; ++i) {
    allowed.paths.emplace_back("/pps/o" + std::to_string(i));
    allowed.paths.emplace_back("/pps/o" + std::to_string(i));
  }
  allowed.paths.emplace_back("/pps/\xFF");
  std::ranges::sort(allowed.paths, {}, &Path::text);
  for (const Path& path : allowed.paths) EXPECT_EQ(verdict_of(allowed, path.text()), ACCEPTED);
  for (const char* path : {"/pps/o", "/pps/o500", "/pps/o1/", "/pps/o1/x", "/pps", "/pps/", "/pps/O1", "/ppt",
                           "/a", "/zz", "", "/pps/o1\xFF"})
    EXPECT_EQ(verdict_of(allowed, path), Refusal::NO_SETTING) << path;
  EXPECT_EQ(verdict_of({}, "/pps/o1"), Refusal::NO_SETTING);
}

class UnlistedRestorePath : public SettingsDevice {};

TEST_F(UnlistedRestorePath, IsAcceptedOnlyWhereTheScriptsSayAndNothingStandsInItsWay) {
  EXPECT_TRUE(on_the_device([] {
    put("/w/file");
    put("/w/folder/x");
    put("/pps/object");
    std::filesystem::create_symlink("file", "/w/link");
    std::filesystem::create_symlink("nowhere", "/w/dangling");
    std::filesystem::create_symlink("folder", "/w/to_folder");
    const AllowedSettings allowed{.paths = {Path("/w/link"), Path("/w/listed/black")},
                                  .whitelist = {Path("/w"), Path("/single"), Path("/pps/white")},
                                  .blacklist = {Path("/w/black"), Path("/w/listed")}};
    struct Row {
      const char* path;
      std::optional<Refusal> verdict;
    };
    const Row rows[] = {
        {"/w/missing", ACCEPTED},
        {"/w/missing/deep", ACCEPTED},
        {"/w/file", ACCEPTED},
        {"/w/file/below", ACCEPTED},
        {"/w/folder/x", ACCEPTED},
        {"/w/to_folder/x", ACCEPTED},
        {"/wx", ACCEPTED},
        {"/single", ACCEPTED},
        {"/single/below", ACCEPTED},
        {"/singleton", ACCEPTED},
        // Listed: neither the blacklist nor what stands there matters.
        {"/w/link", ACCEPTED},
        {"/w/listed/black", ACCEPTED},
        {"/w/listed/other", Refusal::NO_SETTING},
        {"/w/black", Refusal::NO_SETTING},
        {"/w/blacker", Refusal::NO_SETTING},
        {"/w/black/x", Refusal::NO_SETTING},
        {"/w/folder", Refusal::NO_SETTING},
        {"/w/folder/", Refusal::NO_SETTING},
        {"/w/dangling", Refusal::NO_SETTING},
        {"/w/to_folder", Refusal::NO_SETTING},
        {"/w", Refusal::NO_SETTING},
        {"/other", Refusal::NO_SETTING},
        {"/etc/passwd", Refusal::NO_SETTING},
        {"/", Refusal::NO_SETTING},
        {"w/x", Refusal::NO_SETTING},
        {"", Refusal::NO_SETTING},
        // Below "/pps" the list alone counts.
        {"/pps/white", Refusal::NO_SETTING},
        {"/pps/white/x", Refusal::NO_SETTING},
        {"/pps/object", Refusal::NO_SETTING},
        {"/pps/services/unknown/object", Refusal::NO_SETTING},
        {"/pps/services/navigator/wallpaper", Refusal::NO_SETTING},
        {"/pps", Refusal::NO_SETTING},
        {"/pps/../w/x", Refusal::NO_SETTING},
        {"/ppsx/y", Refusal::NO_SETTING},
        // The text is checked last.
        {"/w/x/../y", Refusal::TRICKS},
        {"/w/../etc/missing", Refusal::TRICKS},
        {"/w/./x", Refusal::TRICKS},
        {"/w//x", Refusal::TRICKS},
        {"/w/missing/..", Refusal::TRICKS},
        {"/w/missing/.", Refusal::TRICKS},
        {"/w/folder/..", Refusal::NO_SETTING},
        {"/w/black/../x", Refusal::NO_SETTING},
        {"/other/../w/x", Refusal::NO_SETTING},
    };
    for (const Row& row : rows) EXPECT_EQ(verdict_of(allowed, row.path), row.verdict) << row.path;
  }));
}

TEST_F(UnlistedRestorePath, IsNothingWhereTheWhitelistIsEmpty) {
  EXPECT_TRUE(on_the_device([] {
    for (const char* path : {"/w/x", "/", "", "/etc/passwd"})
      EXPECT_EQ(verdict_of({}, path), Refusal::NO_SETTING) << path;
  }));
}

}  // namespace
}  // namespace harbix::test
