#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "inspect/output.h"

namespace harbix::inspect {

/// How bad a finding is.
enum class Severity {
  NOTE,     ///< odd, but a restore brings everything back
  PROBLEM,  ///< something is missing, or a restore would refuse it
  DAMAGE,   ///< what follows cannot be read
};

[[nodiscard]] std::string_view text_of(Severity severity);  ///< "note", "problem", "damage"

/// Something that is wrong with an archive, and where.
struct Finding {
  Severity severity;
  std::string_view code;                      ///< for programs: "no-record" and the like
  std::string reason;                         ///< for people, without names
  std::string package = {};                   ///< "/media/Music"
  std::string name = {};                      ///< of the entry or of the path that is meant
  std::optional<std::int64_t> position = {};  ///< of the entry's header, in bytes
};

/// Prints findings as they come, and remembers the worst.
class Findings {
 public:
  /// `archive` stands before each line, where there are several.
  Findings(Output& output, std::string archive, bool is_json, bool shows_notes, bool names_archive)
      : output_(output),
        archive_(std::move(archive)),
        is_json_(is_json),
        shows_notes_(shows_notes),
        names_archive_(names_archive) {}

  void add(const Finding& finding);

  /// Called before a line is printed.
  void before_lines(std::function<void()> call) { before_line_ = std::move(call); }

  [[nodiscard]] std::uint64_t notes() const noexcept { return notes_; }
  [[nodiscard]] std::uint64_t problems() const noexcept { return problems_; }
  [[nodiscard]] bool has_damage() const noexcept { return has_damage_; }
  [[nodiscard]] int status() const noexcept;

 private:
  void print(const Finding& finding);

  Output& output_;
  std::string archive_;
  bool is_json_;
  bool shows_notes_;
  bool names_archive_;
  std::function<void()> before_line_ = [] {};
  std::uint64_t notes_ = 0;
  std::uint64_t problems_ = 0;
  bool has_damage_ = false;
};

}  // namespace harbix::inspect
