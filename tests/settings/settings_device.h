#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/root.h"
#include "tests/support/tree.h"

namespace harbix::test {

/// The fixed folder of the settings scripts.
inline constexpr char SETTINGS_SCRIPTS[] = "/base/scripts/backup_and_restore/settings";

/// A root folder of its own, where "/var/pps" and "/pps" are plain folders, and plain files stand for
/// objects.
class SettingsDevice : public RootTest {
  void set_up_root() const override;
  void leave_root() const override;
};

/// Creates a PPS object: a live one, and the file that it persists in.
void put_object(const std::string& name, const std::string& text = "");

/// Creates an executable settings script: shell commands that find the tag or event in $1.
void put_script(const std::string& name, const std::string& commands);

/// The commands of a script that prints these lists, and writes every other event down in "/events".
[[nodiscard]] std::string naming(const std::vector<std::string>& whitelist,
                                 const std::vector<std::string>& blacklist = {});

/// The events written down so far, a line each; once they are `expected`, or as they are when that has not
/// come in ten seconds.
[[nodiscard]] std::string events_in_the_end(const std::string& expected);

/// The texts, sorted, each followed by a newline.
[[nodiscard]] std::string sorted_lines(std::vector<std::string> texts);

}  // namespace harbix::test
