#include "device/installer/request.h"

#include <algorithm>
#include <array>
#include <string>

#include "device/installer/refusal.h"
#include "device/pps/attribute_line.h"

namespace installer {
namespace {

constexpr std::string_view PACKAGE_PATH = "package_path";
constexpr std::string_view PACKAGE_ID = "package_id";
constexpr std::string_view EXTRAS = "extras";
constexpr std::string_view GID = "gid";

struct Form {
  std::string_view name;
  Action action;
  /// Of the attributes that it takes; the rest is empty.
  std::array<std::string_view, 3> attributes;
};

constexpr std::array FORMS = {
    Form{"register", Action::enroll, {PACKAGE_PATH, EXTRAS, GID}},
    Form{"unregister", Action::unregister, {PACKAGE_PATH}},
    Form{"uninstall", Action::uninstall, {PACKAGE_ID}},
    Form{"query", Action::query, {PACKAGE_PATH}},
};

const Form* find_form(const Attributes& object) {
  const std::string name = value_of(object, "action");
  const auto* const found = std::ranges::find(FORMS, name, &Form::name);
  return found == FORMS.end() ? nullptr : found;
}

/// The first attribute that the form takes and the object has not; empty when there is none.
std::string_view missing_attribute(const Form& form, const Attributes& object) {
  for (const std::string_view name : form.attributes) {
    if (!name.empty() && !object.contains(name)) return name;
  }
  return {};
}

std::string id_of(const std::string& package_path) {
  constexpr std::string_view ROOT = "/apps/";
  std::string id = package_path.starts_with(ROOT) ? package_path.substr(ROOT.size()) : "";
  if (!is_application_id(id)) throw Refusal("'" + package_path + "' is no application's folder");
  return id;
}

}  // namespace

bool is_pending(const Attributes& object) { return object.contains("action") && !object.contains("result"); }

bool is_complete(const Attributes& object) {
  const Form* form = find_form(object);
  return form == nullptr || missing_attribute(*form, object).empty();
}

Request parse_request(const Attributes& object) {
  const Form* form = find_form(object);
  if (form == nullptr) throw Refusal("the action '" + value_of(object, "action") + "' is not known");
  const std::string_view missing = missing_attribute(*form, object);
  if (!missing.empty()) throw Refusal("the request has no '" + std::string(missing) + "'");
  Request request;
  request.action = form->action;
  if (form->action == Action::uninstall) {
    request.package = value_of(object, PACKAGE_ID);
    if (request.package.empty()) throw Refusal("the request's 'package_id' is empty");
    return request;
  }
  request.id = id_of(value_of(object, PACKAGE_PATH));
  if (form->action == Action::enroll) {
    request.extras = value_of(object, EXTRAS);
    request.gid = value_of(object, GID);
  }
  return request;
}

bool is_application_id(std::string_view id) {
  if (id.empty() || id == "." || id == ".." || id.find_first_of("/\n") != std::string_view::npos)
    return false;
  // As the list of applications shows it.
  const std::string text = std::string(id) + "::";
  const auto line = pps::parse_attribute_line(text);
  return line && line->kind == pps::AttributeLine::Kind::set && line->name == id;
}

}  // namespace installer
