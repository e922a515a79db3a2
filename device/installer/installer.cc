#include "device/installer/installer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "device/accounts.h"
#include "device/installer/ledger_file.h"
#include "device/installer/package_identity.h"
#include "device/installer/refusal.h"

namespace installer {
namespace {

[[noreturn]] void give_up(const std::string& action, const std::string& path, int error) {
  throw Refusal("cannot " + action + " '" + path + "': " + std::generic_category().message(error));
}

bool is_folder(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Answer success() { return {{std::string(RESULT), std::string(SUCCESS)}}; }

Answer description(const Application& application) {
  return {{"actual_gid", std::to_string(application.gid)},
          {"actual_dname", application.id},
          {"actual_extras", application.extras},
          {std::string(RESULT), std::string(SUCCESS)}};
}

std::string list_line(const Application& application) {
  if (!application.registered) return "-" + application.id + "\n";
  return application.id + "::" + application.package + "," + application.version + "," + application.extras +
         "\n";
}

uid_t data_user(gid_t gid) {
  constexpr uid_t STEP = 10000;
  constexpr uid_t ACCOUNT = 1000;
  return gid * STEP + ACCOUNT;
}

void remove_tree(const std::string& path) {
  std::error_code error;
  std::filesystem::remove_all(path, error);
  if (error) give_up("remove", path, error.value());
}

}  // namespace

Installer::Installer(Places places, Surroundings surroundings)
    : places_(std::move(places)), surroundings_(std::move(surroundings)), ledger_(read_ledger(places_.own)) {}

void Installer::publish_all() const {
  std::string lines;
  for (const Application& application : ledger_.applications()) lines += list_line(application);
  surroundings_.publish(lines);
}

Answer Installer::carry_out(const Request& request) {
  switch (request.action) {
    case Action::enroll:
      return enroll(request);
    case Action::unregister:
      return unregister(request);
    case Action::uninstall:
      return uninstall(request);
    case Action::query:
      return query(request);
  }
  return {};
}

Answer Installer::enroll(const Request& request) {
  const std::string folder = places_.applications + "/" + request.id;
  if (!is_folder(folder)) throw Refusal("there is no folder '" + folder + "'");
  const PackageIdentity identity = read_package_identity(folder, request.id);
  const Application application = {
      .id = request.id,
      .package = identity.name,
      .version = identity.version,
      .extras = request.extras,
      .gid = ledger_.gid_for(request.id, request.gid, surroundings_.is_reserved)};
  make_data_folder(application);
  Ledger ledger = ledger_;
  ledger.enroll(application);
  adopt(std::move(ledger));
  surroundings_.publish(list_line(application));
  return description(application);
}

Answer Installer::unregister(const Request& request) {
  if (ledger_.find(request.id) == nullptr) throw Refusal("'" + request.id + "' is not registered");
  strike(request.id);
  return success();
}

Answer Installer::uninstall(const Request& request) {
  const Application* application = ledger_.find_package(request.package);
  if (application == nullptr) throw Refusal("no package '" + request.package + "' is registered");
  const std::string id = application->id;
  // The registration goes last: a removal that was cut short can then be asked for again.
  remove_tree(places_.applications + "/" + id);
  remove_tree(places_.data + "/" + id);
  strike(id);
  return success();
}

Answer Installer::query(const Request& request) const {
  const Application* application = ledger_.find(request.id);
  if (application == nullptr) throw Refusal("'" + request.id + "' is not registered");
  return description(*application);
}

void Installer::strike(const std::string& id) {
  Ledger ledger = ledger_;
  ledger.strike(id);
  adopt(std::move(ledger));
  surroundings_.publish("-" + id + "\n");
}

void Installer::make_data_folder(const Application& application) const {
  const std::string folder = places_.data + "/" + application.id;
  for (const std::string& path : {folder, folder + "/data", folder + "/logs", folder + "/tmp"}) {
    if (::mkdir(path.c_str(), 0700) == -1) {
      if (errno == EEXIST && is_folder(path)) continue;
      give_up("create the folder", path, errno);
    }
    // Applications are the group of their own folder, which stays the installer's, and own what is in it.
    const uid_t user = path == folder ? device::APPS_USER : data_user(application.gid);
    if (::chown(path.c_str(), user, application.gid) == -1) {
      give_up("set the owner of", path, errno);
    }
    if (::chmod(path.c_str(), 0770) == -1) give_up("set the mode of", path, errno);
  }
}

void Installer::adopt(Ledger ledger) {
  write_ledger(places_.own, ledger);
  ledger_ = std::move(ledger);
}

}  // namespace installer
