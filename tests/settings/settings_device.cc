#include "tests/settings/settings_device.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/support/text.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

/// Scripts are left to run in the background at the end of a backup or restore: nothing may be taken from
/// under them, for ten seconds at most.
void let_scripts_end() {
  const auto is_under_way = [] {
    const std::string events = read_file("/events");
    return count_of(events, "_start\n") > count_of(events, "_end\n");
  };
  for (int i = 0; i < 1000 && is_under_way(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

}  // namespace

void SettingsDevice::set_up_root() const {
  for (const char* folder : {"/var/pps", "/pps", SETTINGS_SCRIPTS})
    std::filesystem::create_directories(folder);
  write_file("/events", "");
}

void SettingsDevice::leave_root() const { let_scripts_end(); }

void put_object(const std::string& name, const std::string& text) {
  put("/var" + name, text);
  put(name, text);
}

void put_script(const std::string& name, const std::string& commands) {
  const std::string path = SETTINGS_SCRIPTS + ("/" + name);
  // One of that name may still be running: it stays what it is.
  std::filesystem::remove(path);
  put(path, "#!/bin/sh\n" + commands);
  ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
}

std::string naming(const std::vector<std::string>& whitelist, const std::vector<std::string>& blacklist) {
  const auto printing = [](const char* tag, const std::vector<std::string>& paths) {
    std::string commands = std::string(tag) + ")\ncat <<'END'\n";
    for (const std::string& path : paths) commands.append(tag).append(" ").append(path).append("\n");
    return commands + "END\n;;\n";
  };
  return "case $1 in\n" + printing("whitelist", whitelist) + printing("blacklist", blacklist) +
         "*) echo $1 >> /events ;;\nesac\n";
}

std::string events_in_the_end(const std::string& expected) {
  for (int i = 0; i < 1000 && read_file("/events") != expected; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return read_file("/events");
}

std::string sorted_lines(std::vector<std::string> texts) {
  std::ranges::sort(texts);
  std::string lines;
  for (const std::string& text : texts) lines += text + "\n";
  return lines;
}

}  // namespace harbix::test
