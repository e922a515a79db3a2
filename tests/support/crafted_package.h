#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/tar_builder.h"

namespace harbix::test {

/// A package of an application archive, as a backup writes it or as only an attacker would.
class CraftedPackage {
 public:
  /// Of the application with this id, whose package is called "ID.pkg".
  static CraftedPackage binary(const std::string& id);
  static CraftedPackage data(const std::string& id);
  /// With nothing in its manifest. `name` is what the metadata entry's name begins with, `base` the folder
  /// that the paths below count from.
  CraftedPackage(std::string name, std::string base);

  /// Sets an attribute of the manifest, in the place of the one with this key if there is one.
  CraftedPackage& attribute(const std::string& key, const std::string& value);
  CraftedPackage& without(const std::string& key);

  /// A record and its entry. Paths are relative to the package's base.
  CraftedPackage& file(const std::string& path, const std::string& content, unsigned mode = 0660);
  CraftedPackage& folder(const std::string& path, unsigned mode = 0770);
  CraftedPackage& link(const std::string& path, const std::string& target);

  /// A record alone: an absolute path, and the mode with its type bits.
  CraftedPackage& record(unsigned mode, const std::string& path, std::size_t size = 0);
  /// An entry alone, with its name in full.
  CraftedPackage& entry(char type, const std::string& name, const std::string& content = "",
                        unsigned mode = 0660, const std::string& target = "");

  /// The part of an archive: the metadata entry, and the entries.
  [[nodiscard]] std::string text() const;

 private:
  std::string name_;
  std::string base_;
  std::vector<std::pair<std::string, std::string>> attributes_;
  std::string records_;
  TarBuilder entries_;
};

/// An archive of these packages; the second one lacks the end mark.
[[nodiscard]] std::string archive_of(const std::vector<CraftedPackage>& packages);
[[nodiscard]] std::string cut_archive_of(const std::vector<CraftedPackage>& packages);

}  // namespace harbix::test
