#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "archive/manifest.h"
#include "tests/support/root.h"
#include "tests/support/tar_builder.h"
#include "tests/support/text.h"
#include "tests/support/tree.h"

namespace harbix::test {

/// The id of the user "apps" on the device below.
inline constexpr uid_t APPS_USER = 4321;

inline constexpr char APPLICATION_DATA[] = "/accounts/1000/appdata";

/// A part of the home screen, and the path of what is called `name` in its data.
inline constexpr char COMPONENT_FOLDER[] = "/accounts/1000/appdata/sys.navigator";
inline std::string in_component(const std::string& name) { return COMPONENT_FOLDER + ("/" + name); }

/// A root folder of its own: with the user "apps", who may write in "/apps" and in the folder of the
/// applications' data; with plain files for PPS objects; without an installer.
class AppDevice : public RootTest {
  void set_up_root() const override;
};

/// Publishes the list of what is installed: lines "ID::PACKAGE,VERSION,source::SOURCE".
void put_registered_applications(const std::string& lines);

/// The record of an item, last changed at the second 5. Its size is of no consequence: entries have their
/// own.
[[nodiscard]] meta::Attribute record(mode_t mode, const std::string& path);

/// What a manifest says of an application in the folder `directory`, records apart.
[[nodiscard]] meta::Manifest described(const std::string& package, const std::string& directory);

/// Adds the metadata entry of the package `name` to an archive.
void add_metadata(TarBuilder& archive, const std::string& name, const meta::Manifest& manifest);

}  // namespace harbix::test
