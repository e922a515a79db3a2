#include "inspect/plan.h"

#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <archive.h>

#include "base/places.h"
#include "driver/keywords.h"
#include "driver/process.h"
#include "fs/file.h"
#include "fs/identity.h"
#include "inspect/archive_pass.h"
#include "inspect/plan_applications.h"
#include "inspect/plan_media.h"
#include "inspect/plan_report.h"
#include "inspect/plan_settings.h"
#include "updater/registered_applications.h"

namespace harbix::inspect {
namespace {

void require_device() {
  if (::geteuid() != fs::SUPERUSER) throw std::runtime_error("Only root can plan a restore");
  for (const char* const place : {places::ACCOUNT, places::APPLICATIONS, places::PPS}) {
    if (!fs::exists(fs::Path(place)))
      throw std::runtime_error("Not on a device: there is no '" + std::string(place) + "'");
  }
  if (!fs::exists(fs::Path(updater::REGISTERED_APPLICATIONS)))
    throw std::runtime_error("No installer publishes '" + std::string(updater::REGISTERED_APPLICATIONS) +
                             "'");
}

std::vector<std::string> names_of_all() {
  std::vector<std::string> names;
  for (const harbix::Keyword& keyword : all_keywords()) names.emplace_back(keyword.name);
  return names;
}

/// The keywords of which the archive holds packages. Of one that can be read only once, all: those that turn
/// out to have none are passed over.
std::vector<std::string> names_of_held(const Survey& survey) {
  std::vector<std::string> names;
  for (const harbix::Keyword& keyword : all_keywords()) {
    if (survey.has_packages_below(keyword.prefixes)) names.emplace_back(keyword.name);
  }
  return names;
}

/// Whether the section that has begun is empty.
bool is_over(ArchiveReader& reader) {
  const int status = reader.advance();
  reader.hold_back();
  return status == ARCHIVE_EOF;
}

void plan_keyword(const harbix::Keyword& keyword, ArchiveReader& reader, PlanReport& report) {
  if (keyword.name == text_of(Keyword::APP)) {
    plan_applications(reader, report);
  } else if (keyword.name == text_of(Keyword::MEDIA)) {
    plan_media(reader, report);
  } else {
    plan_settings(reader, report);
  }
}

}  // namespace

int plan(const Request& request, Output& output) {
  require_device();
  fs::become_superuser();
  ArchiveReader reader(input_name(request.archives.front()));
  prepare_process();
  detach_standard_input();
  reader.begin_section({});
  const bool has_keywords = !request.names.empty();
  const Survey* const survey = reader.survey();
  std::vector<std::string> selected = request.names;
  if (!has_keywords) selected = survey == nullptr ? names_of_all() : names_of_held(*survey);
  if (selected.empty() || (!has_keywords && reader.is_empty()))
    throw std::runtime_error("The archive holds no packages: name the keywords of the restore");
  PlanReport report(request, output);
  for (const harbix::Keyword& keyword : all_keywords()) {
    if (std::ranges::find(selected, keyword.name) == selected.end()) continue;
    reader.begin_section(section_of(keyword, selected));
    if (!has_keywords && survey == nullptr && is_over(reader)) continue;
    plan_keyword(keyword, reader, report);
  }
  report.sum_up(request.archives.front());
  return report.status();
}

}  // namespace harbix::inspect
