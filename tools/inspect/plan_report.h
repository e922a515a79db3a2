#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "archive/entry_view.h"
#include "inspect/options.h"
#include "inspect/output.h"
#include "inspect/package.h"

namespace harbix::inspect {

/// What becomes of a package.
enum class Fate {
  RESTORED,  ///< but for items that are left out
  REFUSED,   ///< and the restore says that this is an error
  SKIPPED,   ///< and the restore goes on as if nothing had happened
};
[[nodiscard]] std::string_view text_of(Fate fate);  ///< "restored", "refused", "skipped"

/// What a package comes to.
struct PackagePlan {
  PackageName package;
  Fate fate = Fate::RESTORED;
  std::string reason = {};     ///< of what is wrong with the package as a whole, if anything is
  std::uint64_t restored = 0;  ///< items
  std::uint64_t left_out = 0;
};

/// What would be removed to make place for what comes back.
struct Removal {
  Keyword keyword;
  fs::Path path;
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
};

/// Prints what a restore would do, as it is found out, and remembers whether all would come back.
class PlanReport {
 public:
  PlanReport(const Request& request, Output& output);

  void remove(const Removal& removal);
  /// An item of `package` that does not come back; `path` is where it would stand on the device.
  void leave_out(const PackageName& package, const fs::Path& name, const fs::Path& path,
                 std::string_view reason);
  void end_package(const PackagePlan& plan);
  /// Something that the restore reports without giving up.
  void warn(Keyword keyword, std::string_view reason);
  /// The restore of a keyword ends here, with this message.
  void stop(Keyword keyword, std::string_view reason);
  /// The last line.
  void sum_up(const std::string& archive);

  [[nodiscard]] int status() const noexcept;

 private:
  void print_line(std::string_view word, std::string_view colour, std::string_view keyword,
                  std::string_view kind, std::uint64_t first, const std::string& second,
                  const std::string& rest);
  void print_trouble(std::string_view what, Keyword keyword, std::string_view reason);

  Output& output_;
  bool is_json_;
  bool has_colours_;
  bool has_head_ = false;
  bool has_trouble_ = false;
  std::uint64_t packages_ = 0;  ///< that come back
  std::uint64_t refused_ = 0;   ///< that do not
  std::uint64_t restored_ = 0;  ///< items
  std::uint64_t left_out_ = 0;
};

}  // namespace harbix::inspect
