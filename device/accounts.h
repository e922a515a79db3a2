#pragma once

#include <sys/types.h>

#include <string>

namespace device {

/// The numeric owner of an item, as it stands in the file system.
struct Owner {
  uid_t user = 0;
  gid_t group = 0;
};

// High numbers, so that a device kept on a host never shares an id with one of the host's accounts by chance.
inline constexpr uid_t UPD_USER = 10088;
inline constexpr uid_t APPS_USER = 10089;
inline constexpr uid_t MEDIA_USER = 10113;
inline constexpr uid_t ACCOUNT_USER = 1000;

inline constexpr gid_t TTY_GROUP = 5;
inline constexpr gid_t ACCOUNT_GROUP = 1000;
inline constexpr gid_t SHARED_GROUP = 10001;
inline constexpr gid_t SYS_GROUP = 10002;
inline constexpr gid_t PROTECTED_MEDIA_GROUP = 10003;
inline constexpr gid_t UPD_GROUP = 10088;
inline constexpr gid_t APPS_GROUP = 10089;
inline constexpr gid_t SHOPVALE_GROUP = 10090;
inline constexpr gid_t WEBSL_GROUP = 10091;
inline constexpr gid_t MEDIA_GROUP = 10113;

inline constexpr Owner ROOT_OWNER = {};
inline constexpr Owner SHARED_OWNER = {.user = MEDIA_USER, .group = SHARED_GROUP};
inline constexpr Owner PROTECTED_OWNER = {.user = MEDIA_USER, .group = PROTECTED_MEDIA_GROUP};
inline constexpr Owner SYS_OWNER = {.user = 0, .group = SYS_GROUP};
inline constexpr Owner MEDIA_OWNER = {.user = MEDIA_USER, .group = MEDIA_GROUP};
inline constexpr Owner ACCOUNT_OWNER = {.user = ACCOUNT_USER, .group = ACCOUNT_GROUP};
inline constexpr Owner APPS_OWNER = {.user = APPS_USER, .group = APPS_GROUP};

/// The device's /etc/passwd: one "name:x:uid:gid:comment:home:shell" line for each user.
/// "media" has a primary group of its own: a program that handles shared media as that user takes the
/// group 1000_shared.
[[nodiscard]] std::string passwd_text();

/// The device's /etc/group: one "name:x:gid:" line for each group; no group lists members.
[[nodiscard]] std::string group_text();

}  // namespace device
