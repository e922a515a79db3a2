#include "device/installer/ledger.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace installer {
namespace {

template <typename Number>
std::optional<Number> parse_number(std::string_view text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// Sets the field that the line names.
/// @return false when there is none, or it cannot have this value.
bool set_field(Application& application, std::string_view name, std::string_view value) {
  if (name == "package") {
    application.package = value;
  } else if (name == "version") {
    application.version = value;
  } else if (name == "extras") {
    application.extras = value;
  } else if (name == "registered") {
    application.registered = value == "yes";
    return application.registered || value == "no";
  } else if (const auto gid = parse_number<gid_t>(value); name == "gid" && gid) {
    application.gid = *gid;
  } else {
    return false;
  }
  return true;
}

}  // namespace

Ledger Ledger::parse(std::string_view text) {
  constexpr std::string_view SEPARATOR = "::";
  Ledger ledger;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const std::string_view name = line.substr(0, line.find(SEPARATOR));
    const bool is_field = name.size() < line.size();
    const std::string_view value = is_field ? line.substr(name.size() + SEPARATOR.size()) : "";
    if (name == "application" && !value.empty()) {
      ledger.applications_.emplace_back().id = value;
    } else if (!is_field || ledger.applications_.empty() ||
               !set_field(ledger.applications_.back(), name, value)) {
      throw std::runtime_error("the ledger's line '" + std::string(line) + "' does not fit");
    }
  }
  return ledger;
}

std::string Ledger::text() const {
  std::string text;
  for (const Application& each : applications_) {
    text += "application::" + each.id + "\npackage::" + each.package + "\nversion::" + each.version +
            "\nextras::" + each.extras + "\ngid::" + std::to_string(each.gid) +
            "\nregistered::" + (each.registered ? "yes" : "no") + "\n";
  }
  return text;
}

const Application* Ledger::find_any(std::string_view id) const {
  const auto found = std::ranges::find(applications_, id, &Application::id);
  return found == applications_.end() ? nullptr : &*found;
}

const Application* Ledger::find(std::string_view id) const {
  const Application* found = find_any(id);
  return found != nullptr && found->registered ? found : nullptr;
}

const Application* Ledger::find_package(std::string_view package) const {
  const auto found = std::ranges::find_if(
      applications_, [&](const Application& each) { return each.registered && each.package == package; });
  return found == applications_.end() ? nullptr : &*found;
}

gid_t Ledger::gid_for(std::string_view id, std::string_view wanted,
                      const std::function<bool(gid_t)>& reserved) const {
  const auto is_free = [&](gid_t gid) {
    return !reserved(gid) && std::ranges::none_of(applications_, [&](const Application& each) {
      return each.gid == gid && each.id != id;
    });
  };
  if (const auto gid = parse_number<gid_t>(wanted);
      gid && *gid >= LOWEST_GID && *gid <= HIGHEST_GID && is_free(*gid)) {
    return *gid;
  }
  if (const Application* known = find_any(id)) return known->gid;
  gid_t next = LOWEST_GID;
  while (!is_free(next)) ++next;
  return next;
}

void Ledger::enroll(const Application& application) {
  std::erase_if(applications_, [&](const Application& each) { return each.id == application.id; });
  applications_.push_back(application);
  applications_.back().registered = true;
}

void Ledger::strike(std::string_view id) {
  const auto found = std::ranges::find(applications_, id, &Application::id);
  if (found != applications_.end()) found->registered = false;
}

}  // namespace installer
