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

namespace installer {
namespace {

[[noreturn]] void refuse(const std::string& action, const std::string& path, int error) {
  throw std::system_error(error, std::generic_category(), "cannot " + action + " '" + path + "'");
}

void write_file(const std::string& path, std::string_view text) {
  base::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!file) refuse("create", path, errno);
  while (!text.empty()) {
    const ssize_t written = ::write(file.get(), text.data(), text.size());
    if (written == -1 && errno == EINTR) continue;
    if (written == -1) refuse("write", path, errno);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  if (const int error = file.close(); error != 0) refuse("write", path, error);
}

}  // namespace

Ledger read_ledger(const std::string& folder) {
  const std::string path = folder + "/" + LEDGER_NAME;
  const base::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file && errno == ENOENT) return {};
  if (!file) refuse("open", path, errno);
  std::string text;
  std::array<char, 65536> piece = {};
  for (;;) {
    const ssize_t count = ::read(file.get(), piece.data(), piece.size());
    if (count == -1 && errno == EINTR) continue;
    if (count == -1) refuse("read", path, errno);
    if (count == 0) return Ledger::parse(text);
    text.append(piece.data(), static_cast<std::size_t>(count));
  }
}

void write_ledger(const std::string& folder, const Ledger& ledger) {
  if (::mkdir(folder.c_str(), 0755) == -1 && errno != EEXIST) refuse("create the folder", folder, errno);
  const std::string path = folder + "/" + LEDGER_NAME;
  const std::string unfinished = path + ".unfinished";
  write_file(unfinished, ledger.text());
  if (std::rename(unfinished.c_str(), path.c_str()) != 0) refuse("replace", path, errno);
}

}  // namespace installer
