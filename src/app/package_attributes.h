#pragma once

/// The keys of an application package's manifest, beside its file records.
namespace harbix::package_attributes {

inline constexpr char PACKAGE[] = "Package";                ///< its name in the archive
inline constexpr char APP_DIRECTORY[] = "App-Directory";    ///< its folder's name below "/apps"
inline constexpr char DATA_DIRECTORY[] = "Data-Directory";  ///< where its data lies, in full
inline constexpr char EXTRAS[] = "Extras";                  ///< what the installer needs to register it again

}  // namespace harbix::package_attributes
