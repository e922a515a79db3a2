#include "fs/path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;

/// One operation that makes a path of a path.
struct PathRow {
  const char *given, *result;
};

TEST(Path, KeepsTheTextAsGiven) {
  for (const char* text : {"", "/", "a//b/", "./a", "a/../b", "\xFF\n"}) {
    EXPECT_EQ(Path(text).text(), text);
    EXPECT_STREQ(Path(std::string(text)).c_str(), text);
    EXPECT_EQ(Path(std::string_view(text)).empty(), *text == '\0');
  }
}

TEST(PathJoin, PutsOneSeparatorBetween) {
  struct JoinRow {
    const char *base, *component, *joined;
  };
  for (const JoinRow& row :
       {JoinRow{"a", "b", "a/b"}, JoinRow{"a/", "b", "a/b"}, JoinRow{"a/", "/b", "a/b"},
        JoinRow{"a", "/b", "a/b"}, JoinRow{"", "b", "/b"}, JoinRow{"", "/b", "/b"}, JoinRow{"/", "b", "/b"},
        JoinRow{"a/", "", "a"}, JoinRow{"a", "", "a"}, JoinRow{"/", "", ""}, JoinRow{"", "", ""},
        JoinRow{"a//", "b", "a//b"}, JoinRow{"a", "//b", "a//b"}, JoinRow{"a", "b/", "a/b/"},
        JoinRow{"./", "/x", "./x"}}) {
    Path path{row.base};
    EXPECT_EQ(row.joined, (path /= row.component).text()) << row.base << " + " << row.component;
    EXPECT_EQ(row.joined, (Path(row.base) / row.component).text()) << row.base << " / " << row.component;
    EXPECT_EQ(row.joined, (Path(row.base) / Path(row.component)).text()) << row.base << " / path";
  }
}

TEST(PathStrip, RemovesEveryLeadingDotSlash) {
  for (const PathRow& row : {PathRow{"./a", "a"}, PathRow{"././a", "a"}, PathRow{"./", ""}, PathRow{".", "."},
                             PathRow{"../a", "../a"}, PathRow{".//a", "/a"}, PathRow{"a/./b", "a/./b"},
                             PathRow{"", ""}, PathRow{"/./a", "/./a"}}) {
    EXPECT_EQ(Path(row.given).strip_leading_dots().text(), row.result) << row.given;
  }
}

TEST(PathFirstComponent, EndsAtTheFirstSeparatorBehindTheBeginning) {
  for (const PathRow& row :
       {PathRow{"", ""}, PathRow{"/a/b", "/a"}, PathRow{"a/b/c", "a"}, PathRow{"a", "a"}, PathRow{"/a", "/a"},
        PathRow{"/", "/"}, PathRow{"//a", "/"}, PathRow{"a/", "a"}}) {
    EXPECT_EQ(Path(row.given).first_component().text(), row.result) << row.given;
  }
}

TEST(PathLexicallyNormal, LeavesOutWhatLeadsNowhereByTheTextAlone) {
  for (const PathRow& row : {PathRow{"", ""},
                             PathRow{"/", "/"},
                             PathRow{".", "."},
                             PathRow{"..", ".."},
                             PathRow{"/..", "/"},
                             PathRow{"/../a", "/a"},
                             PathRow{"/../../a", "/a"},
                             PathRow{"/a/b", "/a/b"},
                             PathRow{"/a/./b", "/a/b"},
                             PathRow{"/a//b", "/a/b"},
                             PathRow{"//a///b", "/a/b"},
                             PathRow{"/a/../b", "/b"},
                             PathRow{"/a/b/../..", "/"},
                             PathRow{"/a/b/../../..", "/"},
                             PathRow{"a/..", "."},
                             PathRow{"a/../..", ".."},
                             PathRow{"../a", "../a"},
                             PathRow{"./a", "a"},
                             PathRow{"/a/", "/a/"},
                             PathRow{"/a/.", "/a/"},
                             PathRow{"/a/b/..", "/a/"},
                             PathRow{"/a/.../b", "/a/.../b"},
                             PathRow{"/a/..b", "/a/..b"},
                             PathRow{"/.a/b.", "/.a/b."},
                             PathRow{"/a b/\xFF/../c", "/a b/c"},
                             PathRow{"/a/b/../../c/./d", "/c/d"}}) {
    EXPECT_EQ(Path(row.given).lexically_normal().text(), row.result) << row.given;
  }
}

TEST(PathLastSeparator, IsFoundFromTheEnd) {
  EXPECT_FALSE(Path("").last_separator());
  EXPECT_FALSE(Path("abc").last_separator());
  EXPECT_EQ(Path("/").last_separator(), 0U);
  EXPECT_EQ(Path("/a/b").last_separator(), 2U);
  EXPECT_EQ(Path("/a/b/").last_separator(), 4U);
}

TEST(PathBasename, FollowsTheLastSeparator) {
  for (const PathRow& row : {PathRow{"a/b/", ""}, PathRow{"a/b", "b"}, PathRow{"/a", "a"}, PathRow{"a", "a"},
                             PathRow{"", ""}, PathRow{"/", ""}}) {
    EXPECT_EQ(Path(row.given).basename().text(), row.result) << row.given;
  }
}

TEST(PathDirname, ComesBeforeTheLastComponent) {
  for (const PathRow& row :
       {PathRow{"/", "/"}, PathRow{"//", "//"}, PathRow{"/a", ""}, PathRow{"a", ""}, PathRow{"a/", ""},
        PathRow{"", ""}, PathRow{"a/b", "a"}, PathRow{"a/b/", "a"}, PathRow{"a/b//", "a"},
        PathRow{"/a/b", "/a"}, PathRow{"/a/b/c/", "/a/b"}, PathRow{"a//b", "a/"}, PathRow{"/a/", ""}}) {
    EXPECT_EQ(Path(row.given).dirname().text(), row.result) << row.given;
  }
}

TEST(PathComponents, GoFromTheRootToTheLeaf) {
  struct ComponentsRow {
    const char* given;
    std::vector<Path> names;
  };
  const std::vector<ComponentsRow> rows{{"/a/b/c/", {Path("a"), Path("b"), Path("c")}},
                                        {"/a/b/c", {Path("a"), Path("b"), Path("c")}},
                                        {"a/b", {Path("a"), Path("b")}},
                                        {"a", {Path("a")}},
                                        {"", {}},
                                        {"/", {}},
                                        {"a//b", {Path("b")}},
                                        {"a//", {}},
                                        {"./a", {Path("."), Path("a")}}};
  for (const ComponentsRow& row : rows) EXPECT_EQ(Path(row.given).components(), row.names) << row.given;
}

TEST(PathRelative, IsTheRestBehindTheBase) {
  struct RelativeRow {
    const char *path, *base, *rest;
  };
  for (const RelativeRow& row :
       {RelativeRow{"apps/x/y", "apps", "x/y"}, RelativeRow{"apps", "apps", ""},
        RelativeRow{"/apps/x/y", "/apps/x", "y"}, RelativeRow{"/apps//x", "/apps", "x"},
        RelativeRow{"/apps/", "/apps", "/"}, RelativeRow{"/apps//", "/apps", "//"},
        RelativeRow{"/appsx/y", "/apps", "x/y"}, RelativeRow{"./apps/x", "./apps", "x"},
        RelativeRow{"a/b", "", "a/b"}, RelativeRow{"/a/b", "", "a/b"}, RelativeRow{"", "", ""},
        RelativeRow{"./a", "./", "a"}, RelativeRow{"apps/x", "apps/", "x"}, RelativeRow{"apps", "./apps", ""},
        RelativeRow{"x", "././x", ""}}) {
    EXPECT_EQ(Path(row.path).relative_to(Path(row.base)).text(), row.rest) << row.path << " to " << row.base;
    EXPECT_TRUE(Path(row.path).is_subdirectory_of(Path(row.base))) << row.path << " to " << row.base;
  }
}

TEST(PathRelative, ThrowsWhereThePathDoesNotBeginWithTheBase) {
  struct Refused {
    const char *path, *base;
  };
  // The first four characters of "./apps/x" are "./ap", which is "ap" without the dots.
  for (const Refused& row : {Refused{"./apps/x", "apps"}, Refused{"apps", "apps/x"}, Refused{"", "a"},
                             Refused{"/apps", "apps"}, Refused{"Apps/x", "apps"}}) {
    EXPECT_FALSE(Path(row.path).is_subdirectory_of(Path(row.base))) << row.path << " to " << row.base;
    try {
      static_cast<void>(Path(row.path).relative_to(Path(row.base)));
      ADD_FAILURE() << row.path << " to " << row.base;
    } catch (const fs::Exception& error) {
      EXPECT_EQ(error.what(),
                std::string("Path '") + row.path + "' is not subdirectory of '" + row.base + "'");
      EXPECT_EQ(error.error(), -1);
    }
  }
}

TEST(PathInside, EndsTheBaseOnAComponentBoundary) {
  struct InsideRow {
    const char *path, *base;
    bool inside;
  };
  for (const InsideRow& row : {InsideRow{"/apps/x", "/apps", true}, InsideRow{"/apps", "/apps", true},
                               InsideRow{"/appsx", "/apps", false}, InsideRow{"/apps/x", "/apps/", true},
                               InsideRow{"/app", "/apps", false}, InsideRow{"/x", "/", true},
                               InsideRow{"apps/x", "/apps", false}, InsideRow{"/apps/", "/apps", true}}) {
    EXPECT_EQ(Path(row.path).is_inside(Path(row.base)), row.inside) << row.path << " in " << row.base;
  }
}

TEST(Path, HasOneCurrentAndOneParent) {
  EXPECT_EQ(Path::current().text(), ".");
  EXPECT_EQ(Path::parent().text(), "..");
  EXPECT_EQ(&Path::current(), &Path::current());
  EXPECT_EQ(&Path::parent(), &Path::parent());
}

TEST(Path, ComparesAndPrintsItsBytes) {
  EXPECT_EQ(Path("a"), Path("a"));
  EXPECT_NE(Path("a"), Path("a/"));
  EXPECT_LT(Path("a"), Path("b"));
  std::ostringstream stream;
  stream << Path("a/\xFF");
  EXPECT_EQ(stream.str(), "a/\xFF");
}

class PathRealpath : public ::testing::Test {
 protected:
  void SetUp() override {
    Tree{dir("data", {file("f")}), link("to_data", "data"), link("dangling", "nowhere"), link("loop", "loop"),
         dir(".hidden")}
        .build(folder_.path());
  }

  /// The text of the error for `given`, whose buffer text is `reached`.
  static std::string message(const std::string& given, const std::string& reached, std::size_t capacity,
                             const std::string& suffix) {
    return "'realpath(" + given + ")' failed due to: '" + reached + "' buf: " + std::to_string(capacity) +
           suffix;
  }

  TemporaryFolder folder_;
};

TEST_F(PathRealpath, ResolvesLinksAndDots) {
  const InsideFolder inside(folder_.path());
  struct ResolveRow {
    const char* given;
    std::string resolved;
  };
  for (const ResolveRow& row :
       {ResolveRow{"data", folder_ / "data"}, ResolveRow{"", folder_.path()}, ResolveRow{".", folder_.path()},
        ResolveRow{"./to_data/../data/f", folder_ / "data/f"}, ResolveRow{"to_data", folder_ / "data"},
        ResolveRow{".hidden", folder_ / ".hidden"}, ResolveRow{"/", "/"}, ResolveRow{"//", "/"}}) {
    EXPECT_EQ(Path(row.given).realpath().text(), row.resolved) << row.given;
  }
  EXPECT_EQ(Path(folder_ / "to_data").realpath().text(), folder_ / "data");
}

TEST_F(PathRealpath, TellsWhatWasAskedWhereItStoppedAndWhy) {
  const InsideFolder inside(folder_.path());
  struct FailRow {
    std::string given, reached, suffix;
    int error;
  };
  const std::string no_entry = " [errno:2 'No such file or directory']";
  const std::string loop = " [errno:40 'Too many levels of symbolic links']";
  const std::string no_directory = " [errno:20 'Not a directory']";
  for (const FailRow& row : {FailRow{folder_ / "missing", folder_ / "missing", no_entry, ENOENT},
                             FailRow{folder_ / "missing/x", folder_ / "missing", no_entry, ENOENT},
                             FailRow{"missing", folder_ / "missing", no_entry, ENOENT},
                             FailRow{"./missing", folder_ / "missing", no_entry, ENOENT},
                             FailRow{folder_ / "loop", "", loop, ELOOP},
                             FailRow{folder_ / "data/f/x", "", no_directory, ENOTDIR}}) {
    try {
      static_cast<void>(Path(row.given).realpath());
      ADD_FAILURE() << row.given;
    } catch (const fs::Exception& error) {
      EXPECT_EQ(error.error(), row.error) << row.given;
      EXPECT_EQ(error.what(), message(row.given, row.reached, PATH_MAX, row.suffix));
    }
  }
}

TEST_F(PathRealpath, TellsTheSmallestBufferWhereTheLimitCannotBeAsked) {
  EXPECT_TRUE(passes_in_child([this] {
    ASSERT_EQ(::chdir((folder_ / "data").c_str()), 0);
    ASSERT_EQ(::unlink("f"), 0);
    ASSERT_EQ(::rmdir((folder_ / "data").c_str()), 0);
    // No limit applies to the empty name, and the folder in its place is gone.
    try {
      static_cast<void>(Path("").realpath());
      ADD_FAILURE();
    } catch (const fs::Exception& error) {
      EXPECT_EQ(error.what(), message("", "", 1024, " [errno:2 'No such file or directory']"));
    }
  }));
}

TEST_F(PathRealpath, ResolvesPathsLongerThanTheSmallestBuffer) {
  // Six times 200 characters: above 1024 and below the system's limit.
  std::string path = folder_.path();
  for (int depth = 0; depth < 6; ++depth) {
    path += "/" + std::string(200, 'd');
    ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
  }
  EXPECT_EQ(Path(path).realpath().text(), path);
}

}  // namespace
}  // namespace harbix::test
