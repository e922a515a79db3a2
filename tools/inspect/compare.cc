#include "inspect/compare.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "archive/error.h"
#include "inspect/archive_pass.h"
#include "inspect/json_lines.h"
#include "inspect/names.h"
#include "inspect/record_table.h"
#include "inspect/sha256.h"

namespace harbix::inspect {
namespace {

/// What two archives can differ in for one item: 48 bytes.
struct Traits {
  std::uint64_t name = 0;      ///< its hash
  std::uint64_t position = 0;  ///< of the item
  std::uint64_t contents = 0;  ///< of a file or a link: the first half of a digest
  std::uint64_t more = 0;      ///< and the second
  std::uint32_t mode = 0;      ///< with the type bits
  std::uint32_t user = 0;
  std::uint32_t group = 0;
  std::uint32_t is_met = 0;
};

/// Takes the traits of items.
class Traiter {
 public:
  Traits of(const Item& item, ArchiveReader& reader) {
    const struct ::stat record = item.entry.destination(fs::Path()).record();
    Traits traits;
    traits.name = PathHash::of(item.name.text());
    traits.position = static_cast<std::uint64_t>(item.position);
    traits.mode = item.entry.is_hard_link() ? 0 : record.st_mode;
    traits.user = record.st_uid;
    traits.group = record.st_gid;
    if (const std::optional<std::string_view> target = item.entry.link_target()) sha256_.add(*target);
    if (item.entry.is_plain_file())
      read_contents(reader, item.entry.size(), [this](std::string_view piece) { sha256_.add(piece); });
    const Digest digest = sha256_.finish();
    std::memcpy(&traits.contents, digest.data(), sizeof traits.contents);
    std::memcpy(&traits.more, digest.data() + sizeof traits.contents, sizeof traits.more);
    return traits;
  }

 private:
  Sha256 sha256_;
};

/// All items of an archive but the manifests, by their names.
class Table : public Visitor {
 public:
  void begin_package(const PackageName& /*package*/, const Item& /*item*/,
                     ArchiveReader& /*reader*/) override {}
  void meet(const Item& item, ArchiveReader& reader) override { items_.push_back(traiter_.of(item, reader)); }

  void finish() {
    std::ranges::sort(items_, [](const Traits& one, const Traits& other) {
      return std::pair(one.name, one.position) < std::pair(other.name, other.position);
    });
  }

  /// The first of this name that was not met yet, which is met now.
  const Traits* take(std::uint64_t name) {
    auto found = std::ranges::lower_bound(items_, name, {}, &Traits::name);
    while (found != items_.end() && found->name == name && found->is_met != 0) ++found;
    if (found == items_.end() || found->name != name) return nullptr;
    found->is_met = 1;
    return &*found;
  }

  [[nodiscard]] bool has_unmet() const {
    return std::ranges::find(items_, 0U, &Traits::is_met) != items_.end();
  }

  [[nodiscard]] bool is_unmet(const Item& item) const {
    const std::uint64_t name = PathHash::of(item.name.text());
    for (auto one = std::ranges::lower_bound(items_, name, {}, &Traits::name);
         one != items_.end() && one->name == name; ++one) {
      if (one->position == static_cast<std::uint64_t>(item.position)) return one->is_met == 0;
    }
    return false;
  }

 private:
  Traiter traiter_;
  std::deque<Traits> items_;
};

/// Prints the changes under the names of their packages.
class Changes {
 public:
  Changes(bool is_json, Output& output) : is_json_(is_json), output_(output) {}

  /// `sign` is '+', '-' or '*'; `parts` says what has changed.
  void add(char sign, const Item& item, const std::vector<std::string>& parts = {}) {
    has_any_ = true;
    if (is_json_) {
      add_json(sign, item, parts);
      return;
    }
    print_head(package_path_in(item.name.text()));
    const std::string what = parts.empty() ? "" : fmt::format("  ({})", fmt::join(parts, ", "));
    output_.line(fmt::format("{} {}{}", sign, shown(item.name.text()), what));
  }

  [[nodiscard]] bool has_any() const noexcept { return has_any_; }

 private:
  void print_head(std::string_view package) {
    if (package != head_) output_.line((package.empty() ? "Outside of packages" : shown(package)) + ":");
    head_ = package;
  }

  void add_json(char sign, const Item& item, const std::vector<std::string>& parts) {
    Json object;
    object["type"] = "change";
    object["change"] = sign == '+' ? "came" : sign == '-' ? "went" : "changed";
    set_name(object, "package", package_path_in(item.name.text()));
    set_name(object, "name", item.name.text());
    object["kind"] = kind_of(item.entry);
    if (!parts.empty()) object["parts"] = parts;
    output_.line(json_line(object));
  }

  bool is_json_;
  Output& output_;
  std::optional<std::string> head_;  ///< the package whose name was printed last
  bool has_any_ = false;
};

/// Which of the two archives the table is of.
enum class Side { OLD, NEW };

std::vector<std::string> differences(const Traits& before, const Traits& after) {
  std::vector<std::string> parts;
  if ((before.mode & S_IFMT) != (after.mode & S_IFMT)) return {"kind"};
  if (before.contents != after.contents || before.more != after.more)
    parts.emplace_back(S_ISLNK(after.mode) ? "link" : "contents");
  if (before.mode != after.mode)
    parts.push_back(fmt::format("mode {:04o} -> {:04o}", before.mode & 07777U, after.mode & 07777U));
  if (before.user != after.user || before.group != after.group)
    parts.push_back(fmt::format("owner {}:{} -> {}:{}", before.user, before.group, after.user, after.group));
  return parts;
}

/// Holds the items of one archive against the table of the other.
class Comparison : public Visitor {
 public:
  Comparison(Table& table, Side side, Changes& changes) : table_(table), side_(side), changes_(changes) {}

  void begin_package(const PackageName& /*package*/, const Item& /*item*/,
                     ArchiveReader& /*reader*/) override {}

  void meet(const Item& item, ArchiveReader& reader) override {
    const Traits here = traiter_.of(item, reader);
    const Traits* const there = table_.take(here.name);
    if (there == nullptr) {
      changes_.add(side_ == Side::OLD ? '+' : '-', item);
      return;
    }
    const std::vector<std::string> parts =
        side_ == Side::OLD ? differences(*there, here) : differences(here, *there);
    if (!parts.empty()) changes_.add('*', item, parts);
  }

 private:
  Traiter traiter_;
  Table& table_;
  Side side_;
  Changes& changes_;
};

/// Finds the names of what is in the table alone.
class Remainder : public Visitor {
 public:
  Remainder(const Table& table, Side side, Changes& changes)
      : table_(table), side_(side), changes_(changes) {}

  void begin_package(const PackageName& /*package*/, const Item& /*item*/,
                     ArchiveReader& /*reader*/) override {}
  void meet(const Item& item, ArchiveReader& /*reader*/) override {
    if (table_.is_unmet(item)) changes_.add(side_ == Side::OLD ? '-' : '+', item);
  }

 private:
  const Table& table_;
  Side side_;
  Changes& changes_;
};

bool is_plain_file(const std::string& name) {
  struct ::stat record {};
  return name != "-" && ::stat(name.c_str(), &record) == 0 && S_ISREG(record.st_mode);
}

void read_whole(const std::string& name, Visitor& visitor) try {
  ArchiveReader reader(input_name(name));
  const std::optional<Damage> damage = read_archive(reader, visitor);
  if (damage)
    throw std::runtime_error(fmt::format("{}: {} (behind byte {})", name, damage->reason, damage->position));
} catch (const ArchiveError& error) {
  // Which of the two it is.
  throw std::runtime_error(name + ": " + error.what());
}

}  // namespace

int compare(const Request& request, Output& output) {
  const std::string& before = request.archives[0];
  const std::string& after = request.archives[1];
  const Side side = is_plain_file(before) || !is_plain_file(after) ? Side::OLD : Side::NEW;
  const std::string& known = side == Side::OLD ? before : after;
  // What went is known only at the end, and its names are read again.
  if (!is_plain_file(known)) throw std::runtime_error("One of the two archives must be a plain file");
  Table table;
  read_whole(known, table);
  table.finish();
  Changes changes(request.is_json, output);
  Comparison comparison(table, side, changes);
  read_whole(side == Side::OLD ? after : before, comparison);
  if (table.has_unmet()) {
    Remainder remainder(table, side, changes);
    read_whole(known, remainder);
  }
  return changes.has_any() ? STATUS_DIFFERENT : STATUS_GOOD;
}

}  // namespace harbix::inspect
