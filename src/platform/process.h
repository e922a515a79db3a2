#pragma once

#include <initializer_list>

namespace platform {

/// With spawnl: wait until the program has ended.
inline constexpr int P_WAIT = 0;

/// Runs the program at `path` with these arguments, the first of which is its own name for itself, and waits
/// for its end. It starts with every signal at its default action.
/// @return its status as waitpid(2) gives it, or -1 with errno set when it could not be started.
int spawnl(int mode, const char* path, std::initializer_list<const char*> arguments);

}  // namespace platform
