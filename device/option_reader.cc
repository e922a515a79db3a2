#include "device/option_reader.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace device {
namespace {

// Larger than any character, so that a long option is never taken for a letter.
constexpr int FIRST_LONG = 256;

std::size_t index_of(int value) { return static_cast<std::size_t>(value - FIRST_LONG); }

struct Tables {
  explicit Tables(std::span<const Option> options) {
    int value = FIRST_LONG;
    for (const Option& option : options) {
      if (option.letter != 0) letters += option.letter;
      names.push_back({option.name, option.has_value ? required_argument : no_argument, nullptr, value++});
    }
    names.push_back({});
  }

  // "+": options end at the first operand. ":": getopt_long then reports a missing value and an unknown
  // option in different ways.
  std::string letters = "+:";
  std::vector<option> names;
};

/// The option's name as it was given: "--state" of "--state=DIR".
std::string name_in(const std::string& word) { return word.substr(0, word.find('=')); }

/// What is wrong with a word that getopt_long did not take.
std::string mistake_in(const std::string& word, int problem, std::span<const Option> options) {
  if (problem == ':') return "option '" + word + "' needs a value";
  if (::optopt >= FIRST_LONG && name_in(word) == std::string("--") + options[index_of(::optopt)].name) {
    return "option '" + name_in(word) + "' takes no value";
  }
  const bool is_letter = ::optopt > 0 && ::optopt < FIRST_LONG;
  return "unknown option '" + (is_letter ? std::string("-") + static_cast<char>(::optopt) : word) + "'";
}

const Option& option_of(int found, std::span<const Option> options, const std::string& word) {
  if (found < FIRST_LONG) {
    return *std::ranges::find_if(options, [=](const Option& option) { return option.letter == found; });
  }
  const Option& option = options[index_of(found)];
  if (name_in(word) != std::string("--") + option.name) throw WrongOption("unknown option '" + word + "'");
  return option;
}

}  // namespace

std::vector<std::string> read_options(std::span<const Option> options,
                                      const std::vector<std::string>& words) {
  const Tables tables(options);
  // The library takes its arguments writable by tradition; with "+" it leaves them alone.
  std::string program;
  std::vector<char*> arguments = {program.data()};
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));  // NOLINT
  arguments.push_back(nullptr);
  const int count = static_cast<int>(words.size()) + 1;
  ::opterr = 0;
  // Has the library forget what it read before.
  ::optind = 0;
  while (true) {
    const int at = std::max(::optind, 1);
    const int found =
        ::getopt_long(count, arguments.data(), tables.letters.c_str(), tables.names.data(), nullptr);
    if (found == -1) break;
    const std::string& word = words[static_cast<std::size_t>(at) - 1];
    if (found == '?' || found == ':') throw WrongOption(mistake_in(word, found, options));
    const Option& option = option_of(found, options, word);
    const std::string value = option.has_value ? ::optarg : "";
    if (option.has_value && value.empty()) {
      throw WrongOption("option '" + name_in(word) + "' has an empty value");
    }
    option.take(value);
  }
  return {words.begin() + (::optind - 1), words.end()};
}

int parse_descriptor(const std::string& text) {
  int number = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < 0) {
    throw WrongOption("'" + text + "' is no file descriptor");
  }
  return number;
}

}  // namespace device
