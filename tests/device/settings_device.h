#pragma once

#include <sys/types.h>

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/device.h"

namespace harbix::test {

/// A device with live PPS objects, one settings script and whitelisted files.
class Settings : public testing::Test {
 protected:
  Settings() {
    add_script("lists",
               "case $1 in\n"
               "whitelist) echo whitelist /accounts/1000/settings; echo whitelist /etc/harbix-setting;;\n"
               "blacklist) echo blacklist /accounts/1000/settings/secret; echo blacklist /pps/hidden;;\n"
               "*) echo $1 >> /tmp/events;;\n"
               "esac\n");
    device_.make_folder("/accounts/1000/settings", 0755);
  }

  void add_script(const std::string& name, const std::string& text, mode_t mode = 0755) {
    device_.write(std::string(SETTINGS_SCRIPTS) + "/" + name, "#!/bin/bash\n" + text, mode);
    device_.own(std::string(SETTINGS_SCRIPTS) + "/" + name, "root", "root");
  }

  static std::string publish(const std::string& object, const std::string& lines) {
    return "mkdir -p $(dirname " + object + "); printf '" + lines + "' >> " + object + "\n";
  }

  std::vector<std::string> names(const std::string& archive = "/tmp/a.tar") {
    const Outcome outcome = device_.shell("tar -Ptf " + archive);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    std::vector<std::string> all;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) all.push_back(line);
    return all;
  }

  std::string object(const std::string& path) { return device_.shell("cat " + path).output; }

  Device device_;
};

}  // namespace harbix::test
