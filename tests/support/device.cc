#include "tests/support/device.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/require.h"

namespace harbix::test {
namespace {

namespace stdfs = std::filesystem;

constexpr int SEVERITY_MASK = 7;

/// The id in an account file of lines "NAME:PASSWORD:ID:...".
unsigned find_id(const stdfs::path& file, const std::string& name) {
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string field;
    std::string id;
    if (std::getline(fields, field, ':') && field == name && std::getline(fields, field, ':') &&
        std::getline(fields, id, ':')) {
      return static_cast<unsigned>(std::stoul(id));
    }
  }
  throw std::runtime_error("no account " + name);
}

}  // namespace

Device::Device() {
  if (const Outcome outcome = run({"true"}); outcome.status != 0) {
    throw std::runtime_error("no simulated device: " + outcome.errors);
  }
}

Outcome Device::run(const std::vector<std::string>& command, const std::string& input) {
  std::vector<std::string> words{HARBIX_DEVICE_PROGRAM, "--bare", "--state",
                                 folder_ / "device",    "--log",  folder_ / "log"};
  words.insert(words.end(), command.begin(), command.end());
  return run_program(words, input);
}

Outcome Device::harbix(const std::vector<std::string>& arguments, const std::string& input) {
  std::vector<std::string> command{"harbix"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return run(command, input);
}

Outcome Device::shell(const std::string& script, const std::string& input) {
  return run({"bash", "-c", script}, input);
}

stdfs::path Device::outside(const std::string& path) const { return folder_ / "device" + path; }

void Device::write(const std::string& path, const std::string& content, mode_t mode) {
  const stdfs::path file = outside(path);
  if (!stdfs::exists(file.parent_path())) make_folder(stdfs::path(path).parent_path());
  std::ofstream(file, std::ios::binary) << content;
  require(::chmod(file.c_str(), mode) != -1, path);
  own(path, "media", "1000_shared");
}

void Device::make_folder(const std::string& path, mode_t mode) {
  if (!exists(stdfs::path(path).parent_path())) make_folder(stdfs::path(path).parent_path(), mode);
  stdfs::create_directory(outside(path));
  require(::chmod(outside(path).c_str(), mode) != -1, path);
  own(path, "media", "1000_shared");
}

void Device::link(const std::string& path, const std::string& target) const {
  stdfs::create_symlink(target, outside(path));
  own(path, "media", "1000_shared");
}

void Device::own(const std::string& path, const std::string& user_name, const std::string& group_name) const {
  require(::lchown(outside(path).c_str(), user(user_name), group(group_name)) != -1, path);
}

std::string Device::read(const std::string& path) const {
  std::ifstream stream(outside(path), std::ios::binary);
  if (!stream) throw std::runtime_error("cannot read " + path);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

bool Device::exists(const std::string& path) const {
  return stdfs::symlink_status(outside(path)).type() != stdfs::file_type::not_found;
}

Snapshot Device::snapshot(const std::string& path) const { return take_snapshot(outside(path)); }

uid_t Device::user(const std::string& name) const { return find_id(outside("/etc/passwd"), name); }

gid_t Device::group(const std::string& name) const { return find_id(outside("/etc/group"), name); }

std::vector<LogLine> Device::log() const {
  std::vector<LogLine> lines;
  std::ifstream stream(folder_ / "log", std::ios::binary);
  for (std::string line; std::getline(stream, line);) {
    const std::size_t tag = line.find("harbix[");
    if (!line.starts_with('<') || tag == std::string::npos) continue;
    lines.push_back(
        {.code = 0, .severity = std::stoi(line.substr(1)) & SEVERITY_MASK, .text = line.substr(tag)});
  }
  return lines;
}

std::vector<std::string> Device::logged(int priority) const {
  std::vector<std::string> messages;
  for (const LogLine& line : log()) {
    if (line.severity == priority) messages.push_back(line.message());
  }
  return messages;
}

}  // namespace harbix::test
