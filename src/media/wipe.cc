#include "media/wipe.h"

#include <exception>
#include <vector>

#include "base/log.h"
#include "fs/exception.h"
#include "fs/tree.h"
#include "fs/working_directory.h"
#include "media/skip_test.h"

namespace harbix {
namespace {

bool is_dot_name(const fs::Path& name) { return name == fs::Path::current() || name == fs::Path::parent(); }

/// Removes what it meets, files at once and directories when finish() is called, deepest first.
class UnlinkItem : public fs::TreeVisitor {
 public:
  explicit UnlinkItem(const ArchiveReader& reader) : reader_(reader) {}

  void operator()(const fs::File& item) override {
    diagnostics::line(3, "Unlinking '%s'", item.path().c_str());
    if (is_kept(item)) {
      diagnostics::line(3, "skip");
    } else if (item.is_directory()) {
      // Not now: what is inside goes first.
      directories_.push_back(item);
    } else {
      item.unlink();
    }
  }

  bool enters(const fs::File& directory) override {
    return !directories_.empty() && directories_.back().path() == directory.path();
  }

  void unreachable(const fs::Path& path, const fs::Exception& /*reason*/) override { report_skipped(path); }

  void finish() {
    for (auto directory = directories_.rbegin(); directory != directories_.rend(); ++directory) {
      if (directory->rmdir() != 0) report_skipped(directory->path());
    }
  }

 private:
  [[nodiscard]] bool is_kept(const fs::File& item) const {
    // The archive may be the owner's only copy.
    return is_dot_name(item.path().basename()) || is_skipped(item) || reader_.is_input(item);
  }

  static void report_skipped(const fs::Path& path) { diagnostics::line(1, "Skipped '%s'", path.c_str()); }

  const ArchiveReader& reader_;
  std::vector<fs::File> directories_;
};

/// Empties each top-level item of the shared media.
class UnlinkContent : public fs::TreeVisitor {
 public:
  explicit UnlinkContent(const ArchiveReader& reader) : reader_(reader) {}

  void operator()(const fs::File& item) override {
    diagnostics::line(3, "Unlinking content of '%s'", item.path().c_str());
    if (is_dot_name(item.path().basename()) || is_skipped(item)) {
      diagnostics::line(3, "skip");
      return;
    }
    try {
      empty(item);
    } catch (const std::exception&) {
      report(item.path());
    }
  }

  bool enters(const fs::File& /*directory*/) override { return false; }

  void unreachable(const fs::Path& path, const fs::Exception& reason) override {
    if (path == fs::Path::current()) throw fs::Exception(reason);
    report(path);
  }

 private:
  static void report(const fs::Path& path) {
    diagnostics::line(1, "Error while unlinking content: %s", path.c_str());
  }

  void empty(const fs::File& folder) {
    const fs::Path absolute = fs::current_directory() / fs::Path(folder.path()).strip_leading_dots();
    const fs::WorkingDirectory directory(absolute);
    fs::require_working_directory(absolute, "Could not change working directory to " + absolute.text());
    UnlinkItem visitor(reader_);
    fs::walk(fs::Path::current(), fs::Descent::DEFERRED, visitor);
    visitor.finish();
  }

  const ArchiveReader& reader_;
};

}  // namespace

void wipe_shared_media(const ArchiveReader& reader) {
  UnlinkContent visitor(reader);
  fs::walk(fs::Path::current(), fs::Descent::IMMEDIATE, visitor);
}

}  // namespace harbix
