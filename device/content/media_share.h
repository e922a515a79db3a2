#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "device/tree_writer.h"

namespace device {

/// What the media library takes a file for; the values are those of its column "ftype".
enum class MediaType { audio = 1, video = 2, photo = 4, recording = 6, other = 9 };

/// By the name's extension alone, in small letters: "a.mp3" is audio, "a.txt" other.
[[nodiscard]] MediaType media_type(std::string_view name);

/// One row of the media library.
struct MediaRecord {
  /// Below the shared folder: "Music/a.mp3".
  std::string path;
  std::uint64_t size = 0;
  MediaType type = MediaType::other;
};

/// Fills the shared media folder and notes what a media library would find in it: every plain file that the
/// media user can read and that is not protected. Paths are relative to the shared folder: "Music/a.mp3".
class MediaShare {
 public:
  explicit MediaShare(TreeWriter& tree) : tree_(tree) {}

  void folder(std::string_view path, mode_t mode = 0770);
  /// A file whose `size` bytes depend on its path alone.
  void file(std::string_view path, std::uint64_t size, mode_t mode = 0660);
  void text_file(std::string_view path, std::string_view content, mode_t mode = 0660);
  void sparse_file(std::string_view path, std::uint64_t size);
  void link(std::string_view path, std::string_view target);

  void protected_folder(std::string_view path);
  void protected_file(std::string_view path, std::uint64_t size);
  /// A file that a media library never finds, because a folder above it is locked.
  void hidden_file(std::string_view path, std::uint64_t size);

  [[nodiscard]] const std::vector<MediaRecord>& records() const noexcept { return records_; }

 private:
  void note(std::string_view path, std::uint64_t size, mode_t mode);

  TreeWriter& tree_;
  std::vector<MediaRecord> records_;
};

}  // namespace device
