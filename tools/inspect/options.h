#pragma once

#include <optional>
#include <string>
#include <vector>

namespace harbix::inspect {

inline constexpr int STATUS_GOOD = 0;
inline constexpr int STATUS_DIFFERENT = 1;
inline constexpr int STATUS_TROUBLE = 2;
inline constexpr int STATUS_USAGE = 64;

enum class Command { LIST, VERIFY, CHECKSUMS, COMPARE, EXTRACT, PLAN };

/// What the command line asks for.
struct Request {
  Command command = Command::LIST;
  std::vector<std::string> archives;  ///< file names; "-" is standard input
  std::vector<std::string> names;     ///< packages, paths or keywords
  std::string folder;                 ///< of --to
  std::string checksums;              ///< of --checksums
  std::string colour = "auto";
  bool is_json = false;
  bool is_long = false;
  bool shows_bytes = false;
  bool shows_notes = false;
};

/// Reads the command line. Help and version are printed on standard output, what is wrong on standard error.
/// @return nothing when the program is done; then `status` is set. @throws OutputError
[[nodiscard]] std::optional<Request> parse_options(int argc, const char* const* argv, int& status);

}  // namespace harbix::inspect
