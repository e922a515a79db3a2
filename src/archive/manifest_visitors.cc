#include "archive/manifest_visitors.h"

#include <utility>

namespace harbix {

CreateDtmShareManifest::CreateDtmShareManifest(ItemCollector collect, UnreachableHandler unreachable)
    : collect_(std::move(collect)), unreachable_(std::move(unreachable)) {}

void CreateDtmShareManifest::operator()(const fs::File& item) {
  const fs::Path name = item.path().basename();
  if (name == fs::Path::current() || name == fs::Path::parent()) return;
  if (collect_(item)) paths_.push_back(item.path());
}

void CreateDtmShareManifest::unreachable(const fs::Path& path, const fs::Exception& reason) {
  unreachable_(path, reason);
}

CreateManifest::CreateManifest(ItemPredicate accepts, ItemCollector collect, UnreachableHandler unreachable)
    : CreateDtmShareManifest(std::move(collect), std::move(unreachable)), accepts_(std::move(accepts)) {}

void CreateManifest::operator()(const fs::File& item) {
  if (accepts_(item)) CreateDtmShareManifest::operator()(item);
}

bool CreateManifest::enters(const fs::File& directory) { return directory.allows(fs::READ); }

}  // namespace harbix
