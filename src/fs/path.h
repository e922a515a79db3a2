#pragma once

#include <compare>
#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace fs {

/// A file name as bytes: no encoding assumed, nothing normalised on construction.
/// Only realpath() looks at the file system.
class Path {
 public:
  static constexpr char SEPARATOR = '/';

  Path() = default;
  explicit Path(std::string text) : text_(std::move(text)) {}
  explicit Path(std::string_view text) : text_(text) {}
  Path(const char* text) : text_(text) {}

  [[nodiscard]] const std::string& text() const noexcept { return text_; }
  [[nodiscard]] const char* c_str() const noexcept { return text_.c_str(); }
  [[nodiscard]] bool empty() const noexcept { return text_.empty(); }

  /// Appends one component with one '/' between: "a" and "b" give "a/b", as do "a/" and "/b".
  /// An empty path and "b" give "/b": callers build rooted names from nothing.
  Path& operator/=(std::string_view component);
  Path& operator/=(const char* component) { return *this /= std::string_view(component); }
  Path& operator/=(const Path& component) { return *this /= std::string_view(component.text_); }

  /// Removes every leading "./": "././a" becomes "a".
  Path& strip_leading_dots();

  /// Up to the first separator, a leading one not counted: "/a/b" gives "/a", "a/b" gives "a".
  [[nodiscard]] Path first_component() const;

  /// Position of the last separator, if there is one.
  [[nodiscard]] std::optional<std::size_t> last_separator() const;

  /// What follows the last separator: "a/b" gives "b", "a/b/" gives "".
  [[nodiscard]] Path basename() const;

  /// What comes before the last component: "/a/b/" gives "/a", "/a" and "a" give "", "/" gives "/".
  [[nodiscard]] Path dirname() const;

  /// The names from the root to the leaf: "/a/b/c/" gives a, b, c. An empty name ends the look
  /// towards the root: "a//b" gives b.
  [[nodiscard]] std::vector<Path> components() const;

  /// The rest of the text after `base`: "/apps/x/y" below "/apps" is "x/y". Compares characters, so that
  /// "/appsx" is accepted below "/apps"; fs/containment.h has the tests that guard what may be written.
  /// @throws fs::Exception (no error number) when this path does not begin with `base`.
  [[nodiscard]] Path relative_to(const Path& base) const;

  /// Whether relative_to(base) has a result.
  [[nodiscard]] bool is_subdirectory_of(const Path& base) const;

  /// Whether this path is `base` or lies below it, on a component boundary. Text only: ".." and links
  /// are taken as they stand.
  [[nodiscard]] bool is_inside(const Path& base) const;

  /// The same path without ".", ".." and repeated separators, by its text alone: links are not looked at. A
  /// ".." above the root stays there: "/../a" is "/a".
  [[nodiscard]] Path lexically_normal() const;

  /// The canonical path, from the file system. A name that begins with neither '/' nor '.' is resolved
  /// against the working directory.
  /// @throws fs::Exception with the number of realpath(3) when it does not exist or cannot be reached.
  [[nodiscard]] Path realpath() const;

  /// "." and "..".
  static const Path& current();
  static const Path& parent();

  friend bool operator==(const Path&, const Path&) = default;
  // NOLINTNEXTLINE(modernize-use-nullptr): the check takes the 0 of the comparison made here for a pointer
  friend std::strong_ordering operator<=>(const Path&, const Path&) = default;

 private:
  std::string text_;
};

[[nodiscard]] Path operator/(Path base, std::string_view component);
[[nodiscard]] Path operator/(Path base, const char* component);
[[nodiscard]] Path operator/(Path base, const Path& component);

inline std::ostream& operator<<(std::ostream& stream, const Path& path) { return stream << path.text(); }

}  // namespace fs
