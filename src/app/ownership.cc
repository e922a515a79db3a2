#include "app/ownership.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <span>
#include <string>
#include <vector>

#include "base/flags.h"
#include "base/log.h"
#include "fs/exception.h"
#include "fs/tree.h"

namespace harbix {
namespace {

constexpr mode_t PERMISSIONS = 07777;

/// In large pieces: standard error is not buffered, and an application can have a million files.
void list_paths(std::span<const fs::File> files) {
  constexpr std::size_t PIECE = std::size_t{64} << 10;
  std::string text;
  for (const fs::File& file : files) {
    text += file.path().text();
    text += '\n';
    if (text.size() < PIECE) continue;
    std::cerr << text;
    text.clear();
  }
  std::cerr << text;
}

}  // namespace

void apply_ownership(const Ownership& ownership, const fs::File& file) {
  const fs::Path& path = file.path();
  if (const fs::Path name = path.basename(); name == fs::Path::current() || name == fs::Path::parent()) {
    return;
  }
  if (verbose) {
    std::cerr << "Applying ownership " << ownership.user << ':' << ownership.group << " to " << path << '\n';
  }
  const mode_t found = file.record().st_mode & PERMISSIONS;
  const mode_t mode = found & ownership.mode;
  if (!file.is_symbolic_link() && mode != found && ::chmod(path.c_str(), mode) == -1) {
    const int error = errno;
    std::cerr << "ERROR applying permissions to " << path << " (" << std::strerror(error) << ")\n";
    throw fs::Exception(error, "Applying perms. to " + path.text());
  }
  if (::lchown(path.c_str(), ownership.user, ownership.group) == -1) {
    const int error = errno;
    std::cerr << "ERROR applying ownership to " << path << " (" << std::strerror(error) << ")\n";
    diagnostics::line(0, "ERROR applying ownership to %s ('%s')", path.c_str(), std::strerror(error));
    // Odd on purpose: callers match this text.
    throw fs::Exception(error, "Applying exception to " + path.text());
  }
}

void apply_ownership_recursively(const Ownership& ownership, const fs::Path& root) {
  const std::vector<fs::File> files = fs::list_tree(root, fs::Descent::DEFERRED, fs::Tolerance::STRICT);
  list_paths(files);
  std::for_each(files.rbegin(), files.rend(),
                [&ownership](const fs::File& file) { apply_ownership(ownership, file); });
}

}  // namespace harbix
