#include "archive/package_name.h"

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

TEST(PackageName, BeginsAPackageOnlyWhereAWriterBeginsOne) {
  struct Row {
    const char* name;
    bool begins;
  };
  for (const Row& row : {Row{"/app/NAME/bin/.backup.metadata", true},
                         Row{"/app/NAME/appdata/.backup.metadata", true},
                         Row{"/app/NAME/pps/.backup.metadata", true},
                         Row{"/media/NAME/.backup.metadata", true},
                         Row{"/dtm/NAME/.backup.metadata", true},
                         Row{"/settings/.backup.metadata", true},
                         Row{"/app/NAME/.backup.metadata", false},
                         Row{"/app/NAME/bin/x/.backup.metadata", false},
                         Row{"/app/NAME/appdata/data/.backup.metadata", false},
                         Row{"/app/NAME/other/.backup.metadata", false},
                         Row{"/app//bin/.backup.metadata", false},
                         Row{"/media/.backup.metadata", false},
                         Row{"/media//.backup.metadata", false},
                         Row{"/media/NAME/x/.backup.metadata", false},
                         Row{"/dtm/.backup.metadata", false},
                         Row{"/dtmx/NAME/.backup.metadata", false},
                         Row{"/settings/x/.backup.metadata", false},
                         Row{"/settings//.backup.metadata", false},
                         Row{"/settingsx/.backup.metadata", false},
                         Row{"settings/.backup.metadata", false},
                         Row{"/settings/.Backup.metadata", false},
                         Row{"/settings/.backup.metadatax", false},
                         Row{"/settings/.backup.metadata/", false},
                         Row{"/other/NAME/.backup.metadata", false},
                         Row{"/settings", false},
                         Row{"/", false},
                         Row{"", false}}) {
    EXPECT_EQ(harbix::begins_package(row.name), row.begins) << row.name;
  }
}

TEST(PackageName, OfAnEntryGetsBackTheSeparatorThatARepackingTarTookAway) {
  struct Row {
    const char *stored, *rooted, *part;
  };
  for (const Row& row :
       {Row{"/media/a", "/media/a", "/media"}, Row{"media/a", "/media/a", "/media"},
        Row{"./media/a", "/media/a", "/media"}, Row{"././media/a", "/media/a", "/media"},
        Row{"app/a", "/app/a", "/app"}, Row{"dtm/a", "/dtm/a", "/dtm"},
        Row{"settings/a", "/settings/a", "/settings"}, Row{"media", "/media", "/media"},
        Row{"mediax/a", "mediax/a", ""}, Row{"../media/a", "../media/a", ""}, Row{"in/media", "in/media", ""},
        Row{"//media/a", "//media/a", ""}, Row{"./in", "./in", ""}, Row{"", "", ""}, Row{"/", "/", ""}}) {
    EXPECT_EQ(harbix::rooted_name(row.stored), row.rooted);
    EXPECT_EQ(harbix::part_of(row.stored), row.part) << row.stored;
  }
}

}  // namespace
}  // namespace harbix::test
