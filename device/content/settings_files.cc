#include <array>
#include <string>
#include <string_view>

#include "device/content/contents.h"
#include "device/content/random.h"

namespace device {
namespace {

constexpr std::array<std::string_view, 14> FILE_NAMES = {
    "a:b",
    "colon:",
    ":",
    "12:34",
    " blank in front",
    "blank behind ",
    "  ",
    "-leading dash",
    ".hidden",
    "'quotes' \"and\" $HOME;*?",
    // The same word twice: é as one character, and as e with a combining accent.
    "caf\u00e9",
    "cafe\u0301",
    // No UTF-8: Latin-1, a lone continuation byte.
    "caf\xe9 latin-1",
    "\x80",
};

struct Mode {
  std::string_view name;
  mode_t bits;
};
constexpr std::array FILE_MODES = {Mode{"0600", 0600}, Mode{"0640", 0640}, Mode{"0755", 0755}};

/// A file whose bytes depend on its path alone.
void write_binary(const TreeWriter& tree, const std::string& path, Owner owner, mode_t mode,
                  std::size_t size) {
  tree.file(path, owner, mode, Random(path).bytes(size));
}

void write_account(TreeWriter& tree) {
  const std::string settings = "/accounts/1000/settings";
  tree.file(settings + "/preferences.conf", ACCOUNT_OWNER, 0600, "theme=dark\nfont size=12\n");
  tree.file(settings + "/empty", ACCOUNT_OWNER, 0640, "");
  tree.folder(settings + "/wallpaper", ACCOUNT_OWNER, 0755);
  write_binary(tree, settings + "/wallpaper/current.jpg", ACCOUNT_OWNER, 0640, 70000);
  tree.folder(settings + "/profiles", ACCOUNT_OWNER, 0755);
  for (std::size_t number = 0; number < 30; ++number) {
    tree.file(settings + "/profiles/profile " + std::to_string(number), ACCOUNT_OWNER,
              FILE_MODES.at(number % FILE_MODES.size()).bits, "volume=" + std::to_string(number) + "\n");
  }
  tree.folder(settings + "/odd names", ACCOUNT_OWNER, 0755);
  for (const std::string_view name : FILE_NAMES) {
    tree.file(settings + "/odd names/" + std::string(name), ACCOUNT_OWNER, 0640, "odd\n");
  }
  tree.folder(settings + "/odd names/folder:", ACCOUNT_OWNER, 0700);
  tree.file(settings + "/odd names/folder:/inside:", ACCOUNT_OWNER, 0600, "odd\n");
  tree.folder(settings + "/empty folder", ACCOUNT_OWNER, 0755);
  // The scripts leave these out.
  tree.folder(settings + "/cache", ACCOUNT_OWNER, 0755);
  write_binary(tree, settings + "/cache/thumbnails", ACCOUNT_OWNER, 0640, 3000);
  tree.file(settings + "/cache-index", ACCOUNT_OWNER, 0640, "left out as well: the name begins alike\n");
}

void write_of_several_owners(TreeWriter& tree) {
  struct Kind {
    std::string_view name;
    Owner owner;
  };
  // Of the group that a restore works as, and open to it.
  const std::string folder = "/accounts/1000/settings/services";
  tree.folder(folder, ROOT_OWNER, 0775);
  for (const Kind& kind : {Kind{"root", ROOT_OWNER}, Kind{"media", MEDIA_OWNER}, Kind{"apps", APPS_OWNER},
                           Kind{"user", ACCOUNT_OWNER}}) {
    const std::string own = folder + "/" + std::string(kind.name);
    tree.folder(own, kind.owner, 0755);
    for (const Mode& mode : FILE_MODES) {
      write_binary(tree, own + "/" + std::string(mode.name), kind.owner, mode.bits, 200 + mode.bits);
    }
    tree.file(folder + "/" + std::string(kind.name) + ".conf", kind.owner, 0640,
              "owner=other than the folder's\n");
  }
}

void write_system_files(TreeWriter& tree) {
  const std::string keyboard = "/accounts/1000/sys/keyboard";
  tree.folder(keyboard, SYS_OWNER, 0770);
  tree.file(keyboard + "/layout", SYS_OWNER, 0660, "qwertz\n");
  tree.file(keyboard + "/words:", SYS_OWNER, 0640,
            "Stra\xdf"
            "e\n");
  tree.file("/base/etc/locale.conf", ROOT_OWNER, 0644, "LANG=sv_SE.UTF-8\n");
  tree.file("/base/etc/not in any list", ROOT_OWNER, 0644, "stays\n");
  tree.file("/var/etc/timezone", ROOT_OWNER, 0644, "Europe/Stockholm\n");
  tree.file("/var/etc/blank behind ", ROOT_OWNER, 0600, "named with its blank\n");
  tree.file("/var/etc/audio.conf", ROOT_OWNER, 0640, "ring=loud\n");
  tree.file("/var/etc/control", ROOT_OWNER, 0755, "backed up: no object\n");
  tree.folder("/var/etc/network", ROOT_OWNER, 0755);
  tree.file("/var/etc/network/hosts:1", ROOT_OWNER, 0640, "tablet\n");
}

void write_links(TreeWriter& tree) {
  const std::string settings = "/accounts/1000/settings";
  tree.folder(settings + "/links", ACCOUNT_OWNER, 0755);
  tree.file(settings + "/links/target", ACCOUNT_OWNER, 0640, "linked to\n");
  tree.link(settings + "/links/beside", ACCOUNT_OWNER, "target");
  tree.link(settings + "/links/absolute", ACCOUNT_OWNER, settings + "/links/target");
  tree.link(settings + "/links/dangling", ACCOUNT_OWNER, "not there");
  tree.link(settings + "/links/above", ACCOUNT_OWNER, "../preferences.conf");
  tree.link(settings + "/links/out", ACCOUNT_OWNER, "/etc/passwd");
  tree.link(settings + "/links/out by name alike", ACCOUNT_OWNER, settings + "/links-2/target");
  tree.link(settings + "/links/to a folder", ACCOUNT_OWNER, "../profiles");
  tree.link(settings + "/current profile", ACCOUNT_OWNER, "profiles/profile 3");
  tree.link("/accounts/1000/sys/keyboard/in", SYS_OWNER, settings + "/preferences.conf");
  tree.link("/var/etc/localtime", ROOT_OWNER, "timezone");
}

}  // namespace

void write_settings_files(TreeWriter& tree) {
  write_account(tree);
  write_of_several_owners(tree);
  write_system_files(tree);
  write_links(tree);
}

}  // namespace device
