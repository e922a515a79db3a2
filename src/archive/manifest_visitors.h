#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "fs/tree.h"

namespace harbix {

/// Takes an item into a package; false for what no archive can hold, which is left out.
using ItemCollector = std::function<bool(const fs::File&)>;
/// Whether an item goes into a package.
using ItemPredicate = std::function<bool(const fs::File&)>;

/// Gathers the items of one package while a tree is walked: every path but "." and ".." is handed to the
/// collector and kept when that takes it, in the order met. What cannot be reached is handed to `unreachable`
/// and left out.
class CreateDtmShareManifest : public fs::TreeVisitor {
 public:
  using UnreachableHandler = std::function<void(const fs::Path&, const fs::Exception&)>;

  CreateDtmShareManifest(ItemCollector collect, UnreachableHandler unreachable);

  void operator()(const fs::File& item) override;
  void unreachable(const fs::Path& path, const fs::Exception& reason) override;

  [[nodiscard]] const std::vector<fs::Path>& paths() const noexcept { return paths_; }
  [[nodiscard]] std::vector<fs::Path> take_paths() noexcept { return std::move(paths_); }

 private:
  ItemCollector collect_;
  UnreachableHandler unreachable_;
  std::vector<fs::Path> paths_;
};

/// The same, for the items that a predicate accepts. A folder that is not accepted itself is entered all the
/// same, unless it may not be read: each item is judged by itself.
class CreateManifest : public CreateDtmShareManifest {
 public:
  CreateManifest(ItemPredicate accepts, ItemCollector collect, UnreachableHandler unreachable);

  void operator()(const fs::File& item) override;
  [[nodiscard]] bool enters(const fs::File& directory) override;

 private:
  ItemPredicate accepts_;
};

}  // namespace harbix
