#include "driver/options.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include "base/flags.h"
#include "base/log.h"
#include "driver/keywords.h"

namespace harbix {
namespace {

constexpr char KEYWORD_SEPARATOR = '_';

void set_debug_level(const char* text) {
  const int level = std::atoi(text);  // NOLINT(cert-err34-c): what is no number counts as 0, as it always has
  if (level >= 0 && level <= diagnostics::HIGHEST_LEVEL) diagnostics::set_level(level);
}

/// Applies one option; false ends the run.
bool apply_option(int option, int argc, Options& options) {
  const bool has_argument = optind <= argc;
  switch (option) {
    case 'd':
      set_debug_level(has_argument ? optarg : "0");
      return true;
    case 'f':
      options.file_name = has_argument ? optarg : "";
      return true;
    case 'r':
      options.restore = true;
      return true;
    case 's':
      options.size_only = true;
      return true;
    case 'v':
      verbose = true;
      return true;
    case 'w':
      options.wipe = true;
      return true;
    case 'i':
      options.initiation = true;
      return true;
    case 't':
      options.termination = true;
      return true;
    case 'p':
      pretend = true;
      return false;
    default:
      return false;
  }
}

std::vector<std::string> select_keywords(const std::string& operand) {
  std::vector<std::string> selected;
  std::istringstream pieces(operand);
  for (std::string piece; std::getline(pieces, piece, KEYWORD_SEPARATOR);) {
    if (is_keyword(piece) && std::ranges::find(selected, piece) == selected.end()) selected.push_back(piece);
  }
  return selected;
}

}  // namespace

std::optional<Options> parse_options(int argc, char* const argv[]) {
  // Without the '+', glibc would look for options behind the first operand.
  const std::string letters = std::string("+") + OPTION_LETTERS;
  Options options;
  // The value with which glibc forgets an earlier command line altogether.
  optind = 0;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the program has one thread
  for (int option = 0; (option = ::getopt(argc, argv, letters.c_str())) != -1;) {
    if (!apply_option(option, argc, options)) return std::nullopt;
  }
  options.operands.assign(argv + optind, argv + argc);
  diagnostics::line(2, "Harbix running");
  if (!options.operands.empty()) options.keywords = select_keywords(options.operands.front());
  return options;
}

std::optional<Refusal> check_request(const Options& options) {
  if (options.initiation && options.termination) {
    const std::string text = "can not specify both backup initiation and termination";
    return Refusal{text, text};
  }
  if (options.file_name.empty() || (options.file_name.size() > 1 && options.file_name.starts_with('-'))) {
    return Refusal{"Filename missing\n", "Filename missing"};
  }
  if (options.needs_keyword() && options.keywords.empty())
    return Refusal{"Keyword missing\n", "Keyword missing"};
  return std::nullopt;
}

}  // namespace harbix
