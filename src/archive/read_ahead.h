#pragma once

#include <cstddef>

#include "archive/item_list.h"
#include "fs/folder.h"
#include "fs/path.h"

namespace harbix {

/// Tells the system which files of a package are read next, so that a disk fetches several of them at once
/// while one is archived: read one after the other, each would be waited for.
///
/// That is all that it does. Each item is opened and judged when its turn comes, as if nothing had been
/// announced, and no failure here is one of the backup. A file is opened only for as long as it takes to
/// announce it. What is in memory already, which announcing would only slow down, is left alone: as long as
/// the process does not have to wait for a disk, nothing is announced.
class ReadAhead {
 public:
  /// The items lie below `folder`; of those that `is_on_disk` does not take by their path nothing is opened.
  /// All must outlive this object. To be made before the items are listed: a disk that had to be asked for
  /// their names has to be asked for their contents as well.
  ReadAhead(const fs::Folder& folder, const ItemList& items,
            bool (*is_on_disk)(const fs::Path& path)) noexcept;

  /// To be called before each item, in order.
  void reach(std::size_t index) {
    if (index >= next_look_) look(index);
  }

 private:
  void look(std::size_t index);
  void announce(std::size_t begin);

  const fs::Folder& folder_;
  const ItemList& items_;
  bool (*is_on_disk_)(const fs::Path& path);
  long blocks_;                ///< that the process had read when it was last looked
  std::size_t next_look_ = 0;  ///< the item at which it is looked again whether disks are waited for
  std::size_t announced_ = 0;  ///< items up to here need no announcement any more
};

}  // namespace harbix
