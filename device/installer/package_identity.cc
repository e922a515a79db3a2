#include "device/installer/package_identity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "base/file_descriptor.h"
#include "device/installer/refusal.h"

namespace installer {
namespace {

constexpr std::size_t LARGEST_MANIFEST = 1 << 20;

void check_field(std::string_view name, const std::string& value) {
  if (!value.empty() && value.find(',') == std::string::npos) return;
  throw Refusal("the manifest's " + std::string(name) + " '" + value + "' cannot be used");
}

[[noreturn]] void refuse_manifest(const std::string& path, int error) {
  throw Refusal("cannot read '" + path + "': " + std::generic_category().message(error));
}

std::string manifest_text(const std::string& path) {
  // Something that is no plain file must neither hold the installer up nor lead it elsewhere.
  const base::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && (errno == ENOENT || errno == ENOTDIR || errno == ELOOP || errno == ENXIO)) return "";
  if (!file) refuse_manifest(path, errno);
  struct stat status = {};
  if (::fstat(file.get(), &status) == -1) refuse_manifest(path, errno);
  if (!S_ISREG(status.st_mode)) return "";
  std::string text(LARGEST_MANIFEST + 1, '\0');
  std::size_t size = 0;
  while (size < text.size()) {
    const ssize_t count = ::read(file.get(), text.data() + size, text.size() - size);
    if (count == -1 && errno == EINTR) continue;
    if (count == -1) refuse_manifest(path, errno);
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  if (size > LARGEST_MANIFEST) refuse_manifest(path, EFBIG);
  text.resize(size);
  return text;
}

}  // namespace

PackageIdentity parse_package_manifest(std::string_view text, std::string_view id) {
  constexpr std::string_view NAME = "Package-Name";
  constexpr std::string_view VERSION = "Package-Version";
  constexpr std::string_view SEPARATOR = ": ";
  PackageIdentity identity{.name = std::string(id), .version = "0.0.0.0"};
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::string_view key = line.substr(0, line.find(SEPARATOR));
    if (key.size() == line.size()) continue;
    const std::string_view value = line.substr(key.size() + SEPARATOR.size());
    if (key == NAME) identity.name = value;
    if (key == VERSION) identity.version = value;
  }
  check_field(NAME, identity.name);
  check_field(VERSION, identity.version);
  return identity;
}

PackageIdentity read_package_identity(const std::string& folder, std::string_view id) {
  return parse_package_manifest(manifest_text(folder + "/META-INF/MANIFEST.MF"), id);
}

}  // namespace installer
