#include "app/selection.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "updater/exception.h"
#include "updater/printed_application.h"

namespace {

using harbix::ApplicationSelection;
using harbix::select_applications;
using updater::RegisteredApplication;

const RegisteredApplication A{"a.id", "a", "1", "s"};
const RegisteredApplication B{"b.id", "b", "2", "s"};
const RegisteredApplication C{"c.id", "c", "3", "s"};
const RegisteredApplication SECOND_A{"a2.id", "a", "4", "t"};
const std::vector<RegisteredApplication> INSTALLED{C, A, B, SECOND_A};

TEST(ApplicationSelection, IsEverythingWithoutNames) {
  const ApplicationSelection selection = select_applications(INSTALLED, {});
  EXPECT_EQ(INSTALLED, selection.applications);
  EXPECT_TRUE(selection.navigator);
  EXPECT_TRUE(selection.system_tray);
}

TEST(ApplicationSelection, IsWhatTheNamesAfterTheKeywordNameInTheOrderOfTheList) {
  struct Row {
    std::vector<std::string> names;
    std::vector<RegisteredApplication> applications;
    bool navigator, system_tray;
  };
  const Row rows[] = {
      {{"app"}, {}, false, false},
      {{"a"}, {}, false, false},
      {{"app", "b"}, {B}, false, false},
      {{"app", "b", "c", "b"}, {C, B}, false, false},
      {{"app", "a"}, {A, SECOND_A}, false, false},
      {{"app", "sys.navigator"}, {}, true, false},
      {{"app", "sys.systemtray"}, {}, false, true},
      {{"app", "sys.systemtray", "b", "sys.navigator"}, {B}, true, true},
  };
  for (const Row& row : rows) {
    const ApplicationSelection selection = select_applications(INSTALLED, row.names);
    EXPECT_EQ(row.applications, selection.applications) << testing::PrintToString(row.names);
    EXPECT_EQ(row.navigator, selection.navigator) << testing::PrintToString(row.names);
    EXPECT_EQ(row.system_tray, selection.system_tray) << testing::PrintToString(row.names);
  }
}

TEST(ApplicationSelection, MustNameWhatIsInstalled) {
  for (const std::string name : {"x", "a.id", "A", "a ", "", "sys.navigatorx"}) {
    const std::vector<std::string> names{"app", "b", name, "y"};
    try {
      static_cast<void>(select_applications(INSTALLED, names));
      ADD_FAILURE() << name;
    } catch (const updater::Exception& error) {
      EXPECT_EQ("Package '" + name + "' not found.", error.what());
    }
  }
}

}  // namespace
