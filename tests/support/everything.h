#pragma once

#include <string>

#include "tests/support/application_device.h"

namespace harbix::test {

/// Gives a device a little of everything that is backed up: files, folders and links with short, long and
/// foreign names.
inline void add_a_little_of_everything(ApplicationDevice& device) {
  for (const std::string folder : {"/Music", "/Photos/2024"}) {
    device.write(SHARED + folder + "/a file", "text");
    device.write(SHARED + folder + "/l\xc3\xa4nger " + std::string(120, 'n'), std::string(2000, 'b'));
  }
  device.link(shared("Music/link"), "a file");
  device.write(std::string(DTM) + "/folder/file", "dtm");
  for (const InstalledApplication& each : {bought_application(), loaded_application()}) {
    device.install(each);
    device.add_file(each, "native/main", "program", 0750);
    device.add_data(each, "data/folder/state", "state");
    device.make_owned_link(each.data() + "/data/link", "folder", each.data_user(), each.group);
  }
  device.make_folder(SETTINGS, 0755);
  for (const std::string name : {"colour", "l\xc3\xa4nge", "sound"})
    device.write(SETTINGS + ("/" + name), "value of " + name);
  const std::string script = SETTINGS_SCRIPTS + std::string("/list");
  device.write(script, "#!/bin/sh\n[ $1 != whitelist ] || echo whitelist /accounts/1000/settings\n", 0755);
  device.own(script, "root", "root");
}

}  // namespace harbix::test
