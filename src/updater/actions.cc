#include "updater/actions.h"

#include <utility>

#include "fs/working_directory.h"

namespace updater {
namespace {

std::string attribute_line(const std::string& name, const std::string& value) {
  return name + "::" + value + '\n';
}

std::string package_path_line(const fs::Path& package) {
  return attribute_line("package_path", package.text());
}

/// The installer can be asked about what does not exist (any more) as well, by the text of its path alone.
fs::Path canonical(const std::string& text) {
  const fs::Path path(text);
  if (fs::exists(path)) return path.realpath();
  const bool is_absolute = text.starts_with(fs::Path::SEPARATOR);
  return (is_absolute ? path : fs::current_directory() / path).lexically_normal();
}

}  // namespace

ActionRegister::ActionRegister(const fs::File& package, std::string extras, std::string gid)
    : package_(package.path()), extras_(std::move(extras)), gid_(std::move(gid)) {}

void ActionRegister::write_request() {
  send(attribute_line("action", "register") + package_path_line(package_) +
       attribute_line("extras", extras_) + attribute_line("gid", gid_));
}

ActionUnregister::ActionUnregister(const std::string& package_path) : package_(package_path) {}

void ActionUnregister::write_request() {
  send(attribute_line("action", "unregister") + package_path_line(package_));
}

ActionQuery::ActionQuery(const std::string& package_path) : package_(canonical(package_path)) {}

void ActionQuery::write_request() { send(attribute_line("action", "query") + package_path_line(package_)); }

ActionUninstall::ActionUninstall(std::string package_id) : package_id_(std::move(package_id)) {}

void ActionUninstall::write_request() {
  send(attribute_line("action", "uninstall") + attribute_line("package_id", package_id_));
}

}  // namespace updater
