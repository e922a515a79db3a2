#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/device.h"
#include "tests/support/text.h"

namespace harbix::test {

/// An application as the installer knows it.
struct InstalledApplication {
  std::string id;       ///< name of its folders below /apps and /accounts/1000/appdata
  std::string package;  ///< its own name
  gid_t group = 0;
  std::string extras = "source::shopvale";
  std::string version = "1.0.0.0";

  [[nodiscard]] std::string folder() const { return "/apps/" + id; }
  [[nodiscard]] std::string data() const { return "/accounts/1000/appdata/" + id; }
  [[nodiscard]] uid_t data_user() const { return group * 10000 + 1000; }
};

/// One application of each source: from the storefront, loaded from elsewhere, built in.
[[nodiscard]] InstalledApplication bought_application();
[[nodiscard]] InstalledApplication loaded_application();
[[nodiscard]] InstalledApplication built_in_application();

/// A bare device that applications can be put on from outside, as long as nothing runs inside.
class ApplicationDevice : public Device {
 public:
  /// As a device's own, with the faults that were asked for; what the installer lists and is still asked at
  /// the end is kept, for it goes with the run.
  Outcome run(const std::vector<std::string>& command, const std::string& input = "");
  Outcome harbix(const std::vector<std::string>& arguments, const std::string& input = "");
  Outcome shell(const std::string& script, const std::string& input = "");

  /// Makes the application's folder, with its package manifest, and enters it in the installer's ledger, so
  /// that the next run lists it.
  void install(const InstalledApplication& application);
  /// As install, for an application that has lost its folder.
  void enter(const InstalledApplication& application);
  /// Makes the folder of the application's data and the three below it.
  void make_data(const InstalledApplication& application);

  /// Creates a file of the application, with the folders above it.
  void add_file(const InstalledApplication& application, const std::string& path, const std::string& content,
                mode_t mode = 0640);
  /// Creates a file of its data, with the folders above it: "data/x", "logs/x".
  void add_data(const InstalledApplication& application, const std::string& path, const std::string& content,
                mode_t mode = 0660);
  /// Makes a folder, with those above it, and a link, for these owners.
  void make_owned_folder(const std::string& path, mode_t mode, uid_t user, gid_t group);
  void make_owned_link(const std::string& path, const std::string& target, uid_t user, gid_t group);
  void write_owned(const std::string& path, const std::string& content, mode_t mode, uid_t user, gid_t group);

  /// Replaces the faults that the installer is asked for in every run: lines such as "refuse::query".
  void ask_faults(const std::vector<std::string>& lines);

  /// The installer's list as it was at the end of the last run, without the line that names the object.
  [[nodiscard]] std::vector<std::string> registered() const;
  /// The request objects that were left when the last run ended.
  [[nodiscard]] std::vector<std::string> requests_left() const;

  /// Everything on the device that no application's restore may touch: all but what lies below the given
  /// folders, the installer's books and temporary files of the test's own.
  [[nodiscard]] Snapshot everything_but(const std::vector<std::string>& folders) const;

  /// The names of an archive's entries, in their order.
  [[nodiscard]] std::vector<std::string> names(const std::string& archive) const;
  /// The content of one entry.
  [[nodiscard]] std::string content(const std::string& archive, const std::string& name) const;
};

inline constexpr char APPLICATION_DATA[] = "/accounts/1000/appdata";

}  // namespace harbix::test
