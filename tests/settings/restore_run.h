#pragma once

#include <unistd.h>

#include <string>
#include <vector>

#include "settings/restore.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tar_builder.h"
#include "tests/support/tree.h"

namespace harbix::test {

/// What a settings restore came to.
struct Restored {
  int status = -1;
  std::string errors;
  std::vector<std::string> log;
};

/// Restores from an archive with these bytes.
inline Restored restore_settings(const std::string& archive) {
  write_file("/a.tar", archive);
  Reader reader("/a.tar");
  const RecordedLog log;
  const CapturedOutput errors(STDERR_FILENO);
  const int status = harbix::settings::restore(reader);
  return {status, errors.text(), log.messages()};
}

/// The beginning of a settings package: a metadata entry with so many records.
inline TarBuilder& add_package(TarBuilder& archive, int records) {
  std::string text;
  for (int i = 0; i < records; ++i) text += "File: 5\n/any/" + std::to_string(i) + "\n";
  return archive.file("/settings/.backup.metadata", text + "\n", 0700);
}
inline TarBuilder package(int records) {
  TarBuilder archive;
  add_package(archive, records);
  return archive;
}

}  // namespace harbix::test
