#include "device/pps/attribute_set.h"

#include <algorithm>

namespace pps {

AttributeLine AttributeSet::Attribute::line() const {
  return {.kind = AttributeLine::Kind::set,
          .name = name,
          .encoding = encoding,
          .value = value,
          .persistent = persistent};
}

std::size_t AttributeSet::Attribute::line_size() const {
  constexpr std::size_t SEPARATORS = 3;  // two ':' and the newline
  constexpr std::size_t FLAG = 3;        // "[n]"
  return name.size() + encoding.size() + value.size() + SEPARATORS + (persistent ? 0 : FLAG);
}

bool AttributeSet::apply(const AttributeLine& line, Change change) {
  switch (line.kind) {
    case AttributeLine::Kind::nothing:
      return false;
    case AttributeLine::Kind::set:
      return set(line, change);
    case AttributeLine::Kind::remove:
      return remove(line, change);
  }
  return false;
}

bool AttributeSet::set(const AttributeLine& line, Change change) {
  const auto known = by_name_.find(line.name);
  if (known == by_name_.end()) {
    attributes_.push_back({std::string(line.name), std::string(line.encoding), std::string(line.value),
                           line.persistent, change});
    const auto added = std::prev(attributes_.end());
    by_name_.emplace(added->name, added);
    text_size_ += added->line_size();
    if (const auto gone = removed_.find(line.name); gone != removed_.end()) removed_.erase(gone);
  } else {
    Attribute& attribute = *known->second;
    if (attribute.encoding == line.encoding && attribute.value == line.value &&
        attribute.persistent == line.persistent) {
      return false;
    }
    text_size_ -= attribute.line_size();
    attribute.encoding = line.encoding;
    attribute.value = line.value;
    attribute.persistent = line.persistent;
    attribute.change = change;
    text_size_ += attribute.line_size();
  }
  changed_ = change.stamp;
  return true;
}

bool AttributeSet::remove(const AttributeLine& line, Change change) {
  const auto known = by_name_.find(line.name);
  if (known == by_name_.end()) return false;
  const auto attribute = known->second;
  text_size_ -= attribute->line_size();
  by_name_.erase(known);  // before the name it points at
  attributes_.erase(attribute);
  removed_[std::string(line.name)] = change;
  changed_ = change.stamp;
  return true;
}

void AttributeSet::append_all(std::string& text) const {
  for (const Attribute& attribute : attributes_) append_attribute(text, attribute.line());
}

void AttributeSet::append_persistent(std::string& text) const {
  for (const Attribute& attribute : attributes_) {
    if (attribute.persistent) append_attribute(text, attribute.line());
  }
}

void AttributeSet::append_news(std::string& text, Cursor cursor) const {
  for (const auto& [name, change] : removed_) {
    if (cursor.is_news(change)) text.append("-").append(name).append("\n");
  }
  for (const Attribute& attribute : attributes_) {
    if (cursor.is_news(attribute.change)) append_attribute(text, attribute.line());
  }
}

bool AttributeSet::has_news(Cursor cursor) const {
  if (changed_ <= cursor.seen) return false;
  return std::ranges::any_of(removed_, [&](const auto& gone) { return cursor.is_news(gone.second); }) ||
         std::ranges::any_of(attributes_, [&](const Attribute& each) { return cursor.is_news(each.change); });
}

void AttributeSet::forget_removals(Stamp stamp) {
  std::erase_if(removed_, [&](const auto& gone) { return gone.second.stamp <= stamp; });
}

void AttributeSet::clear() {
  by_name_.clear();
  attributes_.clear();
  removed_.clear();
  text_size_ = 0;
}

}  // namespace pps
