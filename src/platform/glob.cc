#include "platform/glob.h"

#include <glob.h>

#include <cerrno>

namespace platform {
namespace {

/// The facility's own storage, given back on every way out.
struct Expansion {
  ::glob_t matches{};
  Expansion() = default;
  Expansion(const Expansion&) = delete;
  Expansion& operator=(const Expansion&) = delete;
  Expansion(Expansion&&) = delete;
  Expansion& operator=(Expansion&&) = delete;
  ~Expansion() { ::globfree(&matches); }
};

}  // namespace

GlobResult glob(const std::string& pattern) {
  Expansion expansion;
  errno = 0;
  int status = ::glob(pattern.c_str(), GLOB_ERR, nullptr, &expansion.matches);
  // Under GLOB_ERR, glibc gives up on a directory that does not exist; there is nothing to match in one.
  if (status == GLOB_ABORTED && errno == ENOENT) status = GLOB_NOMATCH;
  if (status == GLOB_NOMATCH) return {};
  if (status != 0) return {.status = status, .paths = {}};

  GlobResult result;
  result.paths.assign(expansion.matches.gl_pathv, expansion.matches.gl_pathv + expansion.matches.gl_pathc);
  return result;
}

}  // namespace platform
