#include "inspect/extract.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "archive/completeness.h"
#include "archive/disk_writer.h"
#include "archive/error.h"
#include "archive/package_name.h"
#include "fs/exception.h"
#include "fs/folder.h"
#include "inspect/archive_pass.h"
#include "inspect/json_lines.h"
#include "inspect/names.h"
#include "inspect/package_check.h"

namespace harbix::inspect {
namespace {

/// What was asked for: names of packages, and paths of what is in them; and whether the archive has it.
class Wanted {
 public:
  explicit Wanted(const std::vector<std::string>& names) : names_(names), is_found_(names.size()) {
    for (const std::string& name : names) {
      std::string path = rooted_name(name);
      while (path.size() > 1 && path.ends_with(fs::Path::SEPARATOR)) path.pop_back();
      paths_.push_back(std::move(path));
    }
  }

  void begin_package(const PackageName& package) { package_ = package; }

  /// The first of the names that asks for an item, by its path or by one above it; nothing when none does.
  /// Manifests belong to a package and not to its owner: only their own name asks for them.
  std::optional<std::size_t> find(const Item& item, bool is_manifest) {
    std::optional<std::size_t> first;
    for (std::size_t i = 0; i < paths_.size(); ++i) {
      if (is_manifest ? item.name.text() != paths_[i] : !asks_for(i, item.name.text())) continue;
      is_found_[i] = true;
      if (!first) first = i;
    }
    return first;
  }

  [[nodiscard]] const std::string& name(std::size_t i) const { return names_[i]; }
  [[nodiscard]] const std::string& path(std::size_t i) const { return paths_[i]; }

  [[nodiscard]] bool report_missing() const {
    for (std::size_t i = 0; i < paths_.size(); ++i) {
      if (!is_found_[i]) complain("'" + paths_[i] + "' is not in the archive");
    }
    return std::ranges::find(is_found_, false) != is_found_.end();
  }

 private:
  [[nodiscard]] bool asks_for(std::size_t i, const std::string& name) const {
    if (is_at_or_below(name, paths_[i])) return true;
    return package_ && names_[i] == package_->title && is_at_or_below(name, package_->path.text());
  }

  const std::vector<std::string>& names_;
  std::vector<std::string> paths_;
  std::vector<bool> is_found_;
  std::optional<PackageName> package_;  ///< at hand
};

void report_unsettled(const fs::Path& path, const std::string& reason) {
  complain("'" + path.text() + "': " + reason);
}

class Extractor : public Visitor {
 public:
  Extractor(const Request& request, ArchiveReader& reader, Output& output)
      : wanted_(request.names),
        is_json_(request.is_json),
        output_(output),
        folder_(fs::Path(request.folder)),
        writer_(folder_, reader, Keep::NO, completeness_, report_unsettled) {}

  void begin_package(const PackageName& package, const Item& item, ArchiveReader& /*reader*/) override {
    wanted_.begin_package(package);
    if (wanted_.find(item, true)) put_on_disk(item);
  }
  void meet(const Item& item, ArchiveReader& /*reader*/) override {
    if (wanted_.find(item, false)) put_on_disk(item);
  }

  void settle() { writer_.settle(); }

  [[nodiscard]] bool has_refused() const noexcept { return has_refused_ || !completeness_.is_complete(); }
  [[nodiscard]] const Wanted& wanted() const noexcept { return wanted_; }

 private:
  void put_on_disk(const Item& item) {
    try {
      const fs::Path path = place_of(item);
      refuse_flaws(item, path);
      write(item, path);
      report(item, "");
    } catch (const fs::Exception& error) {
      has_refused_ = true;
      report(item, error.error() == EXDEV ? "A name with '..' leads out of the folder" : error.reason());
    }
  }

  static fs::Path place_of(const Item& item) {
    const std::size_t begin = item.name.text().find_first_not_of(fs::Path::SEPARATOR);
    if (begin == std::string::npos) throw fs::Exception("Has no name");
    return fs::Path(item.name.text().substr(begin));
  }

  void refuse_flaws(const Item& item, const fs::Path& path) {
    if (const std::optional<Flaw> flaw = flaw_of(item.entry, path))
      throw fs::Exception(std::string(flaw->reason));
    // A folder is filled; everything else that is there belongs to somebody.
    struct ::stat record {};
    if (!looks_up(path, record)) return;
    if (!S_ISDIR(record.st_mode) || kind_of(item.entry) != "folder") throw fs::Exception(EEXIST, "exists");
  }

  /// @throws fs::Exception for a path that leads through a link or a file.
  bool looks_up(const fs::Path& path, struct ::stat& record) {
    try {
      return fs::look_up(folder_.place_of(path), record) == 0;
    } catch (const fs::Exception& error) {
      if (error.error() == ENOENT) return false;  // the folders above are made
      throw;
    }
  }

  void write(const Item& item, const fs::Path& path) {
    const struct ::stat record = item.entry.destination(path).record();
    if (kind_of(item.entry) == "folder") {
      writer_.make_folder(path, record);
    } else if (const std::optional<std::string_view> target = item.entry.link_target()) {
      writer_.make_link(path, std::string(*target));
    } else {
      writer_.make_file(path, record);
    }
  }

  void report(const Item& item, const std::string& refusal) {
    if (is_json_) {
      Json object;
      object["type"] = "extracted";
      set_name(object, "name", item.name.text());
      object["kind"] = kind_of(item.entry);
      object["done"] = refusal.empty();
      if (!refusal.empty()) object["reason"] = refusal;
      output_.line(json_line(object));
    } else if (!refusal.empty()) {
      complain("'" + item.name.text() + "': " + refusal);
    }
  }

  Wanted wanted_;
  bool is_json_;
  Output& output_;
  Completeness completeness_;
  bool has_refused_ = false;
  fs::Folder folder_;
  DiskWriter writer_;
};

/// Prints the contents of the one file that is asked for.
class Printer : public Visitor {
 public:
  Printer(const Request& request, Output& output) : wanted_(request.names), output_(output) {}

  void begin_package(const PackageName& package, const Item& item, ArchiveReader& reader) override {
    wanted_.begin_package(package);
    if (const std::optional<std::size_t> wish = wanted_.find(item, true)) print(item, *wish, reader);
  }
  void meet(const Item& item, ArchiveReader& reader) override {
    if (const std::optional<std::size_t> wish = wanted_.find(item, false)) print(item, *wish, reader);
  }

  [[nodiscard]] bool has_refused() const noexcept { return refused_.has_value(); }
  [[nodiscard]] const Wanted& wanted() const noexcept { return wanted_; }

 private:
  void print(const Item& item, std::size_t wish, ArchiveReader& reader) {
    const bool is_file = item.entry.is_plain_file() && item.name.text() == wanted_.path(wish);
    if (!is_file || has_printed_) {
      refuse(wish, is_file ? "Only one file is printed" : "No plain file");
      return;
    }
    has_printed_ = true;
    read_contents(reader, item.entry.size(), [this](std::string_view piece) { output_.write(piece); });
  }

  /// Once for all that lies in a folder.
  void refuse(std::size_t wish, const std::string& reason) {
    if (refused_ != wish) complain("'" + wanted_.name(wish) + "': " + reason);
    refused_ = wish;
  }

  Wanted wanted_;
  Output& output_;
  bool has_printed_ = false;
  std::optional<std::size_t> refused_;  ///< the last of the names that were
};

int status_of(const Request& request, const std::optional<Damage>& damage, bool has_refused,
              const Wanted& wanted) {
  if (damage) {
    complain(
        fmt::format("{}: {} (behind byte {})", request.archives.front(), damage->reason, damage->position));
    return STATUS_TROUBLE;
  }
  const bool is_missing = wanted.report_missing();
  return has_refused || is_missing ? STATUS_DIFFERENT : STATUS_GOOD;
}

}  // namespace

int extract(const Request& request, Output& output) {
  ArchiveReader reader(input_name(request.archives.front()));
  if (request.folder == "-") {
    Printer printer(request, output);
    const std::optional<Damage> damage = read_archive(reader, printer);
    output.flush();
    return status_of(request, damage, printer.has_refused(), printer.wanted());
  }
  Extractor extractor(request, reader, output);
  const std::optional<Damage> damage = read_archive(reader, extractor);
  extractor.settle();
  return status_of(request, damage, extractor.has_refused(), extractor.wanted());
}

}  // namespace harbix::inspect
