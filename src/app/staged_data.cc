#include "app/staged_data.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "app/layout.h"
#include "base/log.h"
#include "base/report.h"
#include "fs/exception.h"
#include "fs/tree.h"
#include "fs/walk.h"

namespace harbix {
namespace {

constexpr char OLD_DATA[] = ".harbix-old";  // no application's folder has this name

std::string staging_name() {
  static unsigned count = 0;
  return std::string(places::RESERVED) + "data-" + std::to_string(::getpid()) + '-' + std::to_string(count++);
}

base::FileDescriptor make_folder(const fs::Folder& parent, const std::string& name, const Role& maker) {
  const fs::EffectiveGroup group(maker.group);
  const fs::EffectiveUser user(maker.user);
  const bool is_made = ::mkdirat(parent.descriptor(), name.c_str(), S_IRWXU) == 0;
  base::FileDescriptor made;
  if (is_made) {
    made = base::FileDescriptor(
        ::openat(parent.descriptor(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  }
  if (made) return made;
  const int error = errno;
  // One that stays is removed at the next start.
  if (is_made) static_cast<void>(::unlinkat(parent.descriptor(), name.c_str(), AT_REMOVEDIR));
  throw fs::Exception(error, "Mkdir '" + (parent.path() / name).text() + "' failed.");
}

/// The name of the data that `staging` holds beside old data that was taken away; nothing where there is no
/// such pair.
/// @throws fs::Exception where the folder cannot be listed.
std::optional<fs::Path> find_half_done(fs::Folder& all_data, const fs::Path& staging) {
  if (!all_data.holds(staging / OLD_DATA)) return std::nullopt;
  std::optional<fs::Path> name;
  fs::Walk walk(all_data, staging, fs::Path());
  while (const fs::WalkItem* item = walk.next()) {
    walk.stay_out();
    if (item->failure) throw fs::Exception(*item->failure);
    if (item->file.path() != fs::Path(OLD_DATA)) name = item->file.path();
  }
  return name;
}

/// Between the two steps of an exchange neither the old nor the new data is in its place: does the second
/// step once more, or takes back the first.
/// @throws fs::Exception "The data for 'PATH' stays in 'FOLDER'" when neither can be done.
void finish_exchange(fs::Folder& all_data, const fs::Path& staging) {
  const std::optional<fs::Path> name = find_half_done(all_data, staging);
  if (!name) return;
  const fs::Path place = all_data.path() / *name;
  // What a program of the application has made there meanwhile knows nothing of either.
  if (all_data.holds(*name)) fs::remove_tree(all_data, *name);
  for (const fs::Path& data : {staging / *name, staging / OLD_DATA}) {
    if (::renameat(all_data.descriptor(), data.c_str(), all_data.descriptor(), name->c_str()) == -1) continue;
    all_data.let_go();
    diagnostics::line(1, "'%s' was taken from '%s'", place.c_str(), data.c_str());
    return;
  }
  const int error = errno;
  throw fs::Exception(
      error, "The data for '" + place.text() + "' stays in '" + (all_data.path() / staging).text() + "'");
}

}  // namespace

StagedData::StagedData(fs::Folder& all_data, fs::Path name, const Role& maker)
    : all_data_(all_data),
      name_(std::move(name)),
      staging_(staging_name()),
      descriptor_(make_folder(all_data, staging_, maker)) {}

StagedData::~StagedData() {
  try {
    finish_exchange(all_data_, fs::Path(staging_));
  } catch (const fs::Exception& error) {
    report::error(error.what());
    return;
  }
  // Another try is made after a removal that failed; what stays is removed at the next start.
  for (int attempt = 0; attempt < 2 && all_data_.holds(fs::Path(staging_)); ++attempt) {
    fs::remove_tree(all_data_, fs::Path(staging_));
  }
}

fs::Folder StagedData::folder() const {
  base::FileDescriptor copy(::fcntl(descriptor_.get(), F_DUPFD_CLOEXEC, 0));
  if (!copy) {
    const int error = errno;
    throw fs::Exception(error,
                        "Directory '" + (all_data_.path() / staging_).text() + "' could not be opened.");
  }
  return {all_data_.path(), std::move(copy)};
}

void StagedData::take_place() {
  if (!folder().holds(name_)) {
    if (all_data_.holds(name_)) take_old_away();
  } else if (::renameat2(descriptor_.get(), name_.c_str(), all_data_.descriptor(), name_.c_str(),
                         RENAME_EXCHANGE) == -1) {
    exchange();
  }
  all_data_.let_go();
}

void StagedData::exchange() {
  // Not every kernel and file system exchanges names; and there may be nothing to exchange with.
  // A run that is interrupted in between leaves both for the next start, which finishes this.
  const bool has_old = all_data_.holds(name_);
  if (has_old) take_old_away();
  if (::renameat(descriptor_.get(), name_.c_str(), all_data_.descriptor(), name_.c_str()) == 0) return;
  const int error = errno;
  // The place is free, so that this fails for no other reason than a broken disk.
  if (has_old)
    static_cast<void>(::renameat(descriptor_.get(), OLD_DATA, all_data_.descriptor(), name_.c_str()));
  const std::string place = (all_data_.path() / name_).text();
  throw fs::Exception(
      error, "Rename '" + (all_data_.path() / staging_ / name_).text() + "' to '" + place + "' failed");
}

void StagedData::take_old_away() {
  if (::renameat(all_data_.descriptor(), name_.c_str(), descriptor_.get(), OLD_DATA) == 0) return;
  const int error = errno;
  throw fs::Exception(error, "Rename '" + (all_data_.path() / name_).text() + "' to '" +
                                 (all_data_.path() / staging_ / OLD_DATA).text() + "' failed");
}

bool holds_files(fs::Folder& folder, const fs::Path& relative) {
  if (!folder.holds(relative)) return false;
  if (!folder.file(relative).is_directory()) return true;
  fs::Walk walk(folder, relative, relative);
  while (const fs::WalkItem* item = walk.next()) {
    // What cannot be looked at may be a file.
    if (item->failure || !item->file.is_directory()) return true;
  }
  return false;
}

void remove_interrupted_data() {
  const fs::Path place(places::APPLICATION_DATA);
  if (!fs::exists(place)) return;
  fs::Folder all_data(place);
  std::vector<fs::Path> left;
  fs::Walk walk(all_data, fs::Path(), fs::Path());
  while (const fs::WalkItem* item = walk.next()) {
    walk.stay_out();
    if (!item->failure && item->file.path().text().starts_with(places::RESERVED)) {
      left.push_back(item->file.path());
    }
  }
  for (const fs::Path& item : left) {
    finish_exchange(all_data, item);
    fs::remove_tree(all_data, item);
  }
}

}  // namespace harbix
