#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace harbix::inspect {

/// What was to be said could not be written: nothing that follows would be complete.
class OutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Standard output, in large pieces; on a terminal line by line. A write that fails is an error at once: a
/// closed pipe or a full disk must not pass for a whole answer.
class Output {
 public:
  explicit Output(int descriptor);
  ~Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  Output(Output&&) = delete;
  Output& operator=(Output&&) = delete;

  /// @throws OutputError "Standard output: REASON"
  void write(std::string_view text);
  void line(std::string_view text);
  /// Writes what has gathered; to be called at the end.
  void flush();

  [[nodiscard]] bool is_terminal() const noexcept { return is_terminal_; }

 private:
  void write_out(std::string_view text);

  int descriptor_;
  bool is_terminal_;
  std::string waiting_;
};

/// Whether a person reads the output in colours: `when` is "always", "never" or "auto".
[[nodiscard]] bool has_colours(const std::string& when, const Output& output);
/// The text in the colour of an escape sequence ("1", "34"), if there are colours.
[[nodiscard]] std::string painted(std::string text, std::string_view colour, bool has_colours);

/// Makes a closed pipe and a file size limit show as failed writes.
void let_writes_fail();

/// A line on standard error: "harbix-inspect: TEXT", as names are shown.
void complain(std::string_view text);

}  // namespace harbix::inspect
