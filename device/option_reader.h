#pragma once

#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace device {

/// One option that a program takes.
struct Option {
  /// The long name, without dashes.
  const char* name;
  /// The one-letter form, for an option without a value; 0: none.
  char letter = 0;
  bool has_value = false;
  /// Called each time the option is given; with an empty text when it has no value.
  std::function<void(const std::string& value)> take;
};

/// What is wrong with a command line, one line without the program's name.
class WrongOption : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads the options at the front of a program's arguments `words` (without the program's name), which end at
/// the first operand or at "--". A value is given as "--option=VALUE" or as the next argument, and is not
/// empty. Names have to be given whole: what a shortened one means would change when an option is added.
/// @return the operands. @throws WrongOption quoting the option. What the options `take` throw goes through.
[[nodiscard]] std::vector<std::string> read_options(std::span<const Option> options,
                                                    const std::vector<std::string>& words);

/// The number that `text` consists of, as a file descriptor is given on a command line.
/// @throws WrongOption quoting `text` when it is none.
[[nodiscard]] int parse_descriptor(const std::string& text);

}  // namespace device
