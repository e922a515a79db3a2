#pragma once

#include <string>
#include <string_view>

namespace installer {

/// What a package calls itself.
struct PackageIdentity {
  std::string name;
  std::string version;
};

/// Shape of the text: lines "Key: value"; "Package-Name" and "Package-Version" count, a carriage return at
/// the end of a line does not. Without them the package is called `id`, of version "0.0.0.0".
/// @throws Refusal when one of them is empty or holds a comma, which separates the fields of the list of
/// applications.
[[nodiscard]] PackageIdentity parse_package_manifest(std::string_view text, std::string_view id);

/// The same from META-INF/MANIFEST.MF in `folder`, as if it were empty when it is missing or no plain file.
/// @throws Refusal also when it cannot be read, or has more than 1 MiB.
[[nodiscard]] PackageIdentity read_package_identity(const std::string& folder, std::string_view id);

}  // namespace installer
