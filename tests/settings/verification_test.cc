#include "settings/verification.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/settings/settings_device.h"
#include "tests/support/captured_output.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::AllowedSettings;

enum class Verdict { ACCEPTED, REFUSED_SILENTLY, REFUSED_WITH_MESSAGE };

Verdict verdict_of(const AllowedSettings& allowed, const std::string& candidate) {
  const CapturedOutput errors(STDERR_FILENO);
  const bool accepted = harbix::verify_restore_path(allowed, Path(candidate));
  const std::string told = errors.text();
  if (told.empty()) return accepted ? Verdict::ACCEPTED : Verdict::REFUSED_SILENTLY;
  EXPECT_FALSE(accepted) << candidate;
  EXPECT_EQ(told, "Path " + candidate + " failed verification for restore\n");
  return Verdict::REFUSED_WITH_MESSAGE;
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
              row.accepted ? Verdict::ACCEPTED : Verdict::REFUSED_WITH_MESSAGE)
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
  for (const Path& path : allowed.paths) EXPECT_EQ(verdict_of(allowed, path.text()), Verdict::ACCEPTED);
  for (const char* path : {"/pps/o", "/pps/o500", "/pps/o1/", "/pps/o1/x", "/pps", "/pps/", "/pps/O1", "/ppt",
                           "/a", "/zz", "", "/pps/o1\xFF"})
    EXPECT_EQ(verdict_of(allowed, path), Verdict::REFUSED_SILENTLY) << path;
  EXPECT_EQ(verdict_of({}, "/pps/o1"), Verdict::REFUSED_SILENTLY);
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
      Verdict verdict;
    };
    using enum Verdict;
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
        {"/w/listed/other", REFUSED_SILENTLY},
        {"/w/black", REFUSED_SILENTLY},
        {"/w/blacker", REFUSED_SILENTLY},
        {"/w/black/x", REFUSED_SILENTLY},
        {"/w/folder", REFUSED_SILENTLY},
        {"/w/folder/", REFUSED_SILENTLY},
        {"/w/dangling", REFUSED_SILENTLY},
        {"/w/to_folder", REFUSED_SILENTLY},
        {"/w", REFUSED_SILENTLY},
        {"/other", REFUSED_SILENTLY},
        {"/etc/passwd", REFUSED_SILENTLY},
        {"/", REFUSED_SILENTLY},
        {"w/x", REFUSED_SILENTLY},
        {"", REFUSED_SILENTLY},
        // Below "/pps" the list alone counts.
        {"/pps/white", REFUSED_SILENTLY},
        {"/pps/white/x", REFUSED_SILENTLY},
        {"/pps/object", REFUSED_SILENTLY},
        {"/pps/services/unknown/object", REFUSED_SILENTLY},
        {"/pps/services/navigator/wallpaper", REFUSED_SILENTLY},
        {"/pps", REFUSED_SILENTLY},
        {"/pps/../w/x", REFUSED_SILENTLY},
        {"/ppsx/y", REFUSED_SILENTLY},
        // The text is checked last.
        {"/w/x/../y", REFUSED_WITH_MESSAGE},
        {"/w/../etc/missing", REFUSED_WITH_MESSAGE},
        {"/w/./x", REFUSED_WITH_MESSAGE},
        {"/w//x", REFUSED_WITH_MESSAGE},
        {"/w/missing/..", REFUSED_WITH_MESSAGE},
        {"/w/missing/.", REFUSED_WITH_MESSAGE},
        {"/w/folder/..", REFUSED_SILENTLY},
        {"/w/black/../x", REFUSED_SILENTLY},
        {"/other/../w/x", REFUSED_SILENTLY},
    };
    for (const Row& row : rows) EXPECT_EQ(verdict_of(allowed, row.path), row.verdict) << row.path;
  }));
}

TEST_F(UnlistedRestorePath, IsNothingWhereTheWhitelistIsEmpty) {
  EXPECT_TRUE(on_the_device([] {
    for (const char* path : {"/w/x", "/", "", "/etc/passwd"})
      EXPECT_EQ(verdict_of({}, path), Verdict::REFUSED_SILENTLY) << path;
  }));
}

}  // namespace
}  // namespace harbix::test
