#pragma once

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/inspect/plan_run.h"
#include "tests/inspect/schema.h"
#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {

/// Everything that a plan could change: files with their contents, owners and times; objects and the
/// installer's list. The sample's settings scripts note in /var/log when they are asked for their lists.
inline constexpr char PICTURE[] = R"(
picture() {
  find /accounts /apps /base /etc /root /var -path /var/log -prune -o -printf '%p %y %m %U %G %s %T@ %l\n' | sort
  find /accounts /apps /base /etc /root /var -path /var/log -prune -o -type f -print0 | sort -z | xargs -0 -r md5sum
  find /pps -printf '%p %y %m %U %G\n' | sort
  find /pps -type f -print0 | sort -z | xargs -0 cat
}
)";

/// Plans on a device, and restores.
class Plan : public ::testing::Test {
 protected:
  /// What a plan says, of which nothing may stay on the device.
  template <typename DeviceType>
  Foreseen plan(DeviceType& device, const std::string& keywords) {
    const std::string picture = takes_pictures_ ? PICTURE : "picture() { :; }\n";
    const Outcome outcome = device.shell(
        picture + "picture > /tmp/before; harbix-inspect plan --json /tmp/a.tar " + keywords +
        "; status=$?; picture > /tmp/after; diff /tmp/before /tmp/after >&2 || exit 99; exit $status");
    EXPECT_LE(outcome.status, 1) << outcome.errors;
    EXPECT_EQ(schema_.faults_of(outcome.output), "");
    Foreseen all = foreseen(outcome.output);
    EXPECT_EQ(all.status, outcome.status);
    return all;
  }

  template <typename DeviceType>
  std::string restore(DeviceType& device, const std::string& keywords) {
    const Outcome outcome = device.shell("harbix -v -r -f /tmp/a.tar " + keywords);
    status_ = outcome.status;
    return outcome.errors;
  }

  /// A restore agrees with the plan of it on every package, and on every item.
  template <typename DeviceType>
  Foreseen expect_agreement(DeviceType& device, const std::string& keywords) {
    std::string operand = keywords;
    std::ranges::replace(operand, ' ', '_');
    const Foreseen all = plan(device, keywords);
    const std::string log = restore(device, operand);
    EXPECT_TRUE(status_ == 0 || all.status == 1);
    std::set<std::string> found;
    if (keywords.find("app") != std::string::npos) {
      const Happened happened = happened_to_applications(lines_of_keyword(log, "app"));
      for (const auto& [name, fate] : happened.fates) {
        const bool comes_back = all.fates.contains(name) && all.fates.at(name) == "restored";
        EXPECT_EQ(comes_back, fate == "restored") << name;
      }
      for (const std::string& path : happened.left_out) {
        // A folder of the navigator that is there is as good as one that comes back.
        const bool is_there = path.starts_with(NAVIGATOR_DATA) && !all.left_out.contains(path) &&
                              std::filesystem::is_directory(device.outside(path));
        if (!is_there) found.insert(path);
      }
      // Items that had vanished before the backup miss nothing.
      for (const std::string& path : happened.without_entry) {
        if (all.left_out.contains(path)) found.insert(path);
      }
    }
    if (keywords.find("media") != std::string::npos) add_media(device, all, log, found);
    if (keywords.find("settings") != std::string::npos) add_settings(log, found);
    EXPECT_EQ(difference_of(first_lines(all.left_out), found), "");
    return all;
  }

  /// As the restore's own lines show names with newlines.
  static std::set<std::string> first_lines(const std::set<std::string>& names) {
    std::set<std::string> lines;
    for (const std::string& name : names) lines.insert(name.substr(0, name.find('\n')));
    return lines;
  }

  static std::string difference_of(const std::set<std::string>& planned, const std::set<std::string>& found) {
    std::string text;
    for (const std::string& name : planned) {
      if (!found.contains(name)) text += "planned to be left out, and is there: " + name + "\n";
    }
    for (const std::string& name : found) {
      if (!planned.contains(name)) text += "left out without a plan: " + name + "\n";
    }
    return text;
  }

  template <typename DeviceType>
  static void add_media(const DeviceType& device, const Foreseen& all, const std::string& log,
                        std::set<std::string>& found) {
    for (const std::string& line : lines_of_keyword(log, "media")) {
      if (const std::string name = behind(line, "Skipping ./"); !name.empty()) {
        // A folder that is there is as good as one that comes back.
        // The line does not say which of the two places it is about.
        const std::string in_dtm = std::filesystem::path(DTM + ("/" + name)).lexically_normal();
        const bool is_dtm = name.starts_with("D/") || all.left_out.contains(in_dtm);
        const std::string path =
            is_dtm ? in_dtm : std::filesystem::path(shared(name)).lexically_normal().string();
        if (all.left_out.contains(path) || !std::filesystem::is_directory(device.outside(path)))
          found.insert(path);
      } else if (line.starts_with("Warning: /accounts/")) {
        found.insert(path_before_reason(behind(line, "Warning: ")));
      }
    }
  }

  static void add_settings(const std::string& log, std::set<std::string>& found) {
    for (const std::string& line : lines_of_keyword(log, "settings")) {
      if (const std::string name = behind(line, "Skip: /settings"); !name.empty()) found.insert(name);
      if (const std::string path = behind(line, "Warning: /"); !path.empty())
        found.insert(path_before_reason("/" + path));
      if (std::string name = behind(line, "WARNING: File "); !name.empty()) {
        name.resize(name.find(" could not be restored"));
        found.insert(name.starts_with("/settings/") ? behind(name, "/settings") : name);
      }
    }
  }

  JsonSchema schema_{HARBIX_INSPECT_SCHEMA};
  int status_ = -1;             ///< of the last restore
  bool takes_pictures_ = true;  ///< to see that a plan changes nothing: they take the most time
};

/// Crafted archives, on a device with applications, media, objects and settings.
class PlanOfCrafted : public Plan {
 protected:
  PlanOfCrafted() {
    for (const InstalledApplication& each : {a_, bought_, built_in_}) {
      device_.install(each);
      device_.add_file(each, "main", "old");
      device_.add_data(each, "data/state", "old");
    }
    device_.write("/tmp/victim/file", "untouched");
    device_.write(shared("Old/photo"), "old");
    device_.link(shared("Old/out"), "/tmp/victim");
    device_.write(shared(".hidden/photo"), "old");
    device_.write(shared("Kept/protected"), "old", 0600);
    device_.own(shared("Kept/protected"), "media", "protected_media");
    device_.write(shared("Kept/locked/photo"), "old");
    device_.own(shared("Kept/locked"), "root", "root");
    const std::string script = std::string(SETTINGS_SCRIPTS) + "/lists";
    device_.write(script, "#!/bin/sh\n[ $1 = whitelist ] && echo whitelist /accounts/1000/settings\nexit 0\n",
                  0755);
    device_.own(script, "root", "root");
    device_.make_folder("/accounts/1000/settings/folder", 0755);
    device_.write("/accounts/1000/settings/there", "old");
    device_.link("/accounts/1000/settings/link", "/tmp/victim");
  }

  Foreseen expect_agreement_on(const std::string& archive, const std::string& keywords) {
    device_.write("/tmp/a.tar", archive);
    return expect_agreement(device_, keywords);
  }
  Foreseen expect_agreement_on(const std::vector<CraftedPackage>& packages) {
    return expect_agreement_on(archive_of(packages), "app");
  }

  /// Not bought: the next restore leaves it installed.
  static CraftedPackage binary(const std::string& id = "a") {
    return CraftedPackage::binary(id).attribute("Extras", "source::sideload");
  }
  static CraftedPackage data(const std::string& id = "a") { return CraftedPackage::data(id); }

  template <typename Add>
  static void add_hostile(const Add& add) {
    add(TarBuilder::HARD_LINK, "hard", "/tmp/victim/file");
    add(TarBuilder::CHARACTER_DEVICE, "device", "");
    add(TarBuilder::FIFO, "fifo", "");
    add(TarBuilder::SYMBOLIC_LINK, "out", "/tmp/victim");
    add(TarBuilder::FILE, "out/evil", "");
    add(TarBuilder::FILE, "file", "");
    add(TarBuilder::FILE, "file/below", "");
    add(TarBuilder::FOLDER, "folder", "");
    add(TarBuilder::FILE, "folder/inside", "");
    add(TarBuilder::FILE, "folder", "");
    add(TarBuilder::FILE, "file", "");
    add(TarBuilder::FILE, "up/../../../../tmp/evil", "");
    add(TarBuilder::FILE, "deep/er/last", "");
    add(TarBuilder::FILE, std::string(60, 'n') + "/last", "");
  }

  ApplicationDevice device_;
  InstalledApplication a_{.id = "a", .package = "a.pkg", .group = 10200, .extras = "source::sideload"};
  InstalledApplication bought_ = bought_application();
  InstalledApplication built_in_ = built_in_application();
};

}  // namespace harbix::test
