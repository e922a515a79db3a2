#pragma once

#include <cstdint>
#include <string_view>

/// How far a run has come, for who asks: a process that gets SIGUSR1 prints one line on standard error,
/// "Progress: KEYWORD: PACKAGE: N items, M bytes", and goes on. Nothing is printed unasked.
namespace harbix::run_progress {

/// From here on SIGUSR1 is answered; programs that this one starts get the usual behaviour back.
void answer_signals() noexcept;

/// `name` stays where it is for the rest of the run.
void begin_keyword(const char* name) noexcept;
/// A name that is too long for a line is cut.
void begin_package(std::string_view name) noexcept;
void add_item() noexcept;
void add_bytes(std::int64_t count) noexcept;

}  // namespace harbix::run_progress
