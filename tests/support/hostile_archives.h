#pragma once

#include <string>
#include <vector>

#include "tests/support/crafted_package.h"
#include "tests/support/tar_builder.h"

/// Archives as only an attacker makes them, or damage: of the application "a" with the package "a.pkg", and
/// of media. What must not come of each is said by the tests of the restore.
namespace harbix::test::hostile {

/// Extras that make no storefront application of it: the next restore would uninstall it.
CraftedPackage binary();
CraftedPackage data();

/// What an archive may call the application's folder.
extern const std::vector<std::string> APPLICATION_FOLDERS;
CraftedPackage binary_in(const std::string& folder);
CraftedPackage data_in(const std::string& folder);
/// A part of the home screen that calls itself an application.
std::vector<CraftedPackage> home_screen_part(const std::string& component);

/// What follows the name of the application's folder in the path of a record, and in its entry's name.
extern const std::vector<std::string> RECORD_ENDS;
/// Paths of records that lie elsewhere from the beginning.
extern const std::vector<std::string> RECORD_PATHS;
/// A good file, and one of this path.
CraftedPackage binary_with(const std::string& path, const std::string& name);
CraftedPackage data_with(const std::string& path, const std::string& name);

/// What an archive may call the folder of the application's data.
extern const std::vector<std::string> DATA_FOLDERS;
CraftedPackage data_called(const std::string& folder);
CraftedPackage binary_with_data_called(const std::string& folder);

CraftedPackage data_beside_the_three_folders();
std::vector<CraftedPackage> through_own_links();
/// Links and files that stand in the way of links_that_were_there(): /apps/a/there, /apps/link and
/// /accounts/1000/appdata/a/data/there lead to /tmp/victim, and /apps/file is a file.
std::vector<CraftedPackage> through_links_that_were_there();
/// Hard links, devices and fifos, and records of another kind than their entries.
std::vector<CraftedPackage> other_kinds();
std::vector<CraftedPackage> set_id_bits();
CraftedPackage other_records_names();

extern const std::vector<std::string> PACKAGE_NAMES;
CraftedPackage package_called(const std::string& name);

TarBuilder media_with_dots();
TarBuilder media_through_own_links();
/// Where TopLink of the share and "link" of the dtm folder lead to /tmp/victim.
TarBuilder media_through_links_that_were_there();
TarBuilder media_of_other_kinds();
TarBuilder media_with_set_id_bits();
TarBuilder media_beyond_the_end();
TarBuilder media_with_a_huge_manifest();

std::string good_application_archive();
std::string good_media_archive();

/// For tests that hold of every one of them.
struct Archive {
  std::string what;
  std::string bytes;
};
std::vector<Archive> application_archives();
std::vector<Archive> media_archives();
/// The same damage every time: in each, one bit is another one, anywhere but in the end mark.
std::vector<Archive> flipped_archives(const std::string& archive, int count);

}  // namespace harbix::test::hostile
