#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/folder.h"
#include "tests/support/log_line.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {

/// A simulated device of a test's own, without sample content, in a temporary folder that goes with it. Its
/// files can be looked at and changed from outside; programs run inside.
class Device {
 public:
  Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  Device(Device&&) = delete;
  Device& operator=(Device&&) = delete;

  /// Runs a command on the device; its log lines replace those of the run before.
  Outcome run(const std::vector<std::string>& command, const std::string& input = "");
  /// Runs harbix with these arguments.
  Outcome harbix(const std::vector<std::string>& arguments, const std::string& input = "");
  /// Runs a shell script.
  Outcome shell(const std::string& script, const std::string& input = "");

  /// Where a path of the device lies outside.
  [[nodiscard]] std::filesystem::path outside(const std::string& path) const;

  /// Creates a file, with its parents, for the media user; own() gives it to another.
  void write(const std::string& path, const std::string& content, mode_t mode = 0660);
  void make_folder(const std::string& path, mode_t mode = 0770);
  void link(const std::string& path, const std::string& target) const;
  void own(const std::string& path, const std::string& user, const std::string& group) const;
  [[nodiscard]] std::string read(const std::string& path) const;
  [[nodiscard]] bool exists(const std::string& path) const;
  [[nodiscard]] Snapshot snapshot(const std::string& path) const;

  [[nodiscard]] uid_t user(const std::string& name) const;
  [[nodiscard]] gid_t group(const std::string& name) const;

  /// What harbix sent to the system log in the last run.
  [[nodiscard]] std::vector<LogLine> log() const;
  /// The messages of the log at one syslog severity.
  [[nodiscard]] std::vector<std::string> logged(int priority) const;

 private:
  TemporaryFolder folder_;
};

inline constexpr char SHARED[] = "/accounts/1000/shared";
inline constexpr char DTM[] = "/accounts/1000/sys/dtm";
inline constexpr char NAVIGATOR_DATA[] = "/accounts/1000/appdata/sys.navigator";
inline constexpr char SETTINGS[] = "/accounts/1000/settings";
inline constexpr char SCRIPTS[] = "/base/scripts/backup_and_restore";
inline constexpr char SETTINGS_SCRIPTS[] = "/base/scripts/backup_and_restore/settings";

/// The path of what is called `path` in the shared media.
inline std::string shared(const std::string& path) { return std::string(SHARED) + "/" + path; }

inline constexpr int LOG_PRIORITY_ERROR = 3;
inline constexpr int LOG_PRIORITY_WARNING = 4;
inline constexpr int LOG_PRIORITY_NOTICE = 5;
inline constexpr int LOG_PRIORITY_INFO = 6;
inline constexpr int LOG_PRIORITY_DEBUG = 7;

}  // namespace harbix::test
