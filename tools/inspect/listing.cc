#include "inspect/listing.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <archive_entry.h>

#include "archive/package_name.h"
#include "base/size_result.h"
#include "inspect/archive_pass.h"
#include "inspect/json_lines.h"
#include "inspect/names.h"

namespace harbix::inspect {
namespace {

/// "1.5M" and the like, at most five characters; exact below 1024.
std::string human_size(std::uint64_t bytes) {
  constexpr std::array<char, 6> UNITS{'K', 'M', 'G', 'T', 'P', 'E'};
  constexpr double STEP = 1024;
  constexpr double SHORT = 9.95;
  if (bytes < static_cast<std::uint64_t>(STEP)) return std::to_string(bytes);
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (value /= STEP; value >= STEP - 0.5 && unit + 1 < UNITS.size(); value /= STEP) ++unit;
  return value < SHORT ? fmt::format("{:.1f}{}", value, UNITS[unit])
                       : fmt::format("{:.0f}{}", value, UNITS[unit]);
}

/// "drwxr-x---", as ls shows it.
std::string mode_text(const EntryView& entry) {
  constexpr std::string_view BITS = "rwxrwxrwx";
  const mode_t mode = entry.destination(fs::Path()).record().st_mode;
  const std::string_view kind = kind_of(entry);
  char type = '?';
  if (kind == "file") type = '-';
  if (kind == "folder") type = 'd';
  if (kind == "link") type = 'l';
  if (kind == "hard link") type = 'h';
  std::string text(1, type);
  for (std::size_t i = 0; i < BITS.size(); ++i)
    text += (mode >> (BITS.size() - 1 - i) & 1U) != 0 ? BITS[i] : '-';
  if ((mode & S_ISUID) != 0) text[3] = text[3] == 'x' ? 's' : 'S';
  if ((mode & S_ISGID) != 0) text[6] = text[6] == 'x' ? 's' : 'S';
  if ((mode & S_ISVTX) != 0) text[9] = text[9] == 'x' ? 't' : 'T';
  return text;
}

std::string time_text(std::time_t seconds) {
  std::tm parts{};
  // A year that is beyond all calendars.
  if (::localtime_r(&seconds, &parts) == nullptr) return std::to_string(seconds);
  std::array<char, 64> text{};
  const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &parts);
  return {text.data(), size};
}

std::string target_of(const EntryView& entry) {
  if (const char* const hard = ::archive_entry_hardlink(entry.get())) return hard;
  return std::string(entry.link_target().value_or(""));
}

/// What is counted of a package.
struct Tally {
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;
  std::optional<std::pair<uid_t, gid_t>> owner;
  bool has_one_owner = true;

  void add(const struct ::stat& record, bool is_file) {
    ++items;
    if (is_file && record.st_size > 0)
      bytes = saturated_sum(bytes, static_cast<std::uint64_t>(record.st_size));
    const std::pair<uid_t, gid_t> its{record.st_uid, record.st_gid};
    has_one_owner = has_one_owner && owner.value_or(its) == its;
    owner = owner.value_or(its);
  }
};

class Listing : public Visitor {
 public:
  Listing(const Request& request, Output& output)
      : request_(request), output_(output), is_found_(request.names.size()) {
    has_colours_ = has_colours(request.colour, output);
    is_human_ = output.is_terminal() && !request.shows_bytes;
    shows_items_ = request.is_long || !request.names.empty();
  }

  void begin_package(const PackageName& package, const Item& /*item*/, ArchiveReader& /*reader*/) override {
    end_package();
    package_ = package;
    tally_ = {};
    is_wanted_ = request_.names.empty() || is_named(package);
    if (shows_items_ && is_wanted_ && !request_.is_json && output_.is_terminal())
      output_.line(painted(shown(package.path.text()) + ":", BOLD));
  }

  void meet(const Item& item, ArchiveReader& /*reader*/) override {
    if (package_) {
      tally_.add(item.entry.destination(fs::Path()).record(), item.entry.is_plain_file());
    } else {
      ++strays_;
    }
    if (shows_items_ && (package_ ? is_wanted_ : request_.names.empty())) print(item);
  }

  void end_package() {
    if (!package_ || !is_wanted_) return;
    if (request_.is_json) {
      print_json(*package_);
    } else if (!shows_items_) {
      print(*package_);
    }
    package_.reset();
  }

  [[nodiscard]] std::uint64_t strays() const noexcept { return strays_; }

  /// @return whether every package that is named was met; otherwise it is reported.
  [[nodiscard]] bool has_found_all() const {
    for (std::size_t i = 0; i < is_found_.size(); ++i) {
      if (!is_found_[i]) complain("No package '" + request_.names[i] + "' in the archive");
    }
    return std::ranges::find(is_found_, false) == is_found_.end();
  }

 private:
  static constexpr std::string_view BOLD = "1";
  static constexpr std::string_view BLUE = "34";
  static constexpr std::string_view CYAN = "36";

  bool is_named(const PackageName& package) {
    bool is_any = false;
    for (std::size_t i = 0; i < is_found_.size(); ++i) {
      std::string name = rooted_name(request_.names[i]);
      if (name.size() > 1 && name.ends_with('/')) name.pop_back();
      const bool is_it = name == package.path.text() || name == package.title;
      is_found_[i] = is_found_[i] || is_it;
      is_any = is_any || is_it;
    }
    return is_any;
  }

  [[nodiscard]] std::string painted(std::string text, std::string_view colour) const {
    return inspect::painted(std::move(text), colour, has_colours_);
  }
  [[nodiscard]] std::string size_text(std::uint64_t bytes) const {
    return is_human_ ? human_size(bytes) : std::to_string(bytes);
  }
  [[nodiscard]] std::string owner_text() const {
    if (!tally_.owner) return "-";
    return tally_.has_one_owner ? fmt::format("{}:{}", tally_.owner->first, tally_.owner->second) : "several";
  }

  void print(const PackageName& package) {
    if (!output_.is_terminal()) {
      output_.line(fmt::format("{} {} {} {} {} {}", text_of(package.keyword), text_of(package.kind),
                               tally_.items, tally_.bytes, owner_text(), shown(package.path.text())));
      return;
    }
    if (!has_head_)
      output_.line(painted(fmt::format("{:<8} {:<8} {:>8} {:>6} {:>12} {}", "KEYWORD", "KIND", "ITEMS",
                                       "SIZE", "OWNER", "PACKAGE"),
                           BOLD));
    has_head_ = true;
    output_.line(fmt::format("{:<8} {:<8} {:>8} {:>6} {:>12} {}", text_of(package.keyword),
                             text_of(package.kind), tally_.items, size_text(tally_.bytes), owner_text(),
                             painted(shown(package.path.text()), BLUE)));
  }

  void print_json(const PackageName& package) {
    Json object;
    object["type"] = "package";
    object["keyword"] = text_of(package.keyword);
    object["kind"] = text_of(package.kind);
    set_name(object, "name", package.path.text());
    object["items"] = tally_.items;
    object["bytes"] = tally_.bytes;
    if (tally_.owner && tally_.has_one_owner) {
      object["uid"] = tally_.owner->first;
      object["gid"] = tally_.owner->second;
    }
    output_.line(json_line(object));
  }

  void print(const Item& item) {
    const struct ::stat record = item.entry.destination(fs::Path()).record();
    const std::string target = target_of(item.entry);
    if (request_.is_json) {
      print_json(item, record, target);
      return;
    }
    const std::string owner = fmt::format("{}/{}", record.st_uid, record.st_gid);
    const std::string size = size_text(static_cast<std::uint64_t>(std::max<off_t>(record.st_size, 0)));
    // As wide as it had to be so far.
    width_ = std::max(width_, owner.size() + 1 + size.size());
    const std::string_view arrow = item.entry.is_hard_link() ? " link to " : " -> ";
    std::string name = shown(item.name.text());
    if (record.st_mode != 0 && S_ISDIR(record.st_mode)) name = painted(name, BLUE);
    if (!target.empty()) name = painted(name, CYAN);
    output_.line(fmt::format("{} {}{:>{}} {} {}{}", mode_text(item.entry), owner, size, width_ - owner.size(),
                             time_text(record.st_mtim.tv_sec), name,
                             target.empty() ? "" : std::string(arrow) + shown(target)));
  }

  void print_json(const Item& item, const struct ::stat& record, const std::string& target) {
    Json object;
    object["type"] = "item";
    object["kind"] = kind_of(item.entry);
    set_name(object, "name", item.name.text());
    if (package_) set_name(object, "package", package_->path.text());
    object["mode"] = fmt::format("{:04o}", record.st_mode & 07777U);
    object["uid"] = record.st_uid;
    object["gid"] = record.st_gid;
    object["size"] = record.st_size;
    object["modified"] = record.st_mtim.tv_sec;
    object["position"] = item.position;
    if (!target.empty()) set_name(object, "target", target);
    output_.line(json_line(object));
  }

  const Request& request_;
  Output& output_;
  std::vector<bool> is_found_;
  std::optional<PackageName> package_;
  Tally tally_;
  std::uint64_t strays_ = 0;  ///< items before the first package
  std::size_t width_ = 19;    ///< of owner and size together, as tar has it
  bool is_wanted_ = false;
  bool has_colours_ = false;
  bool is_human_ = false;
  bool shows_items_ = false;
  bool has_head_ = false;
};

}  // namespace

int list(const Request& request, Output& output) {
  ArchiveReader reader(input_name(request.archives.front()));
  Listing listing(request, output);
  const std::optional<Damage> damage = read_archive(reader, listing);
  listing.end_package();
  output.flush();
  if (listing.strays() > 0)
    complain(fmt::format("{} items stand before the first package", listing.strays()));
  if (damage) {
    complain(
        fmt::format("{}: {} (behind byte {})", request.archives.front(), damage->reason, damage->position));
    return STATUS_TROUBLE;
  }
  return listing.has_found_all() ? STATUS_GOOD : STATUS_DIFFERENT;
}

}  // namespace harbix::inspect
