#include "inspect/findings.h"

#include <fmt/format.h>

#include <array>

#include "inspect/json_lines.h"
#include "inspect/names.h"
#include "inspect/options.h"

namespace harbix::inspect {

std::string_view text_of(Severity severity) {
  constexpr std::array<std::string_view, 3> TEXTS{"note", "problem", "damage"};
  return TEXTS.at(static_cast<std::size_t>(severity));
}

void Findings::add(const Finding& finding) {
  switch (finding.severity) {
    case Severity::NOTE:
      ++notes_;
      break;
    case Severity::PROBLEM:
      ++problems_;
      break;
    case Severity::DAMAGE:
      has_damage_ = true;
      break;
  }
  if (is_json_ || shows_notes_ || finding.severity != Severity::NOTE) print(finding);
}

void Findings::print(const Finding& finding) {
  before_line_();
  if (is_json_) {
    Json object;
    object["type"] = "finding";
    set_name(object, "archive", archive_);
    object["severity"] = text_of(finding.severity);
    object["code"] = finding.code;
    object["reason"] = finding.reason;
    if (!finding.package.empty()) set_name(object, "package", finding.package);
    if (!finding.name.empty()) set_name(object, "name", finding.name);
    if (finding.position) object["position"] = *finding.position;
    output_.line(json_line(object));
    return;
  }
  std::string line = names_archive_ ? shown(archive_) + ": " : "";
  line += fmt::format("{}: ", text_of(finding.severity));
  // A package's own findings have no other name.
  const std::string& place = finding.name.empty() ? finding.package : finding.name;
  if (!place.empty()) line += shown(place) + ": ";
  line += shown(finding.reason);
  if (finding.position) line += fmt::format(" (at byte {})", *finding.position);
  output_.line(line);
}

int Findings::status() const noexcept {
  if (has_damage_) return STATUS_TROUBLE;
  return problems_ > 0 ? STATUS_DIFFERENT : STATUS_GOOD;
}

}  // namespace harbix::inspect
