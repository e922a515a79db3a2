#include "device/accounts.h"

#include <array>
#include <string_view>

namespace device {
namespace {

struct User {
  std::string_view name;
  Owner ids;
  std::string_view comment;
  std::string_view home;
  std::string_view shell;
};

struct Group {
  std::string_view name;
  gid_t id;
};

constexpr uid_t NOBODY = 65534;
constexpr std::string_view NO_LOGIN = "/usr/sbin/nologin";

constexpr std::array USERS = {
    User{"root", ROOT_OWNER, "root", "/root", "/bin/bash"},
    User{"daemon", {1, 1}, "daemon", "/usr/sbin", NO_LOGIN},
    User{"1000_user", ACCOUNT_OWNER, "user account 1000", "/accounts/1000", "/bin/sh"},
    User{"upd", {UPD_USER, UPD_GROUP}, "installer service", "/", NO_LOGIN},
    User{"apps", APPS_OWNER, "installed applications", "/apps", NO_LOGIN},
    User{"media", MEDIA_OWNER, "shared media", "/", NO_LOGIN},
    User{"nobody", {NOBODY, NOBODY}, "nobody", "/nonexistent", NO_LOGIN},
};

constexpr std::array GROUPS = {
    Group{"root", 0},
    Group{"daemon", 1},
    Group{"tty", TTY_GROUP},
    Group{"1000_user", ACCOUNT_GROUP},
    Group{"1000_shared", SHARED_GROUP},
    Group{"1000_sys", SYS_GROUP},
    Group{"protected_media", PROTECTED_MEDIA_GROUP},
    Group{"upd", UPD_GROUP},
    Group{"apps", APPS_GROUP},
    Group{"shopvale", SHOPVALE_GROUP},
    Group{"websl", WEBSL_GROUP},
    Group{"media", MEDIA_GROUP},
    Group{"nogroup", NOBODY},
};

}  // namespace

std::string passwd_text() {
  std::string text;
  for (const User& user : USERS) {
    text += user.name;
    text += ":x:" + std::to_string(user.ids.user) + ":" + std::to_string(user.ids.group) + ":";
    text += user.comment;
    text += ":";
    text += user.home;
    text += ":";
    text += user.shell;
    text += "\n";
  }
  return text;
}

std::string group_text() {
  std::string text;
  for (const Group& group : GROUPS) {
    text += group.name;
    text += ":x:" + std::to_string(group.id) + ":\n";
  }
  return text;
}

}  // namespace device
