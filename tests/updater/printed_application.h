#pragma once

#include <ostream>

#include "updater/registered_applications.h"

namespace updater {

/// How a failed check shows an application.
inline void PrintTo(const RegisteredApplication& application, std::ostream* stream) {
  *stream << '{' << application.id << "} {" << application.dir << "} {" << application.version << "} {"
          << application.source << '}';
}

}  // namespace updater
