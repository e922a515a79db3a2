#pragma once

#include <string_view>

namespace pps {

/// How a client wants to read an object; asked for behind a '?' in the name it opens.
struct OpenOptions {
  bool wait = false;   ///< a read blocks until another client has changed the object
  bool delta = false;  ///< a read hands over only what changed since the one before

  bool operator==(const OpenOptions&) const = default;
};

/// One path component as a client wrote it, taken apart.
struct OpenName {
  std::string_view name;  ///< the object's own name, before the first '?'
  OpenOptions options;
  bool has_options = false;  ///< a '?' was there, with or without known options behind it
};

/// The name below which every directory shows its objects together.
inline constexpr std::string_view ALL_NAME = ".all";

/// Shape: "name", or "name?option,option". Options that are not known are passed over, so that a client
/// written for a richer system still gets its object. The views point into `component`.
[[nodiscard]] OpenName split_open_name(std::string_view component);

/// The name of the object that the store's file or folder `stored` belongs to: what stands before its first
/// '@'. The view points into `stored`; it is empty for a name that begins with '@'.
[[nodiscard]] std::string_view live_name(std::string_view stored);

/// Whether an object or a directory may be called `name`, options already taken off.
/// @return 0, EINVAL (empty; holds '?', '@' or a newline, each of which means something else in this system),
/// or ENAMETOOLONG (more bytes than a store's file name can have).
[[nodiscard]] int check_name(std::string_view name);

}  // namespace pps
