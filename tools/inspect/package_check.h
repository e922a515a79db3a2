#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "archive/reader.h"
#include "inspect/archive_pass.h"
#include "inspect/findings.h"
#include "inspect/package.h"

namespace harbix::inspect {

/// Gets the text of a manifest as it is read, piece by piece.
using ManifestListener = std::function<void(std::string_view piece)>;

/// Holds one package against the rules of the restore that would read it.
class PackageCheck {
 public:
  PackageCheck(PackageName package, Findings& findings) : package_(std::move(package)), findings_(findings) {}
  virtual ~PackageCheck() = default;
  PackageCheck(const PackageCheck&) = delete;
  PackageCheck& operator=(const PackageCheck&) = delete;
  PackageCheck(PackageCheck&&) = delete;
  PackageCheck& operator=(PackageCheck&&) = delete;

  /// The package's manifest, which the reader is at. @throws DataError when the archive is damaged there.
  virtual void read_manifest(const Item& item, ArchiveReader& reader, const ManifestListener& listener) = 0;
  /// An entry behind it.
  virtual void meet(const Item& item) = 0;
  /// No more entries come. Not called for an archive that is damaged here.
  virtual void end() = 0;

 protected:
  [[nodiscard]] const PackageName& package() const noexcept { return package_; }

  void find(Severity severity, std::string_view code, std::string reason, const Item& item) {
    findings_.add({.severity = severity,
                   .code = code,
                   .reason = std::move(reason),
                   .package = package_.path.text(),
                   .name = item.name.text(),
                   .position = item.position});
  }
  /// Of a path that the manifest alone has, or of the package itself.
  void find(Severity severity, std::string_view code, std::string reason, std::string_view path = "") {
    findings_.add({.severity = severity,
                   .code = code,
                   .reason = std::move(reason),
                   .package = package_.path.text(),
                   .name = std::string(path)});
  }

 private:
  PackageName package_;
  Findings& findings_;
};

/// What is wrong with an entry for every restore; nothing for one that can be put on disk as it is.
struct Flaw {
  std::string_view code;
  std::string_view reason;
};
[[nodiscard]] std::optional<Flaw> flaw_of(const EntryView& entry, const fs::Path& path);

}  // namespace harbix::inspect
