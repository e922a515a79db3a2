#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <iostream>
#include <span>
#include <system_error>

#include "device/pps/server/command_line.h"
#include "device/pps/server/server.h"
#include "device/pps/server/session.h"
#include "device/pps/server/stop_signals.h"

namespace {

constexpr int USAGE_STATUS = 2;

void tell_ready(base::FileDescriptor descriptor) {
  if (::write(descriptor.get(), "\n", 1) != 1) {
    throw std::system_error(errno, std::generic_category(), "cannot tell that the mount is ready");
  }
}

int serve(const pps::server::CommandLine& command) {
  ::umask(0);  // clients' masks are applied by the kernel; the store keeps the modes they chose
  const pps::server::StopSignals stop;
  pps::server::Server server(command.store, command.passing);
  server.hanging_objects = {command.hanging.begin(), command.hanging.end()};
  {
    pps::server::Session session(server, command.mount_point);
    if (command.ready_fd) tell_ready(base::FileDescriptor(*command.ready_fd));
    session.serve(stop.descriptor());
  }
  const int refused = server.catalog.save_all();
  if (refused != 0) std::cerr << "harbix-pps: " << refused << " objects could not be saved\n";
  return refused == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::span<char* const> arguments(argv, static_cast<std::size_t>(argc));
  const auto command = pps::server::parse_command_line(arguments, std::cerr);
  if (!command) return USAGE_STATUS;
  try {
    return serve(*command);
  } catch (const std::exception& error) {
    // In one write, so that the lines of several services do not mix. A line that cannot be written is lost:
    // the status tells enough.
    static_cast<void>(std::fprintf(stderr, "harbix-pps: %s\n", error.what()));
    return 1;
  }
}
