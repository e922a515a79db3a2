#include <string>
#include <string_view>

#include "device/content/contents.h"
#include "device/content/random.h"

namespace device {
namespace {

// The components run as the user that owns installed applications, and have no group of their own.
constexpr Owner HOME_OWNER = {.user = APPS_USER, .group = 0};

void make_component(TreeWriter& tree, const std::string& folder) {
  tree.folder(folder, HOME_OWNER, 0770);
  for (const char* name : {"/data", "/logs", "/tmp"}) tree.folder(folder + name, HOME_OWNER, 0770);
}

void write_navigator(TreeWriter& tree) {
  const std::string folder = "/accounts/1000/appdata/sys.navigator";
  make_component(tree, folder);
  tree.file(folder + "/data/home.conf", HOME_OWNER, 0600, "columns=4\nrows=4\n");
  tree.file(folder + "/data/positions:1", HOME_OWNER, 0600, "reader 1 1\natlas 1 2\n");
  tree.folder(folder + "/data/pages", HOME_OWNER, 0700);
  for (int page = 1; page <= 3; ++page) {
    tree.file(folder + "/data/pages/page " + std::to_string(page), HOME_OWNER, 0600,
              "page=" + std::to_string(page) + "\n");
  }
  tree.folder(folder + "/data/icons", HOME_OWNER, 0700);
  tree.folder(folder + "/data/icons/caf\u00e9 \xe9", HOME_OWNER, 0700);
  const std::string icon = folder + "/data/icons/caf\u00e9 \xe9/icon.png";
  tree.file(icon, HOME_OWNER, 0600, Random(icon).bytes(3000));
  tree.folder(folder + "/data/empty folder", HOME_OWNER, 0700);
  tree.link(folder + "/data/current page", HOME_OWNER, "pages/page 2");
  // A restore must not bring this one back.
  tree.link(folder + "/data/link out", HOME_OWNER, "/etc/passwd");
  tree.file(folder + "/logs/navigator.log", HOME_OWNER, 0600, "started\n");
}

void write_system_tray(TreeWriter& tree) {
  const std::string folder = "/accounts/1000/appdata/sys.systemtray";
  make_component(tree, folder);
  write_clock_database(tree, folder + "/data/ClockServices.sqlite", HOME_OWNER, 0660);
  tree.file(folder + "/data/notifications", HOME_OWNER, 0660, "2 new\n");
  tree.folder(folder + "/data/widgets", HOME_OWNER, 0770);
  tree.file(folder + "/data/widgets/battery", HOME_OWNER, 0600, "percent\n");
}

void write_objects(TreeWriter& tree) {
  const std::string folder = "/var/pps/system/navigator";
  tree.folder(folder, ROOT_OWNER, 0755);
  tree.folder(folder + "/applications", ROOT_OWNER, 0755);
  tree.file(folder + "/applications/uriapps", APPS_OWNER, 0644,
            "@uriapps\nhttp::sys.browser\nmailto::sys.mail\nshelf::com.example.reader\n");
  tree.file(folder + "/applications/web_shortcuts", APPS_OWNER, 0644,
            "@web_shortcuts\n"
            R"(news:json:{"title":"News","uri":"http://news.example.com/"})"
            "\ncaf\u00e9::http://cafe.example.org:8080/\n");
  // Beside them, and no part of a backup.
  tree.file(folder + "/applications/recent", APPS_OWNER, 0644, "@recent\nfirst::sys.browser\n");
}

void write_programs(TreeWriter& tree) {
  constexpr std::string_view SLAY = R"(#!/bin/sh
# Called as "slay -f navigator": stops a component. There is none to stop, so it is only noted.
printf '%s\n' "slay $*" >> /var/log/home-screen.log
)";
  constexpr std::string_view STARTUP = R"(#!/bin/sh
# Called as "startup.sh launcher stop": starts or stops a part of the system. Only noted.
printf '%s\n' "startup.sh $*" >> /var/log/home-screen.log
)";
  tree.file("/base/bin/slay", ROOT_OWNER, 0755, SLAY);
  tree.file("/base/scripts/startup.sh", ROOT_OWNER, 0755, STARTUP);
  tree.link("/base/bin/sh", ROOT_OWNER, "/bin/sh");
}

}  // namespace

void write_home_screen(TreeWriter& tree) {
  write_navigator(tree);
  write_system_tray(tree);
  write_objects(tree);
  write_programs(tree);
}

}  // namespace device
