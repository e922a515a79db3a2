#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tar_builder.h"
#include "tests/support/tree.h"

namespace harbix::test {

/// Runs of harbix-inspect on archives of a test's own.
class InspectRun : public ::testing::Test {
 protected:
  static Outcome inspect(std::vector<std::string> arguments, const std::string& input = "") {
    arguments.insert(arguments.begin(), HARBIX_INSPECT_PROGRAM);
    return run_program(arguments, input);
  }

  /// The path of an archive of these bytes.
  [[nodiscard]] std::string archive(const std::string& bytes, const std::string& name = "a.tar") const {
    write_file(folder_ / name, bytes);
    return folder_ / name;
  }

  TemporaryFolder folder_;
};

/// The text of a manifest of media.
inline std::string media_manifest(const std::vector<std::pair<std::string, std::size_t>>& records) {
  std::string text;
  for (const auto& [path, size] : records) text += "File: " + std::to_string(size) + '\n' + path + '\n';
  return text + '\n';
}

/// A package of media that is as a backup writes it: a folder, a file of four bytes and a link.
inline TarBuilder music() {
  TarBuilder tar;
  tar.file("/media/Music/.backup.metadata",
           media_manifest({{"Music", 4096}, {"Music/a.mp3", 4}, {"Music/link", 5}}), 0700);
  tar.folder("/media/Music").file("/media/Music/a.mp3", "text").link("/media/Music/link", "a.mp3");
  return tar;
}

}  // namespace harbix::test
