#include "device/pps/publisher.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include "device/refuse.h"

namespace pps {

namespace {

/// @return nothing when one of the lines is malformed. `text` ends after a newline, or is one line without
/// it.
std::optional<std::vector<AttributeLine>> parse_lines(std::string_view text) {
  std::vector<AttributeLine> lines;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const auto parsed = parse_attribute_line(line);
    if (!parsed) return std::nullopt;
    if (parsed->kind != AttributeLine::Kind::nothing) lines.push_back(*parsed);
  }
  return lines;
}

/// Lowers `oldest` to what the slowest reader of `node` has seen.
void find_slowest(const Node& node, Stamp& oldest) {
  for (const OpenObject* open : node.open) {
    if (open->needs_removals()) oldest = std::min(oldest, open->cursor().seen);
  }
}

}  // namespace

OpenObject& Publisher::opening(OpenId id) {
  const auto found = open_.find(id);
  if (found == open_.end()) device::refuse(EBADF);
  return *found->second;
}

OpenId Publisher::open(Node& node, OpenOptions options) {
  const OpenId id = ++last_id_;
  auto made = std::make_unique<OpenObject>(id, node, options, tree_.last_stamp());
  node.open.push_back(made.get());
  open_.emplace(id, std::move(made));
  return id;
}

std::optional<std::string_view> Publisher::read(OpenId id, std::size_t size, Patience patience,
                                                ReaderToken token) {
  OpenObject& open = opening(id);
  if (!finish_line(open)) device::refuse(EINVAL);
  const auto piece = open.read(size, tree_.last_stamp());
  if (piece) {
    forget_told_removals(open.node());
    return piece;
  }
  if (patience == Patience::refuse) device::refuse(EAGAIN);
  open.parked.push_back({.token = token, .size = size});
  parked_.emplace(token, id);
  return std::nullopt;
}

bool Publisher::cancel(ReaderToken token) {
  const auto found = parked_.find(token);
  if (found == parked_.end()) return false;
  std::erase_if(opening(found->second).parked, [&](const ParkedRead& read) { return read.token == token; });
  parked_.erase(found);
  return true;
}

std::vector<ReaderToken> Publisher::cancel_all() {
  std::vector<ReaderToken> tokens;
  for (const auto& [token, id] : std::exchange(parked_, {})) {
    opening(id).parked.clear();
    tokens.push_back(token);
  }
  return tokens;
}

void Publisher::write(OpenId id, std::string_view bytes) {
  OpenObject& open = opening(id);
  std::string text = std::exchange(open.unfinished_line, {});
  text += bytes;
  const std::size_t end = text.rfind('\n') + 1;  // 0 when there is none
  if (text.size() - end > MAX_LINE) device::refuse(EFBIG);
  const auto lines = parse_lines(std::string_view(text).substr(0, end));
  if (!lines) device::refuse(EINVAL);
  publish(open, *lines);
  open.unfinished_line = text.substr(end);
}

bool Publisher::finish_line(OpenObject& open) {
  const std::string text = std::exchange(open.unfinished_line, {});
  const auto lines = parse_lines(text);
  if (lines) publish(open, *lines);
  return lines.has_value();
}

void Publisher::publish(OpenObject& open, const std::vector<AttributeLine>& lines) {
  if (lines.empty()) return;
  Node& node = open.node();
  if (node.kind == Node::Kind::view) {
    const auto sets = [](const AttributeLine& line) { return line.kind == AttributeLine::Kind::set; };
    if (!std::ranges::any_of(lines, sets)) return;
    if (!node.is_linked()) device::refuse(ENOENT);
    Tree::make_object_of(node);
  }
  const Change change{.stamp = tree_.next_stamp(), .writer = open.id()};
  bool changed = false;
  for (const AttributeLine& line : lines) changed |= node.attributes.apply(line, change);
  if (!changed) return;

  node.stamp = change.stamp;
  node.metadata.modified = node.metadata.changed = now();
  node.unsaved = true;
  wake(node);
  forget_told_removals(node);
  if (node.parent != nullptr) objects_changed(*node.parent);
}

void Publisher::objects_changed(Node& directory) {
  directory.stamp = tree_.last_stamp();
  if (directory.view != nullptr) wake(*directory.view);
}

void Publisher::wake(Node& node) {
  for (OpenObject* open : node.open) {
    while (!open->parked.empty()) {
      const ParkedRead read = open->parked.front();
      const auto piece = open->read(read.size, tree_.last_stamp());
      if (!piece) break;
      open->parked.pop_front();
      parked_.erase(read.token);
      answer_(read.token, *piece);
    }
  }
}

void Publisher::forget_told_removals(Node& node) {
  if (node.kind == Node::Kind::object) {
    if (!node.attributes.remembers_removals()) return;
    Stamp oldest = tree_.last_stamp();
    find_slowest(node, oldest);
    if (node.parent != nullptr && node.parent->view != nullptr) find_slowest(*node.parent->view, oldest);
    node.attributes.forget_removals(oldest);
  } else if (node.kind == Node::Kind::view && node.parent != nullptr) {
    Stamp oldest = tree_.last_stamp();
    find_slowest(node, oldest);
    std::erase_if(node.parent->removed, [&](const auto& gone) { return gone.second <= oldest; });
    for (const auto& [name, child] : node.parent->children) {
      if (child->kind == Node::Kind::object) forget_told_removals(*child);
    }
  }
}

void Publisher::flush(OpenId id) {
  OpenObject& open = opening(id);
  const bool well_formed = finish_line(open);
  Node& node = open.node();
  if (node.kind == Node::Kind::object && node.is_linked() && node.unsaved) store_.save(node);
  if (!well_formed) device::refuse(EINVAL);
}

void Publisher::close(OpenId id) {
  std::exception_ptr failure;
  try {
    flush(id);
  } catch (const std::system_error&) {
    failure = std::current_exception();
  }
  Node& node = opening(id).node();
  std::erase(node.open, &opening(id));
  open_.erase(id);
  forget_told_removals(node);
  tree_.discard_unused(node);
  if (failure) std::rethrow_exception(failure);
}

}  // namespace pps
