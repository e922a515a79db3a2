#pragma once

#include <cstddef>

/// The diagnostics log: lines to the system log, at six debug levels.
///
/// The log never filters: the caller tests the level before it writes a line. `line()` does both at once.
namespace diagnostics {

/// A line with its terminator; what does not fit is cut.
inline constexpr std::size_t LINE_CAPACITY = 800;

/// Sends one printf-style message at the severity of one debug level.
using LevelFunction = void (*)(const char* format, ...) noexcept;

/// Levels 0 (errors) to 5 (most detailed).
inline constexpr int HIGHEST_LEVEL = 5;

/// Stores the process-wide level, which is 1 at start. Up to 5 it is confirmed by the message
/// "Debug level %d enabled\n", sent at the severity of `level`, whatever the level was before.
void set_level(int level) noexcept;

/// The stored level if it is one of 0 to 5, else 0.
[[nodiscard]] int level() noexcept;

/// The function of one level; for any other number that of level 0.
[[nodiscard]] LevelFunction level_function(int level) noexcept;

/// Sends "PROGRAM[PID]:message" at the severity of `level` when the level in force is at least that.
/// Level 0 is thus always sent.
[[gnu::format(printf, 2, 3)]] void line(int level, const char* format, ...) noexcept;

}  // namespace diagnostics
