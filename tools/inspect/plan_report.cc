#include "inspect/plan_report.h"

#include <fmt/format.h>

#include <array>

#include "inspect/json_lines.h"
#include "inspect/names.h"

namespace harbix::inspect {
namespace {

constexpr std::string_view BOLD = "1";
constexpr std::string_view RED = "31";
constexpr std::string_view GREEN = "32";
constexpr std::string_view YELLOW = "33";

std::string_view colour_of(Fate fate) {
  constexpr std::array<std::string_view, 3> COLOURS{GREEN, RED, YELLOW};
  return COLOURS.at(static_cast<std::size_t>(fate));
}

}  // namespace

std::string_view text_of(Fate fate) {
  constexpr std::array<std::string_view, 3> TEXTS{"restored", "refused", "skipped"};
  return TEXTS.at(static_cast<std::size_t>(fate));
}

PlanReport::PlanReport(const Request& request, Output& output)
    : output_(output), is_json_(request.is_json), has_colours_(has_colours(request.colour, output)) {}

void PlanReport::print_line(std::string_view word, std::string_view colour, std::string_view keyword,
                            std::string_view kind, std::uint64_t first, const std::string& second,
                            const std::string& rest) {
  if (!output_.is_terminal()) {
    output_.line(fmt::format("{} {} {} {} {} {}", painted(std::string(word), colour, has_colours_), keyword,
                             kind, first, second, rest));
    return;
  }
  if (!has_head_)
    output_.line(painted(fmt::format("{:<8} {:<8} {:<8} {:>8} {:>10} {}", "WHAT", "KEYWORD", "KIND", "ITEMS",
                                     "LEFT OUT", "PACKAGE"),
                         BOLD, has_colours_));
  has_head_ = true;
  output_.line(fmt::format("{} {:<8} {:<8} {:>8} {:>10} {}",
                           painted(fmt::format("{:<8}", word), colour, has_colours_), keyword, kind, first,
                           second, rest));
}

void PlanReport::remove(const Removal& removal) {
  if (is_json_) {
    Json object;
    object["type"] = "plan_removal";
    object["keyword"] = text_of(removal.keyword);
    set_name(object, "path", removal.path.text());
    object["files"] = removal.files;
    object["bytes"] = removal.bytes;
    output_.line(json_line(object));
    return;
  }
  print_line("removed", RED, text_of(removal.keyword), "files", removal.files,
             fmt::format("{}B", removal.bytes), shown(removal.path.text()));
}

void PlanReport::leave_out(const PackageName& package, const fs::Path& name, const fs::Path& path,
                           std::string_view reason) {
  if (is_json_) {
    Json object;
    object["type"] = "plan_item";
    set_name(object, "package", package.path.text());
    set_name(object, "name", name.text());
    set_name(object, "path", path.text());
    set_name(object, "reason", reason);
    output_.line(json_line(object));
    return;
  }
  output_.line("  " + shown(name.text()) + ": " + shown(reason));
}

void PlanReport::end_package(const PackagePlan& plan) {
  restored_ += plan.restored;
  left_out_ += plan.left_out;
  ++(plan.fate == Fate::RESTORED ? packages_ : refused_);
  has_trouble_ = has_trouble_ || !plan.reason.empty();
  const PackageName& package = plan.package;
  if (is_json_) {
    Json object;
    object["type"] = "plan_package";
    object["keyword"] = text_of(package.keyword);
    object["kind"] = text_of(package.kind);
    set_name(object, "name", package.path.text());
    object["fate"] = text_of(plan.fate);
    object["restored"] = plan.restored;
    object["left_out"] = plan.left_out;
    if (!plan.reason.empty()) set_name(object, "reason", plan.reason);
    output_.line(json_line(object));
    return;
  }
  const std::string reason = plan.reason.empty() ? "" : ": " + shown(plan.reason);
  print_line(text_of(plan.fate), colour_of(plan.fate), text_of(package.keyword), text_of(package.kind),
             plan.restored, std::to_string(plan.left_out), shown(package.path.text()) + reason);
}

void PlanReport::warn(Keyword keyword, std::string_view reason) { print_trouble("warning", keyword, reason); }

void PlanReport::stop(Keyword keyword, std::string_view reason) { print_trouble("end", keyword, reason); }

void PlanReport::print_trouble(std::string_view what, Keyword keyword, std::string_view reason) {
  has_trouble_ = true;
  if (is_json_) {
    Json object;
    object["type"] = "plan_trouble";
    object["what"] = what;
    object["keyword"] = text_of(keyword);
    set_name(object, "reason", reason);
    output_.line(json_line(object));
    return;
  }
  output_.line(painted(std::string(what), RED, has_colours_) + " " + std::string(text_of(keyword)) + ": " +
               shown(reason));
}

void PlanReport::sum_up(const std::string& archive) {
  if (is_json_) {
    Json object;
    object["type"] = "plan_summary";
    set_name(object, "archive", archive);
    object["status"] = status();
    object["packages"] = packages_;
    object["refused"] = refused_;
    object["restored"] = restored_;
    object["left_out"] = left_out_;
    output_.line(json_line(object));
    return;
  }
  const std::string all = fmt::format("{} packages, {} items", packages_, restored_);
  output_.line(shown(archive) + ": " +
               (status() == STATUS_GOOD
                    ? "all would come back: " + all
                    : fmt::format("{} would come back; {} packages and {} items would not", all, refused_,
                                  left_out_)));
}

int PlanReport::status() const noexcept {
  return has_trouble_ || refused_ > 0 || left_out_ > 0 ? STATUS_DIFFERENT : STATUS_GOOD;
}

}  // namespace harbix::inspect
