#include "media/room.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "base/size_result.h"
#include "fs/file.h"
#include "fs/folder.h"
#include "fs/space.h"
#include "fs/walk.h"
#include "media/share.h"

namespace harbix {
namespace {

/// What a file takes on disk, or in an archive: files with holes take more there.
std::uint64_t larger_size(const struct ::stat& record) {
  constexpr std::uint64_t BLOCK_SIZE = 512;
  return std::max(static_cast<std::uint64_t>(record.st_blocks) * BLOCK_SIZE,
                  static_cast<std::uint64_t>(record.st_size));
}

/// The sizes of all files below a share. Top-level items whose names begin with a dot are in no backup, and
/// stay.
std::uint64_t occupied_bytes(const fs::Path& share) {
  fs::Folder folder(share);
  std::uint64_t bytes = 0;
  fs::Walk walk(folder, {}, {});
  while (const fs::WalkItem* item = walk.next()) {
    if (item->file.path().text().starts_with('.')) walk.stay_out();
    if (item->file.is_regular()) bytes = saturated_sum(bytes, larger_size(item->file.record()));
  }
  return bytes;
}

/// What has to find room in one or more shares of one file system.
class Demand {
 public:
  void add(const fs::Path& share, std::uint64_t bytes) {
    needed_ = saturated_sum(needed_, bytes);
    shares_.push_back(share);
  }

  void require_room() const {
    if (shares_.empty()) return;
    std::uint64_t room = fs::free_space(fs::Folder(shares_.front()));
    if (needed_ <= room) return;
    for (const fs::Path& share : shares_) room = saturated_sum(room, occupied_bytes(share));
    if (needed_ <= room) return;
    throw std::runtime_error("The media of the archive take " + std::to_string(needed_) +
                             " bytes, but at most " + std::to_string(room) + " bytes can be made free");
  }

 private:
  std::uint64_t needed_ = 0;
  std::vector<fs::Path> shares_;
};

}  // namespace

void require_room(const Survey& survey) {
  const fs::Path media(places::SHARED);
  const fs::Path dtm(places::DTM_SHARE);
  const std::array<fs::Path, 1> media_prefix{places::MEDIA_PREFIX};
  const std::array<fs::Path, 1> dtm_prefix{places::DTM_PREFIX};
  const std::uint64_t dtm_bytes = survey.file_bytes_below(dtm_prefix);
  Demand first;
  Demand second;
  first.add(media, survey.file_bytes_below(media_prefix));
  if (dtm_bytes > 0) {
    const bool is_one_disk = fs::File(media).record().st_dev == fs::File(dtm).record().st_dev;
    (is_one_disk ? first : second).add(dtm, dtm_bytes);
  }
  first.require_room();
  second.require_room();
}

}  // namespace harbix
