#pragma once

/// The account names under which the device keeps each kind of data. Names only: ids are looked up
/// where they are used.
namespace harbix::domains {

inline constexpr char SHARED_GROUP[] = "1000_shared";               ///< group of the shared media folders
inline constexpr char MEDIA_USER[] = "media";                       ///< user that reads and writes media
inline constexpr char PROTECTED_MEDIA_GROUP[] = "protected_media";  ///< group of media items left alone
inline constexpr char SYSTEM_GROUP[] = "1000_sys";                  ///< system group of the user account
inline constexpr char APPLICATIONS_USER[] = "apps";                 ///< owner of installed applications
inline constexpr char INSTALLER_USER[] = "upd";                     ///< user of the installer service
inline constexpr char INSTALLER_GROUP[] = "upd";                    ///< group of the installer service
inline constexpr char STOREFRONT_SOURCE[] = "shopvale";             ///< source of bought applications
inline constexpr char BUILT_IN_MARKER[] = "websl";                  ///< marks built-in applications

/// The number of the user account, its main group's id as well.
inline constexpr unsigned USER_ACCOUNT = 1000;

}  // namespace harbix::domains
