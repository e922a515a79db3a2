#include <string>
#include <string_view>

#include "device/content/contents.h"

namespace device {
namespace {

void write_script(const TreeWriter& tree, const std::string& name, const std::string& whitelist,
                  const std::string& blacklist) {
  // The quoted documents are printed as they stand.
  tree.file("/base/scripts/backup_and_restore/settings/" + name, ROOT_OWNER, 0755,
            "#!/bin/sh\n"
            "# Tells what belongs to the settings and what does not; notes that a backup or a restore begins "
            "or ends.\n"
            "case $1 in\n"
            "whitelist)\n"
            "cat <<'END'\n" +
                whitelist +
                "END\n"
                ";;\n"
                "blacklist)\n"
                "cat <<'END'\n" +
                blacklist +
                "END\n"
                ";;\n"
                "*) printf '%s %s\\n' \"${0##*/}\" \"$1\" >> /var/log/subscribers.log ;;\n"
                "esac\n");
}

}  // namespace

void write_settings_scripts(TreeWriter& tree) {
  write_script(tree, "account", "whitelist /accounts/1000/settings\n",
               "blacklist /accounts/1000/settings/cache\n");
  write_script(tree, "locale",
               "looking for the locale's files\n"
               "whitelist /base/etc/locale.conf\n"
               "whitelist \t /var/etc/timezone\n"
               "whitelist /var/etc/localtime\n"
               "whitelist /var/etc/blank behind \n"
               "whitelist /var/etc/not there\n",
               "");
  write_script(tree, "system-services",
               "whitelist /accounts/1000/sys/keyboard\n"
               "whitelist /var/etc/audio.conf\n"
               "whitelist /var/etc/control\n"
               "whitelist /var/etc/network\n",
               "blacklist /pps/services/privacy\n"
               "blacklist /pps/services/sensors/status\n");
  write_script(tree, "untidy",
               "whitelist relative/path\n"
               "whitelist\n"
               "whitelist   \n"
               " whitelist /etc/passwd\n"
               "warning: nothing to add\n",
               "blacklist pps/services\n"
               "blacklist\n"
               "warning: nothing to leave out\n");
}

}  // namespace device
