#include "device/installer/ledger_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>

#include "base/file_descriptor.h"
#include "device/refuse.h"

namespace installer {
namespace {

void write_file(const std::string& path, std::string_view text) {
  base::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!file) device::refuse(errno, "create", path);
  while (!text.empty()) {
    const ssize_t written = ::write(file.get(), text.data(), text.size());
    if (written == -1 && errno == EINTR) continue;
    if (written == -1) device::refuse(errno, "write", path);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  if (const int error = file.close(); error != 0) device::refuse(error, "write", path);
}

}  // namespace

Ledger read_ledger(const std::string& folder) {
  const std::string path = folder + "/" + LEDGER_NAME;
  const base::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file && errno == ENOENT) return {};
  if (!file) device::refuse(errno, "open", path);
  std::string text;
  std::array<char, 65536> piece = {};
  for (;;) {
    const ssize_t count = ::read(file.get(), piece.data(), piece.size());
    if (count == -1 && errno == EINTR) continue;
    if (count == -1) device::refuse(errno, "read", path);
    if (count == 0) return Ledger::parse(text);
    text.append(piece.data(), static_cast<std::size_t>(count));
  }
}

void write_ledger(const std::string& folder, const Ledger& ledger) {
  if (::mkdir(folder.c_str(), 0755) == -1 && errno != EEXIST)
    device::refuse(errno, "create the folder", folder);
  const std::string path = folder + "/" + LEDGER_NAME;
  const std::string unfinished = path + ".unfinished";
  write_file(unfinished, ledger.text());
  if (std::rename(unfinished.c_str(), path.c_str()) != 0) device::refuse(errno, "replace", path);
}

}  // namespace installer
