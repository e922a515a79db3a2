#include "inspect/verify.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

#include "archive/error.h"
#include "inspect/archive_pass.h"
#include "inspect/checksums.h"
#include "inspect/findings.h"
#include "inspect/json_lines.h"
#include "inspect/listed_checksums.h"
#include "inspect/names.h"
#include "inspect/progress_line.h"
#include "inspect/stream_check.h"

namespace harbix::inspect {
namespace {

/// A check of all packages, and of all contents where there is a list of checksums.
class Verification : public Visitor {
 public:
  Verification(Findings& findings, ListedChecksums* checksums)
      : findings_(findings),
        check_(findings, [this](std::string_view piece) { take_manifest(piece); }),
        checksums_(checksums) {
    // To begin with it costs more than to look through a small archive.
    if (checksums != nullptr) sha256_.emplace();
  }

  void begin_package(const PackageName& package, const Item& item, ArchiveReader& reader) override {
    check_.begin_package(package, item, reader);
    if (checksums_ == nullptr) return;
    // What the parser has left of a manifest that is none.
    std::array<char, 4096> piece{};
    for (std::int64_t count = 0; (count = reader.read_data(piece.data(), piece.size())) > 0;)
      take_manifest({piece.data(), static_cast<std::size_t>(count)});
    compare(item, sha256_->finish());
  }

  void meet(const Item& item, ArchiveReader& reader) override {
    check_.meet(item, reader);
    if (checksums_ != nullptr && item.entry.is_plain_file())
      compare(item, digest_of_contents(reader, item.entry.size(), *sha256_));
  }

  void meet_nameless(std::int64_t position) override { check_.meet_nameless(position); }

  void end(ArchiveReader& reader, const std::optional<Damage>& damage) {
    check_.end(reader, damage);
    if (checksums_ == nullptr || damage) return;
    checksums_->for_unmet([this](std::string_view name) {
      find("missing", "The list of checksums has it, and the archive has not", std::string(name),
           std::nullopt);
    });
  }

  [[nodiscard]] const StreamCheck& check() const noexcept { return check_; }

 private:
  void take_manifest(std::string_view piece) {
    if (sha256_) sha256_->add(piece);
  }

  void compare(const Item& item, const Digest& digest) {
    switch (checksums_->meet(listed_name(item.name), digest)) {
      case ListedChecksums::Answer::RIGHT:
        break;
      case ListedChecksums::Answer::WRONG:
        find("checksum", "The contents are not those of the list", item.name.text(), item.position);
        break;
      case ListedChecksums::Answer::UNLISTED:
        find("unlisted", "The list of checksums does not have it", item.name.text(), item.position);
        break;
    }
  }

  void find(std::string_view code, std::string reason, std::string name,
            std::optional<std::int64_t> position) {
    findings_.add({.severity = Severity::PROBLEM,
                   .code = code,
                   .reason = std::move(reason),
                   .name = std::move(name),
                   .position = position});
  }

  Findings& findings_;
  StreamCheck check_;
  ListedChecksums* checksums_;
  std::optional<Sha256> sha256_;  ///< where there is a list
};

std::string summary(const Findings& findings, const StreamCheck& check) {
  const std::string contents =
      fmt::format("{} packages, {} items, {} bytes", check.packages(), check.items(), check.bytes());
  if (findings.has_damage()) return "damaged, up to there " + contents;
  if (findings.problems() > 0) return fmt::format("{} problems, {}", findings.problems(), contents);
  const std::string notes = findings.notes() > 0 ? fmt::format(", {} notes", findings.notes()) : "";
  return "good: " + contents + notes;
}

std::string json_summary(const std::string& archive, const Findings& findings, const StreamCheck* check) {
  Json object;
  object["type"] = "summary";
  set_name(object, "archive", archive);
  object["status"] = findings.status();
  object["problems"] = findings.problems();
  object["notes"] = findings.notes();
  object["packages"] = check == nullptr ? 0 : check->packages();
  object["items"] = check == nullptr ? 0 : check->items();
  object["bytes"] = check == nullptr ? 0 : check->bytes();
  return json_line(object);
}

int verify_one(const Request& request, const std::string& archive, ListedChecksums* checksums,
               Output& output) {
  ProgressLine progress(!request.is_json);
  Findings findings(output, archive, request.is_json, request.shows_notes, request.archives.size() > 1);
  findings.before_lines([&progress] { progress.clear(); });
  try {
    ArchiveReader reader(input_name(archive));
    progress.follow(reader);
    Verification verification(findings, checksums);
    verification.end(reader, read_archive(reader, verification));
    progress.clear();
    output.line(request.is_json ? json_summary(archive, findings, &verification.check())
                                : shown(archive) + ": " + summary(findings, verification.check()));
  } catch (const ArchiveError& error) {
    findings.add({.severity = Severity::DAMAGE, .code = "unreadable", .reason = error.what()});
    output.line(request.is_json ? json_summary(archive, findings, nullptr)
                                : shown(archive) + ": cannot be read");
  }
  return findings.status();
}

}  // namespace

int verify(const Request& request, Output& output) {
  std::optional<ListedChecksums> checksums;
  if (!request.checksums.empty()) {
    if (request.archives.size() > 1) throw std::runtime_error("A list of checksums is of one archive");
    checksums.emplace(request.checksums);
  }
  int status = STATUS_GOOD;
  for (const std::string& archive : request.archives)
    status = std::max(status, verify_one(request, archive, checksums ? &*checksums : nullptr, output));
  return status;
}

}  // namespace harbix::inspect
