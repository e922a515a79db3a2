#include "device/pps/node.h"

namespace pps {

namespace {

constexpr mode_t SEARCH_BITS = 0111;
constexpr mode_t RIGHTS = 0777;

void append_name(std::string& text, const Node& object) { text.append("@").append(object.name).append("\n"); }

}  // namespace

Metadata shown_metadata(const Node& node) {
  if (node.kind != Node::Kind::view || node.parent == nullptr) return node.metadata;
  Metadata shown = node.parent->metadata;
  shown.mode &= RIGHTS & ~SEARCH_BITS;
  return shown;
}

std::string whole_text(const Node& node) {
  std::string text;
  text.reserve(text_size(node));
  if (node.kind == Node::Kind::object) {
    append_name(text, node);
    node.attributes.append_all(text);
  } else if (node.kind == Node::Kind::view && node.parent != nullptr) {
    for (const auto& [name, child] : node.parent->children) {
      if (child->kind == Node::Kind::object) text += whole_text(*child);
    }
  }
  return text;
}

std::size_t text_size(const Node& node) {
  constexpr std::size_t AROUND_NAME = 2;  // '@' and the newline
  std::size_t size = 0;
  if (node.kind == Node::Kind::object) {
    size = node.name.size() + AROUND_NAME + node.attributes.text_size();
  } else if (node.kind == Node::Kind::view && node.parent != nullptr) {
    for (const auto& [name, child] : node.parent->children) {
      if (child->kind == Node::Kind::object) size += text_size(*child);
    }
  }
  return size;
}

bool has_news(const Node& node, Cursor cursor) {
  if (node.kind == Node::Kind::object) return node.attributes.has_news(cursor);
  return node.kind == Node::Kind::view && node.parent != nullptr && node.parent->stamp > cursor.seen;
}

std::string news_text(const Node& node, Cursor cursor) {
  std::string text;
  if (node.kind == Node::Kind::object) {
    append_name(text, node);
    node.attributes.append_news(text, cursor);
  } else if (node.kind == Node::Kind::view && node.parent != nullptr) {
    for (const auto& [name, stamp] : node.parent->removed) {
      if (stamp > cursor.seen) text.append("-@").append(name).append("\n");
    }
    for (const auto& [name, child] : node.parent->children) {
      if (child->kind == Node::Kind::object && child->stamp > cursor.seen) text += news_text(*child, cursor);
    }
  }
  return text;
}

std::string stored_text(const Node& object) {
  std::string text;
  append_name(text, object);
  object.attributes.append_persistent(text);
  return text;
}

}  // namespace pps
