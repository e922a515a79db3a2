#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>

#include "inspect/archive_pass.h"
#include "inspect/findings.h"
#include "inspect/package_check.h"

namespace harbix::inspect {

/// Holds a whole archive against the rules of a restore of everything: which packages there are, in which
/// order, and each package by its own rules.
class StreamCheck : public Visitor {
 public:
  /// `listener` gets the texts of all manifests.
  StreamCheck(Findings& findings, ManifestListener listener)
      : findings_(findings), listener_(std::move(listener)) {}

  void begin_package(const PackageName& package, const Item& item, ArchiveReader& reader) override;
  void meet(const Item& item, ArchiveReader& reader) override;
  void meet_nameless(std::int64_t position) override;

  /// The archive has been read to its end, or to its damage.
  void end(ArchiveReader& reader, const std::optional<Damage>& damage);

  [[nodiscard]] std::uint64_t packages() const noexcept { return packages_; }
  [[nodiscard]] std::uint64_t items() const noexcept { return items_; }
  [[nodiscard]] std::uint64_t bytes() const noexcept { return bytes_; }

 private:
  void end_package();
  void look_at_place(const PackageName& package, const Item& item);
  void find(Severity severity, std::string_view code, std::string reason, const PackageName& package,
            const Item& item);

  Findings& findings_;
  ManifestListener listener_;
  std::unique_ptr<PackageCheck> check_;
  std::optional<Keyword> last_keyword_;  ///< the latest of those that were met
  std::set<std::uint64_t> names_;        ///< hashes of the packages that were met
  std::set<std::uint64_t> early_data_;   ///< of applications whose data was met without binaries
  std::uint64_t packages_ = 0;
  std::uint64_t items_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace harbix::inspect
