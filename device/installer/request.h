#pragma once

#include <string>
#include <string_view>

#include "device/installer/attributes.h"

namespace installer {

enum class Action { enroll, unregister, uninstall, query };

/// What a client asks for.
struct Request {
  Action action = Action::query;
  /// The application's folder below /apps, one component; empty for uninstall.
  std::string id;
  /// The package to be uninstalled; empty for the other actions.
  std::string package;
  /// Of "register" alone, both as given.
  std::string extras;
  std::string gid;
};

/// Whether the object waits for an answer: it has an "action" and no "result".
[[nodiscard]] bool is_pending(const Attributes& object);

/// Whether every attribute that its action takes is there. A client whose stream breaks a long request into
/// several writes shows it piece by piece. An action that is not known takes none.
[[nodiscard]] bool is_complete(const Attributes& object);

/// Shape of the attributes: "action" is "register" with "package_path", "extras" and "gid"; "unregister" or
/// "query" with "package_path"; "uninstall" with "package_id". A package path is "/apps/" and one component.
/// @throws Refusal for anything else.
[[nodiscard]] Request parse_request(const Attributes& object);

/// Whether an application can be called so: one plain path component that can be an attribute's name too.
[[nodiscard]] bool is_application_id(std::string_view id);

}  // namespace installer
