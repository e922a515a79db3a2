#pragma once

#include <optional>
#include <string>
#include <vector>

namespace harbix {

/// What the command line asks for.
struct Options {
  std::string file_name = "-";  ///< archive, or size report; "-" is standard input or output
  bool restore = false;
  bool size_only = false;
  bool wipe = false;
  bool initiation = false;
  bool termination = false;
  std::vector<std::string> keywords;  ///< those that are known, in the order first met, each once
  std::vector<std::string> operands;  ///< what follows the options, the keyword operand included

  /// Whether the run can do without a keyword.
  [[nodiscard]] bool needs_keyword() const noexcept { return !initiation && !termination && !wipe; }
};

/// The option letters, as getopt takes them.
inline constexpr char OPTION_LETTERS[] = "d:f:jrsvwpzit";

/// Reads the options up to the first operand, and the keywords of that operand. Sets the debug level (-d),
/// `verbose`
/// (-v) and `pretend` (-p) as it meets them.
/// @return nothing when the run ends at once: -p, -j, -z, an unknown option or a missing argument.
[[nodiscard]] std::optional<Options> parse_options(int argc, char* const argv[]);

/// Why a request cannot be carried out.
struct Refusal {
  std::string output;   ///< for standard output
  std::string message;  ///< for the log, at level 0
};

/// Checks a request; nothing means that it can be carried out.
[[nodiscard]] std::optional<Refusal> check_request(const Options& options);

}  // namespace harbix
