#include "device/well_known_folders.h"

#include <array>
#include <string_view>

namespace device {
namespace {

struct Folder {
  std::string_view path;
  Owner owner;
  mode_t mode;
};

// Parents stand before what is in them.
constexpr std::array FOLDERS = {
    Folder{"/dev", ROOT_OWNER, 0755},
    Folder{"/etc", ROOT_OWNER, 0755},
    Folder{"/opt", ROOT_OWNER, 0755},
    Folder{"/opt/harbix", ROOT_OWNER, 0755},
    Folder{"/opt/harbix/bin", ROOT_OWNER, 0755},
    Folder{"/proc", ROOT_OWNER, 0555},
    Folder{"/root", ROOT_OWNER, 0700},
    Folder{"/run", ROOT_OWNER, 0755},
    Folder{"/tmp", ROOT_OWNER, 01777},
    Folder{"/var", ROOT_OWNER, 0755},
    Folder{"/var/etc", ROOT_OWNER, 0755},
    Folder{"/var/log", ROOT_OWNER, 0755},
    Folder{"/var/tmp", ROOT_OWNER, 01777},
    // The objects behind /pps are kept here.
    Folder{"/var/pps", ROOT_OWNER, 0755},
    // The installer's ledger.
    Folder{"/var/installer", ROOT_OWNER, 0755},
    Folder{"/pps", ROOT_OWNER, 0755},
    Folder{"/accounts", ROOT_OWNER, 0755},
    Folder{"/accounts/1000", SYS_OWNER, 0755},
    // No set-group-id bit: a program that writes here has to have taken the group.
    Folder{"/accounts/1000/shared", SHARED_OWNER, 0770},
    Folder{"/accounts/1000/sys", SYS_OWNER, 0755},
    Folder{"/accounts/1000/sys/dtm", SYS_OWNER, 0770},
    Folder{"/accounts/1000/db", SYS_OWNER, 0755},
    Folder{"/accounts/1000/appdata", APPS_OWNER, 0755},
    Folder{"/accounts/1000/settings", ACCOUNT_OWNER, 0755},
    Folder{"/apps", APPS_OWNER, 0755},
    Folder{"/base", ROOT_OWNER, 0755},
    Folder{"/base/bin", ROOT_OWNER, 0755},
    Folder{"/base/etc", ROOT_OWNER, 0755},
    Folder{"/base/scripts", ROOT_OWNER, 0755},
    Folder{"/base/scripts/backup_and_restore", ROOT_OWNER, 0755},
    Folder{"/base/scripts/backup_and_restore/settings", ROOT_OWNER, 0755},
};

// The prompt says whose shell it is.
constexpr std::string_view PROMPT =
    "if [ \"${BASH-}\" ]; then PS1='\\u@\\h:\\w\\$ '; else PS1='tablet:$PWD$ '; fi\n";

}  // namespace

void write_well_known_folders(TreeWriter& tree) {
  for (const Folder& folder : FOLDERS) tree.folder(folder.path, folder.owner, folder.mode);
  tree.file("/etc/passwd", ROOT_OWNER, 0644, passwd_text());
  tree.file("/etc/group", ROOT_OWNER, 0644, group_text());
  tree.file("/etc/nsswitch.conf", ROOT_OWNER, 0644, "passwd: files\ngroup: files\nhosts: files\n");
  tree.file("/etc/hostname", ROOT_OWNER, 0644, "tablet\n");
  // What a shell reads when it starts: one that is logged in the first, any other one that is used by hand
  // the second.
  tree.file("/etc/profile", ROOT_OWNER, 0644, PROMPT);
  tree.file("/etc/bash.bashrc", ROOT_OWNER, 0644, PROMPT);
  // Where nothing is, or a file, programs that mount would write what they do.
  tree.link("/etc/mtab", ROOT_OWNER, "../proc/self/mounts");
  tree.file("/etc/hosts", ROOT_OWNER, 0644, "127.0.0.1 localhost tablet\n");
}

}  // namespace device
