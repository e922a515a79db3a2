#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>

#include "device/pps/attribute_line.h"
#include "device/pps/change.h"

namespace pps {

/// The attributes of one object in the order in which they were first set, each with its last change, and the
/// removals that some reader has not read yet.
class AttributeSet {
 public:
  AttributeSet() = default;
  AttributeSet(const AttributeSet&) = delete;  // the index points into the list
  AttributeSet& operator=(const AttributeSet&) = delete;

  /// Merges one line: sets, replaces or removes one attribute and leaves the others alone. A replaced
  /// attribute keeps its place, and takes "[n]" or its absence from the new line.
  /// @return whether anything is different now.
  bool apply(const AttributeLine& line, Change change);

  /// Appends every attribute's line to `text`.
  void append_all(std::string& text) const;

  /// Appends the lines that the store keeps.
  void append_persistent(std::string& text) const;

  /// Appends what is news at `cursor`: removals as "-name", then changed attributes as they are now.
  void append_news(std::string& text, Cursor cursor) const;

  [[nodiscard]] bool has_news(Cursor cursor) const;

  /// Bytes that append_all() would append.
  [[nodiscard]] std::size_t text_size() const { return text_size_; }

  [[nodiscard]] bool remembers_removals() const { return !removed_.empty(); }

  /// Drops the removals up to `stamp`: every reader that will ask has seen them. Without this, an object
  /// whose attribute names come and go would grow for ever.
  void forget_removals(Stamp stamp);

  void clear();

 private:
  struct Attribute {
    std::string name;
    std::string encoding;
    std::string value;
    bool persistent;
    Change change;

    [[nodiscard]] AttributeLine line() const;
    [[nodiscard]] std::size_t line_size() const;
  };

  bool set(const AttributeLine& line, Change change);
  bool remove(const AttributeLine& line, Change change);

  std::list<Attribute> attributes_;
  std::unordered_map<std::string_view, std::list<Attribute>::iterator> by_name_;  // views of the list's names
  std::map<std::string, Change, std::less<>> removed_;
  std::size_t text_size_ = 0;
  Stamp changed_ = 0;
};

}  // namespace pps
