#include "settings/script_lists.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/report.h"
#include "fs/exception.h"
#include "fs/walk.h"
#include "subscribers/subscribers.h"

namespace harbix {
namespace {

using subscribers::SubscriberManager;

constexpr std::size_t LINE_CAPACITY = 1024;
constexpr std::string_view WHITE_SPACE = " \t\n\r\f\v";

struct PipeCloser {
  // How a script ended does not matter: what it printed counts.
  void operator()(std::FILE* pipe) const noexcept { static_cast<void>(::pclose(pipe)); }
};
using Pipe = std::unique_ptr<std::FILE, PipeCloser>;

/// What lies directly in the scripts' folder; a missing one means no scripts.
std::vector<fs::Path> script_paths() {
  std::vector<fs::Path> scripts;
  const fs::Path& path = SubscriberManager::FSSETTINGSSCRIPTROOT;
  std::optional<fs::Folder> folder;
  try {
    folder.emplace(path);
  } catch (const fs::Exception& failure) {
    if (failure.error() == ENOENT) return scripts;
    throw;
  }
  fs::Walk walk(*folder, {}, path);
  while (const fs::WalkItem* item = walk.next()) {
    walk.stay_out();
    if (item->failure) throw fs::Exception(*item->failure);
    if (!item->file.is_directory()) scripts.push_back(item->file.path());
  }
  return scripts;
}

std::string_view without_newline(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  return line;
}

void take_line(std::string_view line, const fs::Path& script, const std::string& tag,
               std::vector<fs::Path>& paths) {
  if (!line.starts_with(tag)) {
    std::cerr << "script log: " << script << ": " << line;
    return;
  }
  std::string_view path = without_newline(line).substr(tag.size());
  path.remove_prefix(std::min(path.find_first_not_of(WHITE_SPACE), path.size()));
  if (!path.starts_with(fs::Path::SEPARATOR)) {
    std::cerr << "Empty " << tag << " line or non-absolute path detected in " << script << '\n';
    return;
  }
  report::progress("Adding ", path, " to the settings ", tag);
  paths.emplace_back(path);
}

void run_script(const fs::Path& script, const std::string& tag, std::vector<fs::Path>& paths) {
  report::progress("System client b&r settings script:  ", script);
  const std::string command = script.text() + " " + tag + " 2>&1 < /dev/null";
  // The shell is the interface: scripts come from the device's read-only system folder.
  const Pipe pipe(::popen(command.c_str(), "r"));  // NOLINT(cert-env33-c): see above
  if (pipe == nullptr) {
    const int error = errno;
    std::cerr << "Could not popen b&r settings script " << script << '\n';
    // Without its lines the blacklist would let private settings pass.
    throw fs::Exception(error, "Settings script '" + script.text() + "' could not be started.");
  }
  std::array<char, LINE_CAPACITY> line{};
  while (std::fgets(line.data(), line.size(), pipe.get()) != nullptr)
    take_line(line.data(), script, tag, paths);
  if (std::ferror(pipe.get()) != 0) {
    const int error = errno;
    throw fs::Exception(error, "Settings script '" + script.text() + "' could not be read to its end.");
  }
}

std::vector<fs::Path> run_scripts(const std::string& tag) {
  std::vector<fs::Path> paths;
  for (const fs::Path& script : script_paths()) run_script(script, tag, paths);
  return paths;
}

}  // namespace

const std::vector<fs::Path>& settings_script_list(ScriptList list) {
  static std::vector<fs::Path> whitelist;
  static std::vector<fs::Path> blacklist;
  const bool is_whitelist = list == ScriptList::WHITELIST;
  std::vector<fs::Path>& paths = is_whitelist ? whitelist : blacklist;
  if (paths.empty()) {
    paths = run_scripts(is_whitelist ? SubscriberManager::whitelist_tag : SubscriberManager::blacklist_tag);
  }
  return paths;
}

bool begins_with_any(const fs::Path& path, const std::vector<fs::Path>& prefixes) {
  return std::ranges::any_of(
      prefixes, [&path](const fs::Path& prefix) { return path.text().starts_with(prefix.text()); });
}

bool is_blacklisted(const fs::Path& path, const std::vector<fs::Path>& blacklist) {
  return begins_with_any(path, blacklist);
}

}  // namespace harbix
