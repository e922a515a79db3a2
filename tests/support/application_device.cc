#include "tests/support/application_device.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/require.h"

namespace harbix::test {
namespace {

namespace stdfs = std::filesystem;

constexpr char LEDGER[] = "/var/installer/applications";
// The fixture's own folder: the faults that the installer is asked for, and what it published at the end of a
// run.
constexpr char NOTES[] = "/var/notes";
constexpr char FAULTS[] = "/var/notes/faults";
constexpr char LIST[] = "/var/notes/list";
constexpr char REQUESTS[] = "/var/notes/requests";
constexpr char RUN[] =
    "cd /pps/system/installer; [ -s /var/notes/faults ] && cat /var/notes/faults > control; cd /; \"$@\"; "
    "status=$?\n"
    "cd /pps/system/installer 2> /dev/null && cat registeredapps/.all > /var/notes/list &&\n"
    "ls -A upd/current > /var/notes/requests; exit $status";

bool lies_below(const std::string& path, const std::vector<std::string>& folders) {
  return std::ranges::any_of(
      folders, [&](const std::string& folder) { return path == folder || path.starts_with(folder + "/"); });
}

}  // namespace

InstalledApplication bought_application() {
  return {.id = "shop.app",
          .package = "shop.app.pkg",
          .group = 10200,
          .extras = "price:n:299,source::shopvale",
          .version = "2.0.1.7"};
}

InstalledApplication loaded_application() {
  return {.id = "side.app", .package = "side.app.pkg", .group = 10201, .extras = "source::sideload"};
}

InstalledApplication built_in_application() {
  return {.id = "sys.app", .package = "sys.app.pkg", .group = 10202, .extras = "websl::,source::system"};
}

Outcome ApplicationDevice::run(const std::vector<std::string>& command, const std::string& input) {
  if (!exists(FAULTS)) ask_faults({});
  std::vector<std::string> words{"bash", "-c", RUN, "bash"};
  words.insert(words.end(), command.begin(), command.end());
  return Device::run(words, input);
}

Outcome ApplicationDevice::harbix(const std::vector<std::string>& arguments, const std::string& input) {
  std::vector<std::string> command{"harbix"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return run(command, input);
}

Outcome ApplicationDevice::shell(const std::string& script, const std::string& input) {
  return run({"bash", "-c", script}, input);
}

void ApplicationDevice::install(const InstalledApplication& application) {
  make_owned_folder(application.folder(), 0750, user("apps"), application.group);
  add_file(application, "META-INF/MANIFEST.MF",
           "Package-Name: " + application.package + "\nPackage-Version: " + application.version + "\n");
  enter(application);
}

void ApplicationDevice::enter(const InstalledApplication& application) {
  std::ofstream ledger(outside(LEDGER), std::ios::app);
  ledger << "application::" << application.id << "\npackage::" << application.package
         << "\nversion::" << application.version << "\nextras::" << application.extras
         << "\ngid::" << application.group << "\nregistered::yes\n";
  if (!ledger.flush()) throw std::runtime_error("cannot write the installer's ledger");
}

void ApplicationDevice::make_data(const InstalledApplication& application) {
  make_owned_folder(application.data(), 0770, user("apps"), application.group);
  for (const char* name : {"/data", "/logs", "/tmp"}) {
    make_owned_folder(application.data() + name, 0770, application.data_user(), application.group);
  }
}

void ApplicationDevice::add_file(const InstalledApplication& application, const std::string& path,
                                 const std::string& content, mode_t mode) {
  const std::string file = application.folder() + "/" + path;
  make_owned_folder(stdfs::path(file).parent_path(), 0750, user("apps"), application.group);
  write_owned(file, content, mode, user("apps"), application.group);
}

void ApplicationDevice::add_data(const InstalledApplication& application, const std::string& path,
                                 const std::string& content, mode_t mode) {
  if (!exists(application.data())) make_data(application);
  const std::string file = application.data() + "/" + path;
  make_owned_folder(stdfs::path(file).parent_path(), 0770, application.data_user(), application.group);
  write_owned(file, content, mode, application.data_user(), application.group);
}

void ApplicationDevice::make_owned_folder(const std::string& path, mode_t mode, uid_t user, gid_t group) {
  if (exists(path)) return;
  make_owned_folder(stdfs::path(path).parent_path(), mode, user, group);
  require(::mkdir(outside(path).c_str(), 0700) != -1, path);
  require(::lchown(outside(path).c_str(), user, group) != -1, path);
  require(::chmod(outside(path).c_str(), mode) != -1, path);
}

void ApplicationDevice::make_owned_link(const std::string& path, const std::string& target, uid_t user,
                                        gid_t group) {
  require(::symlink(target.c_str(), outside(path).c_str()) != -1, path);
  require(::lchown(outside(path).c_str(), user, group) != -1, path);
}

void ApplicationDevice::write_owned(const std::string& path, const std::string& content, mode_t mode,
                                    uid_t user, gid_t group) {
  const stdfs::path file = outside(path);
  if (!(std::ofstream(file, std::ios::binary) << content).flush()) {
    throw std::runtime_error("cannot write " + path);
  }
  require(::chown(file.c_str(), user, group) != -1, path);
  require(::chmod(file.c_str(), mode) != -1, path);
}

void ApplicationDevice::ask_faults(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  make_owned_folder(NOTES, 0755, 0, 0);
  write_owned(FAULTS, text, 0644, 0, 0);
}

std::vector<std::string> ApplicationDevice::registered() const {
  std::vector<std::string> lines = lines_of(read(LIST));
  std::erase_if(lines, [](const std::string& line) { return line.starts_with('@'); });
  return lines;
}

std::vector<std::string> ApplicationDevice::requests_left() const { return lines_of(read(REQUESTS)); }

Snapshot ApplicationDevice::everything_but(const std::vector<std::string>& folders) const {
  Snapshot rest;
  for (const char* top : {"/accounts", "/apps", "/base", "/etc", "/opt", "/root", "/tmp", "/var"}) {
    for (auto& [path, item] : snapshot(top)) {
      std::string full = std::string(top) + "/" + path;
      if (!lies_below(full, folders) && !lies_below(full, {"/var/installer", NOTES})) {
        rest.emplace(std::move(full), std::move(item));
      }
    }
  }
  return rest;
}

std::vector<std::string> ApplicationDevice::names(const std::string& archive) const {
  const Outcome outcome = run_program({"tar", "--quoting-style=literal", "-Ptf", outside(archive)});
  if (outcome.status != 0) throw std::runtime_error("cannot list " + archive + ": " + outcome.errors);
  return lines_of(outcome.output);
}

std::string ApplicationDevice::content(const std::string& archive, const std::string& name) const {
  const Outcome outcome = run_program({"tar", "-PxOf", outside(archive), name});
  if (outcome.status != 0) throw std::runtime_error("no " + name + " in " + archive + ": " + outcome.errors);
  return outcome.output;
}

}  // namespace harbix::test
