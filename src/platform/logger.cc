#include "platform/logger.h"

#include <syslog.h>

#include <cstdarg>

namespace platform {
namespace {

int syslog_priority(int severity) {
  switch (severity) {
    case SEVERITY_ERROR:
      return LOG_ERR;
    case SEVERITY_WARNING:
      return LOG_WARNING;
    case SEVERITY_NOTICE:
      return LOG_NOTICE;
    case SEVERITY_INFO:
      return LOG_INFO;
    default:
      return LOG_DEBUG;
  }
}

}  // namespace

int slogf(int /*code*/, int severity, const char* format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  ::vsyslog(LOG_USER | syslog_priority(severity), format, arguments);
  va_end(arguments);
  return 0;
}

}  // namespace platform
