#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "device/installer/ledger.h"
#include "device/tree_writer.h"

namespace device {

/// Fills the two folders of one installed application: its binaries below /apps, of the user apps, and its
/// data below /accounts/1000/appdata, of a user of its own; both of the application's group. Paths are
/// relative to the folder: "native/main", "data/settings".
class ApplicationFolders {
 public:
  ApplicationFolders(TreeWriter& tree, const installer::Application& application);

  /// Makes the binaries' folder with what every package has: META-INF/MANIFEST.MF, and the empty folders
  /// native and public.
  void make_binaries();
  void folder(std::string_view path);
  /// A file whose `size` bytes depend on its path alone.
  void file(std::string_view path, std::uint64_t size, mode_t mode = 0640);
  void text_file(std::string_view path, std::string_view content, mode_t mode = 0640);
  void link(std::string_view path, std::string_view target);

  /// Makes the data folder with data, logs and tmp, all empty.
  void make_data();
  void data_folder(std::string_view path);
  void data_file(std::string_view path, std::uint64_t size, mode_t mode = 0660);
  void data_text_file(std::string_view path, std::string_view content, mode_t mode = 0660);
  void data_link(std::string_view path, std::string_view target);

 private:
  [[nodiscard]] std::string in_binaries(std::string_view path) const;
  [[nodiscard]] std::string in_data(std::string_view path) const;

  TreeWriter& tree_;
  const installer::Application& application_;
  Owner owner_;
  Owner data_owner_;
};

}  // namespace device
