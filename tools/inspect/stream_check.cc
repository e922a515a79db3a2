#include "inspect/stream_check.h"

#include <algorithm>

#include "app/layout.h"
#include "archive/error.h"
#include "archive/package_name.h"
#include "base/size_result.h"
#include "inspect/application_check.h"
#include "inspect/media_check.h"
#include "inspect/settings_check.h"
#include "media/share.h"

namespace harbix::inspect {
namespace {

// More than any device has; an archive that was made to fill the memory has no more of it.
constexpr std::size_t MOST_PACKAGES = 100'000;

/// Whether a restore knows what to do with such a package.
bool is_known(const PackageName& package) {
  if (package.keyword != Keyword::APP) return true;
  if (package.kind == Kind::OBJECTS) return package.title == places::NAVIGATOR;
  return package.kind == Kind::DATA || !is_home_screen(package.title);
}

/// The package that an item of media, other than a folder, belongs to by its name: the restore of media goes
/// by the names of entries alone.
std::optional<PackageName> media_of(const Item& item) {
  const std::string_view part = part_of(item.name.text());
  const bool is_media = part == places::MEDIA_PREFIX || part == places::DTM_PREFIX;
  if (!is_media || kind_of(item.entry) == "folder") return std::nullopt;
  const std::size_t top = item.name.text().find('/', part.size() + 1);
  const fs::Path folder(item.name.text().substr(0, top));
  return package_of(folder / METADATA_NAME);
}

std::unique_ptr<PackageCheck> check_of(const PackageName& package, Findings& findings) {
  switch (package.keyword) {
    case Keyword::APP:
      return std::make_unique<ApplicationCheck>(package, findings);
    case Keyword::MEDIA:
      return std::make_unique<MediaCheck>(package, findings);
    case Keyword::SETTINGS:
      break;
  }
  return std::make_unique<SettingsCheck>(package, findings);
}

}  // namespace

void StreamCheck::begin_package(const PackageName& package, const Item& item, ArchiveReader& reader) {
  end_package();
  ++packages_;
  look_at_place(package, item);
  check_ = check_of(package, findings_);
  check_->read_manifest(item, reader, listener_);
  const auto* const application = dynamic_cast<const ApplicationCheck*>(check_.get());
  if (application == nullptr || !application->directory() || early_data_.size() >= MOST_PACKAGES) return;
  const std::uint64_t directory = PathHash::of(*application->directory());
  if (package.kind == Kind::DATA) {
    early_data_.insert(directory);
  } else if (package.kind == Kind::BINARIES && early_data_.contains(directory)) {
    find(Severity::PROBLEM, "order", "The application's data stands before its binaries", package, item);
  }
}

void StreamCheck::look_at_place(const PackageName& package, const Item& item) {
  if (names_.size() < MOST_PACKAGES && !names_.insert(PathHash::of(package.path.text())).second)
    find(Severity::PROBLEM, "package-twice", "The package stands in the archive twice", package, item);
  if (!is_known(package))
    find(Severity::PROBLEM, "unknown-package", "No restore knows what to do with this package", package,
         item);
  if (last_keyword_ && package.keyword < *last_keyword_)
    find(Severity::PROBLEM, "order",
         "Stands behind packages of a later keyword: a restore of everything passes over it", package, item);
  last_keyword_ = std::max(last_keyword_.value_or(package.keyword), package.keyword);
}

void StreamCheck::meet(const Item& item, ArchiveReader& /*reader*/) {
  ++items_;
  if (item.entry.is_plain_file() && item.entry.size() > 0)
    bytes_ = saturated_sum(bytes_, static_cast<std::uint64_t>(item.entry.size()));
  const bool is_foreign = part_of(item.name.text()).empty();
  if (is_foreign && item.name.basename().text() == METADATA_NAME) {
    findings_.add({.severity = Severity::PROBLEM,
                   .code = "unknown-package",
                   .reason = "A manifest in a place where no package begins",
                   .name = item.name.text(),
                   .position = item.position});
  } else if (check_) {
    check_->meet(item);
  } else if (const std::optional<PackageName> media = media_of(item)) {
    find(Severity::NOTE, "no-package", "Has no manifest, and comes back all the same", *media, item);
    check_ = std::make_unique<MediaCheck>(*media, findings_);
    check_->meet(item);
  } else {
    // A tar program that packed unpacked files again stores the folders above the first package as well.
    const bool is_folder = kind_of(item.entry) == "folder";
    findings_.add({.severity = is_folder ? Severity::NOTE : Severity::PROBLEM,
                   .code = "no-package",
                   .reason = "Stands before the first package",
                   .name = item.name.text(),
                   .position = item.position});
  }
}

void StreamCheck::meet_nameless(std::int64_t position) {
  ++items_;
  findings_.add({.severity = Severity::PROBLEM,
                 .code = "no-name",
                 .reason = "An entry has no name",
                 .position = position});
}

void StreamCheck::end_package() {
  if (check_) check_->end();
  check_.reset();
}

void StreamCheck::end(ArchiveReader& reader, const std::optional<Damage>& damage) {
  if (damage) {
    // What would be missing of the last package is not known.
    findings_.add({.severity = Severity::DAMAGE,
                   .code = "damaged",
                   .reason = damage->reason,
                   .position = damage->position});
    return;
  }
  end_package();
  if (reader.has_more_behind_end())
    findings_.add({.severity = Severity::PROBLEM,
                   .code = "behind-end",
                   .reason = "Something follows the end mark, which no restore reads",
                   .position = reader.position()});
  if (packages_ > 0) return;
  const Severity severity = items_ > 0 ? Severity::PROBLEM : Severity::NOTE;
  findings_.add({.severity = severity, .code = "no-packages", .reason = "The archive holds no packages"});
}

void StreamCheck::find(Severity severity, std::string_view code, std::string reason,
                       const PackageName& package, const Item& item) {
  findings_.add({.severity = severity,
                 .code = code,
                 .reason = std::move(reason),
                 .package = package.path.text(),
                 .position = item.position});
}

}  // namespace harbix::inspect
