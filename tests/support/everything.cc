#include "tests/support/everything.h"

#include <filesystem>
#include <stdexcept>
#include <string>

namespace harbix::test {
namespace {

const std::string LONG_NAME = "l\xc3\xa4nger " + std::string(120, 'n');

/// A file without a byte on the disk.
void add_hole(ApplicationDevice& device, const std::string& path) {
  constexpr std::uintmax_t SIZE = std::uintmax_t{16} << 10;
  device.write(path, "");
  std::filesystem::resize_file(device.outside(path), SIZE);
}

void add_media(ApplicationDevice& device) {
  for (const std::string folder : {"/Music", "/Photos/2024"}) {
    device.write(SHARED + folder + "/a file", "text");
    device.write(SHARED + folder + "/" + LONG_NAME, std::string(2000, 'b'));
  }
  device.link(shared("Music/link"), "a file");
  device.write(shared("Music/empty"), "");
  device.make_folder(shared("Photos/nothing"));
  add_hole(device, shared("Photos/hole"));
  device.write(std::string(DTM) + "/folder/file", "dtm");
  device.write(std::string(DTM) + "/file", "dtm");
}

void add_applications(ApplicationDevice& device) {
  for (const InstalledApplication& each : {bought_application(), loaded_application()}) {
    device.install(each);
    device.add_file(each, "native/main", "program", 0750);
    device.add_data(each, "data/folder/state", "state");
    device.make_owned_link(each.data() + "/data/link", "folder", each.data_user(), each.group);
  }
  const InstalledApplication bought = bought_application();
  device.add_data(bought, "data/empty", "");
  device.add_data(bought, "data/" + LONG_NAME, "state");
  add_hole(device, bought.data() + "/data/hole");
}

void add_home_screen(ApplicationDevice& device) {
  const uid_t user = device.user("apps");
  for (const std::string file : {"sys.navigator/data/state", "sys.systemtray/data/ClockServices.sqlite"}) {
    const std::filesystem::path path = std::filesystem::path(APPLICATION_DATA) / file;
    device.make_owned_folder(path.parent_path(), 0770, user, 0);
    device.write_owned(path, "state", 0600, user, 0);
  }
}

void add_settings(ApplicationDevice& device) {
  device.make_folder(SETTINGS, 0755);
  const std::string folder = SETTINGS + std::string("/");
  for (const std::string name : {"colour", "l\xc3\xa4nge", "sound"})
    device.write(folder + name, "value of " + name);
  device.write(folder + "folder/" + LONG_NAME, "1");
  device.write(folder + "empty", "");
  device.link(folder + "link", "colour");
  add_hole(device, folder + "hole");
  const std::string script = SETTINGS_SCRIPTS + std::string("/list");
  device.write(script, "#!/bin/sh\n[ $1 != whitelist ] || echo whitelist /accounts/1000/settings\n", 0755);
  device.own(script, "root", "root");
}

/// Of the navigator, and of a service.
void publish_objects(ApplicationDevice& device) {
  const Outcome outcome = device.shell(
      "for object in system/navigator/applications/uriapps services/display/mode; do\n"
      "  mkdir -p $(dirname /pps/$object) && printf 'brightness:n:70\\nname::mode\\n' > /pps/$object || "
      "exit\n"
      "done");
  if (outcome.status != 0) throw std::runtime_error("cannot publish objects: " + outcome.errors);
}

}  // namespace

void add_a_little_of_everything(ApplicationDevice& device) {
  add_media(device);
  add_applications(device);
  add_home_screen(device);
  add_settings(device);
  publish_objects(device);
}

}  // namespace harbix::test
