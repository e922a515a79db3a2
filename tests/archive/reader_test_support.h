#pragma once

#include <string>

#include <gtest/gtest.h>

#include "support/tar_builder.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace test {

/// A folder with one archive in it.
class ArchiveReaderTest : public ::testing::Test {
 protected:
  /// The path of an archive of these bytes.
  std::string archive(const std::string& bytes) {
    write_file(archive_, bytes);
    return archive_;
  }

  TemporaryFolder folder_;
  std::string archive_ = folder_ / "a.tar";
};

/// Three entries, the one in the middle with data of two records.
inline TarBuilder three_entries() {
  TarBuilder tar;
  tar.file("/media/a", "text").file("/media/b", std::string(600, 'b')).folder("/media/c");
  return tar;
}

}  // namespace test
