#include "updater/registered_applications.h"

#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/captured_output.h"
#include "support/private_root.h"
#include "support/recorded_log.h"
#include "support/temporary_folder.h"
#include "support/tree.h"
#include "updater/exception.h"
#include "updater/printed_application.h"

namespace {

using updater::find_application;
using updater::MustExist;
using updater::read_registered_applications;
using updater::REGISTERED_APPLICATIONS;
using updater::RegisteredApplication;

constexpr char FOLDER[] = "/pps/system/installer/registeredapps";

/// What came of reading the list.
struct Read {
  bool success = false;
  std::string applications;  ///< "ID DIR VERSION SOURCE", a line each
  std::string errors;
  std::vector<std::string> log;  ///< "SEVERITY MESSAGE", an item each
};

const std::vector<std::string> FAILURE_LOG{
    "2 ERROR: Failed to open /pps/system/installer/registeredapps/.all"};

Read read() {
  Read result;
  std::vector<RegisteredApplication> applications;
  const test::RecordedLog log;
  const test::CapturedOutput errors(STDERR_FILENO);
  result.success = read_registered_applications(applications);
  result.errors = errors.text();
  result.log = log.messages();
  for (const RegisteredApplication& one : applications)
    result.applications += one.id + " " + one.dir + " " + one.version + " " + one.source + "\n";
  return result;
}

class RegisteredApplicationList : public ::testing::Test {
 protected:
  /// Runs `body` where the folder of the list exists and the list does not.
  [[nodiscard]] ::testing::AssertionResult on_the_device(const std::function<void()>& body) const {
    return test::passes_in_root(root_.path(), [&body] {
      std::filesystem::create_directories(FOLDER);
      body();
    });
  }

 private:
  test::TemporaryFolder root_;
};

TEST_F(RegisteredApplicationList, HasTheObjectsLinesInTheirOrder) {
  EXPECT_TRUE(on_the_device([] {
    struct Row {
      const char *text, *applications, *errors;
    };
    const Row rows[] = {
        {"@.all\nb::b.dir,1.0,source::shopvale\na::a.dir,2.0,x::,source::s\n",
         "b b.dir 1.0 shopvale\na a.dir 2.0 websl\n", ""},
        {"@.all\n", "", ""},
        {"@.all", "", ""},
        {"", "", ""},
        // The first line is the object's name, whatever it says.
        {"a::a.dir,1.0,source::s\nb::b.dir,1.0,source::s\n", "b b.dir 1.0 s\n", ""},
        {"@.all\na::a.dir,1.0,source::s", "a a.dir 1.0 s\n", ""},
        // Lines of the Android runtime, in whatever form; names of objects.
        {"@.all\nsys.android.x::x,1.0,source::s\na::sys.android,1.0,source::s\nsys.android\n"
         "b::b,1.0,source::sys.androidx\n[n]sys.android:\n",
         "", ""},
        {"@.all\nsys.androi::x,1.0,source::s\n", "sys.androi x 1.0 s\n", ""},
        {"@.all\n@a\na::a.dir,1.0,source::s\n@b::b.dir,1.0,source::s\n", "a a.dir 1.0 s\n", ""},
        {"@.all\na::same,1.0,source::s\nb::same,2.0,source::t\na::same,1.0,source::s\n",
         "a same 1.0 s\nb same 2.0 t\na same 1.0 s\n", ""},
        // A line that does not fit costs itself.
        {"@.all\na::a.dir,1.0,source::s\nnoise\n\nb:n:1,2,3\nc::c.dir,1.0,source::s\n",
         "a a.dir 1.0 s\nc c.dir 1.0 s\n",
         "Warning: Malformed PPS attribute line: 'noise'\n"
         "Warning: Invalid PPS attribute entry\n"
         "Warning: Malformed PPS attribute line: 'b:n:1,2,3'\n"},
    };
    for (const Row& row : rows) {
      test::write_file(REGISTERED_APPLICATIONS, row.text);
      const Read result = read();
      EXPECT_TRUE(result.success) << row.text;
      EXPECT_EQ(row.applications, result.applications) << row.text;
      EXPECT_EQ(row.errors, result.errors) << row.text;
    }
  }));
}

TEST_F(RegisteredApplicationList, ThatIsMissingIsAFailure) {
  EXPECT_TRUE(on_the_device([] {
    const Read result = read();
    EXPECT_FALSE(result.success);
    EXPECT_EQ("Failed to open /pps/system/installer/registeredapps/.all\n", result.errors);
    EXPECT_EQ(FAILURE_LOG, result.log);
  }));
}

TEST_F(RegisteredApplicationList, ThatCannotBeReadIsAFailure) {
  EXPECT_TRUE(on_the_device([] {
    // It can be opened, and not read.
    std::filesystem::create_directory(REGISTERED_APPLICATIONS);
    const Read result = read();
    EXPECT_FALSE(result.success);
    EXPECT_EQ("", result.applications);
    EXPECT_EQ("Failed to open /pps/system/installer/registeredapps/.all\n", result.errors);
    EXPECT_EQ(FAILURE_LOG, result.log);
  }));
}

const std::vector<RegisteredApplication> APPLICATIONS{
    {"a", "a.dir", "1", "s"}, {"b", "same", "2", "t"}, {"c", "same", "3", "u"}, {"d", "", "4", "v"}};

TEST(RegisteredApplicationLookup, FindsTheFirstOfThatPackage) {
  for (const MustExist must_exist : {MustExist::NO, MustExist::YES}) {
    EXPECT_EQ(APPLICATIONS[0], find_application(APPLICATIONS, "a.dir", must_exist));
    EXPECT_EQ(APPLICATIONS[1], find_application(APPLICATIONS, "same", must_exist));
    EXPECT_EQ(APPLICATIONS[3], find_application(APPLICATIONS, "", must_exist));
  }
}

TEST(RegisteredApplicationLookup, ComparesTheWholeNameExactly) {
  for (const std::string name : {"a", "A.dir", "a.di", "a.dir ", " a.dir", "a.dir\n", "1", "s"}) {
    EXPECT_EQ(RegisteredApplication{}, find_application(APPLICATIONS, name, MustExist::NO)) << name;
    try {
      static_cast<void>(find_application(APPLICATIONS, name, MustExist::YES));
      ADD_FAILURE() << name;
    } catch (const updater::Exception& error) {
      EXPECT_EQ("Package '" + name + "' not found.", error.what());
    }
  }
}

}  // namespace
