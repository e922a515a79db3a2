#pragma once

#include <clocale>
#include <string>
#include <vector>

#include <archive.h>
#include <gtest/gtest.h>

#include "archive/reader.h"
#include "archive/source.h"
#include "archive/writer.h"
#include "tests/support/folder.h"
#include "tests/support/tar_builder.h"
#include "tests/support/tree.h"

namespace harbix::test {

/// Names are written as in a real run, until the end of the scope.
class Utf8Names {
 public:
  Utf8Names() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
  ~Utf8Names() { std::setlocale(LC_CTYPE, "C"); }
  Utf8Names(const Utf8Names&) = delete;
  Utf8Names& operator=(const Utf8Names&) = delete;
  Utf8Names(Utf8Names&&) = delete;
  Utf8Names& operator=(Utf8Names&&) = delete;
};

/// An archive as a run writes it.
class Writer : public harbix::ArchiveWriter {
 public:
  explicit Writer(const std::string& name) : ArchiveWriter(name) {}
  /// Archives an object of the disk.
  void add(const std::string& path, const std::string& name) {
    fs::Folder root("/");
    write(harbix::open_source(root, fs::Path(path)), fs::Path(name));
  }
};

/// An archive as a run reads it.
class Reader : public harbix::ArchiveReader {
 public:
  explicit Reader(const std::string& name) : ArchiveReader(name) {}

  /// The names from here to the end; "(none)" for an entry without one.
  std::vector<std::string> names() {
    std::vector<std::string> names;
    while (const std::optional<harbix::EntryView> entry = next_header()) {
      const std::optional<fs::Path> name = entry->name();
      names.push_back(name ? name->text() : "(none)");
    }
    return names;
  }

  /// All data of the current entry.
  std::string data() {
    std::string data;
    std::vector<char> chunk(4096);
    for (std::int64_t count = 0; (count = read_data(chunk.data(), chunk.size())) > 0;) {
      data.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return data;
  }
};

/// What a piece of code throws, as the text of the exception; "" when it throws nothing.
template <typename Error, typename Body>
std::string message_of(const Body& body) {
  try {
    body();
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

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

}  // namespace harbix::test
