#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "device/installer/ledger.h"
#include "device/tree_writer.h"

namespace device {

/// A folder of an installed application, all of one owner. Paths are relative to it: "native/main".
class ApplicationFolder {
 public:
  struct Modes {
    mode_t folder;
    mode_t file;  ///< of files that are given none
  };

  /// Of the folder at `path` of the tree, which exists.
  ApplicationFolder(TreeWriter& tree, std::string path, Owner owner, Modes modes);

  void folder(std::string_view path);
  /// A file whose `size` bytes depend on its path alone.
  void file(std::string_view path, std::uint64_t size, std::optional<mode_t> mode = {});
  void text_file(std::string_view path, std::string_view content, std::optional<mode_t> mode = {});
  void link(std::string_view path, std::string_view target);

 private:
  [[nodiscard]] std::string inside(std::string_view path) const;

  TreeWriter& tree_;
  std::string path_;
  Owner owner_;
  Modes modes_;
};

/// Makes the folder of an application's binaries, below /apps, of the user apps and the application's group,
/// with what every package has: META-INF/MANIFEST.MF, and the empty folders native and public.
ApplicationFolder make_binaries(TreeWriter& tree, const installer::Application& application);

/// Makes the folder of an application's data, below /accounts/1000/appdata, with data, logs and tmp, all
/// empty, of a user of the application's own and its group.
ApplicationFolder make_data(TreeWriter& tree, const installer::Application& application);

}  // namespace device
