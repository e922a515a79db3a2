#pragma once

#include <string>

#include "archive/extraction.h"
#include "fs/folder.h"

namespace harbix {

/// The data of one application while it is restored: it is made in a folder beside its place, which only its
/// maker can enter, and takes its place when it is complete. So old and new data never mix, no program
/// reaches what is not complete, and the old data stays where the new cannot be made.
class StagedData {
 public:
  /// Prepares the data of the application whose folder is called `name` in `all_data`, which must outlive
  /// this object. `maker` makes it.
  /// @throws fs::Exception "Mkdir 'PATH' failed." where the maker cannot write; fs::IdentityError.
  StagedData(fs::Folder& all_data, fs::Path name, const Role& maker);
  /// Removes what has not taken its place, and what it took the place of.
  ~StagedData();
  StagedData(const StagedData&) = delete;
  StagedData& operator=(const StagedData&) = delete;
  StagedData(StagedData&&) = delete;
  StagedData& operator=(StagedData&&) = delete;

  /// Stands for the folder of all data, and goes by its name: the new data is made in here.
  [[nodiscard]] fs::Folder folder() const;

  /// Puts the new data in the place of the old, or takes the old away where there is none.
  /// @throws fs::Exception "Rename 'FROM' to 'TO' failed". The old data is then where it was, or else
  /// one of the two gets its place at the end of this object.
  void take_place();

 private:
  void exchange();
  void take_old_away();

  fs::Folder& all_data_;
  fs::Path name_;
  std::string staging_;
  base::FileDescriptor descriptor_;
};

/// Whether files, not folders alone, lie below `relative`.
[[nodiscard]] bool holds_files(fs::Folder& folder, const fs::Path& relative);

/// Removes what interrupted runs have left in the folder of all data, if there is one. Where a run was
/// interrupted between taking away old data and putting the new in its place, that is done first.
/// @throws fs::Exception "The data for 'PATH' stays in 'FOLDER'" where that cannot be done.
void remove_interrupted_data();

}  // namespace harbix
