#pragma once

/// The fixed paths of the device that more than one part of the program knows.
namespace harbix::places {

inline constexpr char ROOT[] = "/";                            ///< working directory of every main run
inline constexpr char DEV_NULL[] = "/dev/null";                ///< where a size-only run writes its archive
inline constexpr char DEV_STDOUT[] = "/dev/stdout";            ///< where the size report goes by default
inline constexpr char ACCOUNT[] = "/accounts/1000";            ///< the user account
inline constexpr char SHARED[] = "/accounts/1000/shared";      ///< the user's shared media
inline constexpr char DTM_SHARE[] = "/accounts/1000/sys/dtm";  ///< the dtm share
inline constexpr char APPLICATIONS[] = "/apps";                ///< installed applications
inline constexpr char SUBSCRIBER_SCRIPTS[] = "/base/scripts/backup_and_restore";
inline constexpr char PPS[] = "/pps";  ///< live publish/subscribe objects

}  // namespace harbix::places
