#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <exception>
#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/file_descriptor.h"
#include "device/accounts.h"
#include "device/installer/installer.h"
#include "device/installer/object.h"
#include "device/installer/request_desk.h"
#include "device/installer/request_watch.h"
#include "device/option_reader.h"
#include "device/refuse.h"

namespace {

constexpr int USAGE_STATUS = 2;

// The paths that clients know.
constexpr const char* REQUESTS = "/pps/system/installer/upd/current";
constexpr const char* CONTROL = "/pps/system/installer/control";
constexpr const char* STATUS = "/pps/system/installer/status";
constexpr const char* APPLICATION_LIST = "/pps/system/installer/registeredapps/.all";

struct Directory {
  const char* path;
  device::Owner owner;
  mode_t mode;
};
// Parents stand before what is in them.
constexpr device::Owner UPD_OWNER = {.user = device::UPD_USER, .group = device::UPD_GROUP};
constexpr std::array DIRECTORIES = {
    Directory{"/pps/system", device::ROOT_OWNER, 0755},
    Directory{"/pps/system/installer", device::ROOT_OWNER, 0755},
    Directory{"/pps/system/installer/registeredapps", device::ROOT_OWNER, 0755},
    Directory{"/pps/system/installer/upd", UPD_OWNER, 0755},
    Directory{REQUESTS, UPD_OWNER, 0775},
};

void make_directories() {
  for (const Directory& directory : DIRECTORIES) {
    if (::mkdir(directory.path, directory.mode) == -1) {
      if (errno == EEXIST) continue;
      device::refuse(errno, "create the directory", directory.path);
    }
    if (::chown(directory.path, directory.owner.user, directory.owner.group) == -1) {
      device::refuse(errno, "set the owner of", directory.path);
    }
    // mkdir has applied the mask.
    if (::chmod(directory.path, directory.mode) == -1)
      device::refuse(errno, "set the mode of", directory.path);
  }
}

void publish_list(const std::string& lines) {
  // A list that never held anything is no object yet: the name line comes with the first attribute. This one
  // is no application's name, and goes with the same write.
  constexpr std::string_view NOTHING = ".::\n-.\n";
  const bool is_object = !installer::read_object(APPLICATION_LIST).value_or("").empty();
  installer::publish_object(APPLICATION_LIST, (is_object ? "" : std::string(NOTHING)) + lines);
}

/// Counts the starts since the device was started.
void count_start() {
  const installer::Attributes status =
      installer::parse_attributes(installer::read_object(STATUS).value_or(""));
  const std::string before = installer::value_of(status, "starts");
  int number = 0;
  // No number, 0, when it is the first.
  static_cast<void>(std::from_chars(before.data(), before.data() + before.size(), number));
  ++number;
  installer::publish_object(STATUS, "[n]starts:n:" + std::to_string(number) + "\n");
}

void tell_ready(base::FileDescriptor descriptor) {
  if (::write(descriptor.get(), "\n", 1) != 1)
    device::refuse(errno, "tell that it is ready through", "--ready-fd");
}

/// Serves until the file system goes away, which it tells by an exception.
[[noreturn]] void serve(std::optional<int> ready) {
  ::umask(022);
  make_directories();
  installer::Installer installer(
      {}, {.publish = publish_list, .is_reserved = [](gid_t gid) { return ::getgrgid(gid) != nullptr; }});
  installer.publish_all();
  const installer::RequestDesk desk(
      REQUESTS, CONTROL, [&](const installer::Request& request) { return installer.carry_out(request); });
  count_start();
  for (;;) {
    installer::RequestWatch watch(REQUESTS);
    if (ready) tell_ready(base::FileDescriptor(*std::exchange(ready, std::nullopt)));
    // What was asked before the watch began.
    desk.look_at_all();
    while (const std::optional<std::string> name = watch.next()) desk.look_at(*name);
    make_directories();
    installer.publish_all();
  }
}

/// In one write, so that the lines of several services do not mix. A line that cannot be written is lost: the
/// status tells enough.
void report(const std::exception& error) {
  static_cast<void>(std::fprintf(stderr, "harbix-installer: %s\n", error.what()));
}

/// Shape: "harbix-installer [--ready-fd N]". @throws device::WrongOption when the arguments do not fit.
std::optional<int> parse(std::span<char* const> arguments) {
  std::optional<int> ready;
  const std::array options = {
      device::Option{.name = "ready-fd",
                     .has_value = true,
                     .take = [&](const auto& v) { ready = device::parse_descriptor(v); }},
  };
  const std::vector<std::string> operands =
      device::read_options(options, {arguments.begin() + 1, arguments.end()});
  if (!operands.empty()) throw device::WrongOption("unknown operand '" + operands.front() + "'");
  return ready;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    serve(parse({argv, static_cast<std::size_t>(argc)}));
  } catch (const device::WrongOption& problem) {
    std::cerr << "harbix-installer: " << problem.what() << "; usage: harbix-installer [--ready-fd N]"
              << std::endl;
    return USAGE_STATUS;
  } catch (const std::system_error& error) {
    // The device ends, or has lost more than this service.
    if (installer::is_unserved(error.code())) return 0;
    report(error);
  } catch (const std::exception& error) {
    report(error);
  }
  return 1;
}
