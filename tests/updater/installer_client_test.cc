#include "updater/installer_client.h"

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

#include "base/flags.h"
#include "fs/exception.h"
#include "tests/support/captured_output.h"
#include "tests/updater/installer_folder.h"

namespace harbix::test {
namespace {

using updater::ActionQuery;
using updater::ActionRegister;
using updater::ActionUninstall;
using updater::ActionUnregister;
using updater::UpdaterAction;

/// An action whose request has been answered with this text.
class Answered : public ActionUninstall {
 public:
  explicit Answered(const std::string& response) : ActionUninstall("a") {
    write_request();
    std::ofstream object(text_file(object_path().text()), std::ios::app);
    object << response << std::flush;
    if (!object) throw std::runtime_error("no response");
  }

  /// The value of an attribute, or "(none)".
  [[nodiscard]] std::string value(const std::string& name) const {
    try {
      return get_attribute(name);
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(std::string(error.what()), "Attribute " + name + " not found");
      return "(none)";
    }
  }
};

/// How many descriptors this process has open, the one that counts them included.
std::ptrdiff_t open_descriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return std::distance(begin(descriptors), end(descriptors));
}

class InstallerResponse : public InstallerFolder {};

TEST_F(InstallerResponse, IsReadIntoItsAttributes) {
  EXPECT_TRUE(on_the_device([] {
    struct Row {
      const char* response;
      std::map<std::string, std::string> values;
    };
    const Row rows[] = {
        {"result::0\n", {{"result", "0"}, {"", "(none)"}, {"resul", "(none)"}}},
        {"a::1\nb::2\nresult::\n", {{"a", "1"}, {"b", "2"}, {"result", ""}}},
        {"actual_gid:n:10001\nresult:b:true\n", {{"actual_gid", "10001"}, {"result", "true"}}},
        {"a::b::c:d\nresult::e:f\n", {{"a", "b::c:d"}, {"result", "e:f"}, {"b", "(none)"}}},
        // The last value of a name counts.
        {"a::1\na::2\na::3\nresult::0\n", {{"a", "3"}}},
        {"a::1\na::\nresult::0\n", {{"a", ""}}},
        // Names of objects, and empty lines, are no attributes.
        {"@object\n\n@a::1\n\nb::2\nresult::0\n", {{"@a", "(none)"}, {"@object", "(none)"}, {"b", "2"}}},
        {"@result::1\nb::2\nresult::0\n", {{"result", "0"}, {"b", "2"}}},
        {" @a::1\nresult::0\n", {{" @a", "1"}}},
        // Noise has no value, and does no harm.
        {"noise\n:\n::x\na:1\n \nb::2\nresult::0\n",
         {{"noise", ""}, {"", "x"}, {"a", ""}, {" ", ""}, {"b", "2"}, {"result", "0"}}},
        {"a::\xFF\xFE\xC3\xA4 \t\r\nresult::0\n", {{"a", "\xFF\xFE\xC3\xA4 \t\r"}}},
        // Nothing is read behind the result.
        {"result::0\na::1\nresult::1\n", {{"result", "0"}, {"a", "(none)"}}},
        {"result\na::1\n", {{"result", ""}, {"a", "(none)"}}},
        // Only that name ends the response.
        {"results::1\nResult::2\n result::3\na::4\nresult::5\n",
         {{"results", "1"}, {"Result", "2"}, {" result", "3"}, {"a", "4"}, {"result", "5"}}},
        // Without a result the end of the stream ends it.
        {"a::1\n", {{"a", "1"}, {"result", "(none)"}}},
        {"a::1", {{"a", "1"}, {"result", "(none)"}}},
        {"result::0", {{"result", "0"}}},
        {"", {{"result", "(none)"}}},
        {"\n\n@object\n", {{"result", "(none)"}}},
    };
    for (const Row& row : rows) {
      Answered action(row.response);
      action.read_response();
      for (const auto& [name, expected] : row.values)
        EXPECT_EQ(action.value(name), expected) << row.response << "attribute " << name;
    }
  }));
}

TEST_F(InstallerResponse, MayHaveALineOfAnyLength) {
  EXPECT_TRUE(on_the_device([] {
    const std::string value(300'000, 'v');
    Answered action("a::" + value + "\nresult::0\n");
    action.read_response();
    EXPECT_EQ(action.value("a"), value);
    EXPECT_EQ(action.value("result"), "0");
  }));
}

TEST_F(InstallerResponse, HasNoAttributesBeforeItIsRead) {
  EXPECT_TRUE(on_the_device([] { EXPECT_EQ(Answered("result::0\n").value("result"), "(none)"); }));
}

TEST_F(InstallerResponse, IsReadThroughTheDescriptorThatStaysOpen) {
  EXPECT_TRUE(on_the_device([] {
    const std::ptrdiff_t before = open_descriptors();
    {
      Answered action("result::0\n");
      action.read_response();
      EXPECT_EQ(open_descriptors(), before + 1);
      EXPECT_NO_THROW(action.write_request());
    }
    EXPECT_EQ(open_descriptors(), before);
  }));
}

TEST_F(InstallerResponse, IsSilentUnlessVerbose) {
  EXPECT_TRUE(on_the_device([] {
    const CapturedOutput errors(STDERR_FILENO);
    Answered("a::1\nresult::0\n").read_response();
    EXPECT_EQ(errors.text(), "");
  }));
}

TEST_F(InstallerResponse, IsToldLineByLineWhenVerbose) {
  EXPECT_TRUE(on_the_device([] {
    harbix::verbose = true;
    const CapturedOutput errors(STDERR_FILENO);
    Answered("@object\n\nnoise\nb:n:2\na::x y:z\nb::3\nresult::0\nc::1\n").read_response();
    EXPECT_EQ(errors.text(),
              "Read line: @object\n"
              "Read line: \n"
              "Read line: noise\n"
              "Attr: noise value: \n"
              "Read line: b:n:2\n"
              "Attr: b value: 2\n"
              "Read line: a::x y:z\n"
              "Attr: a value: x y:z\n"
              "Read line: b::3\n"
              "Attr: b value: 3\n"
              "Read line: result::0\n"
              "Attr: result value: 0\n"
              "Result received\n"
              "a => x y:z\n"
              "b => 3\n"
              "noise => \n"
              "result => 0\n");
  }));
}

TEST_F(InstallerResponse, ThatBreaksOffIsToldWithoutAResultWhenVerbose) {
  EXPECT_TRUE(on_the_device([] {
    harbix::verbose = true;
    const CapturedOutput errors(STDERR_FILENO);
    Answered("a::1").read_response();
    EXPECT_EQ(errors.text(), "Read line: a::1\nAttr: a value: 1\na => 1\n");
  }));
}

/// The text that an action writes into its object.
std::string request_of(UpdaterAction& action) {
  action.write_request();
  return read_file(text_file(action.object_path().text()));
}

std::string request_of(UpdaterAction&& action) { return request_of(action); }

/// What writing a request throws where files may not become larger than this; "" when it throws nothing.
std::string failure_within(rlim_t limit, UpdaterAction& action) {
  const auto limit_files = [](rlim_t size) {
    const struct ::rlimit limits { .rlim_cur = size, .rlim_max = RLIM_INFINITY };
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limits), 0);
  };
  std::string text;
  limit_files(limit);
  try {
    action.write_request();
  } catch (const fs::Exception& error) {
    text = error.what();
  }
  // A report of this test may go to a file.
  limit_files(RLIM_INFINITY);
  return text;
}

class InstallerRequests : public InstallerFolder {};

TEST_F(InstallerRequests, AreTheLinesOfTheirAction) {
  EXPECT_TRUE(on_the_device([] {
    EXPECT_EQ(request_of(ActionRegister("/apps/a", "e", "10001")),
              "action::register\npackage_path::/apps/a\nextras::e\ngid::10001\n");
    EXPECT_EQ(request_of(ActionUnregister("/apps/a")), "action::unregister\npackage_path::/apps/a\n");
    EXPECT_EQ(request_of(ActionQuery("/apps/a")), "action::query\npackage_path::/apps/a\n");
    EXPECT_EQ(request_of(ActionUninstall("a.id")), "action::uninstall\npackage_id::a.id\n");
  }));
}

TEST_F(InstallerRequests, HaveTheirValuesAsTheyAre) {
  EXPECT_TRUE(on_the_device([] {
    EXPECT_EQ(request_of(ActionRegister("a/../b//c:d", "x::y,z:\\\" ,\xFF ", "")),
              "action::register\npackage_path::a/../b//c:d\nextras::x::y,z:\\\" ,\xFF \ngid::\n");
    EXPECT_EQ(request_of(ActionUnregister("./a b/")), "action::unregister\npackage_path::./a b/\n");
    EXPECT_EQ(request_of(ActionUninstall("")), "action::uninstall\npackage_id::\n");
  }));
}

TEST_F(InstallerRequests, AskAboutAnAbsolutePathInNormalForm) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::create_directories("/apps/there");
    std::filesystem::create_symlink("there", "/apps/link");
    ASSERT_EQ(::chdir("/apps"), 0);
    struct Row {
      const char *path, *asked;
    };
    const Row rows[] = {
        {"/apps/there", "/apps/there"},
        {"/apps/./x/..//there", "/apps/there"},
        {"/apps/link", "/apps/there"},
        {"there", "/apps/there"},
        {"./there/../there", "/apps/there"},
        {"/apps/gone", "/apps/gone"},
        {"/apps/./gone/../lost//x", "/apps/lost/x"},
        {"gone", "/apps/gone"},
        {"./gone", "/apps/gone"},
        {"../gone", "/gone"},
    };
    for (const Row& row : rows) {
      EXPECT_EQ(request_of(ActionQuery(row.path)),
                "action::query\npackage_path::" + std::string(row.asked) + "\n")
          << row.path;
    }
  }));
}

TEST_F(InstallerRequests, CreateTheirObjectBeforeAnythingIsWritten) {
  EXPECT_TRUE(on_the_device([] {
    const ActionUninstall action("a");
    EXPECT_EQ(action.object_path().text(), request_name(0));
    EXPECT_EQ(read_file(text_file(action.object_path().text())), "");
  }));
}

TEST_F(InstallerRequests, ThatAreNotTakenWholeFail) {
  EXPECT_TRUE(on_the_device([] {
    ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    ActionUninstall unwritten("a");
    ActionUninstall half_written("a");
    EXPECT_EQ(failure_within(0, unwritten),
              "Failed to write file '" + request_name(0) + "'  [errno:27 'File too large']");
    EXPECT_EQ(failure_within(10, half_written),
              "Failed to write file '" + request_name(1) + "'  [errno:5 'Input/output error']");
  }));
}

TEST_F(InstallerRequests, CannotBeMadeWithoutAnInstaller) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::remove(REQUESTS);
    EXPECT_THROW(ActionRegister("/apps/a", "", ""), fs::Exception);
    EXPECT_THROW(ActionUnregister("/apps/a"), fs::Exception);
    EXPECT_THROW(ActionQuery("/apps/a"), fs::Exception);
    EXPECT_THROW(ActionUninstall("a"), fs::Exception);
  }));
}

}  // namespace
}  // namespace harbix::test
