#include "device/installer/faults.h"

#include <charconv>

namespace installer {
namespace {

std::chrono::milliseconds parse_delay(std::string_view text) {
  constexpr unsigned int LONGEST = 600000;
  unsigned int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool fits = error == std::errc{} && end == text.data() + text.size() && number <= LONGEST;
  return std::chrono::milliseconds(fits ? number : 0);
}

}  // namespace

Faults Faults::parse(const Attributes& control) {
  return {.delay = parse_delay(value_of(control, "delay_ms")),
          .refuse = value_of(control, "refuse"),
          .noise = !value_of(control, "noise").empty(),
          .omit = value_of(control, "omit"),
          .die = value_of(control, "die")};
}

Answer without(Answer answer, std::string_view name) {
  std::erase_if(answer, [&](const auto& attribute) { return attribute.first == name; });
  return answer;
}

std::string noise_before(const Answer& answer) {
  Answer noise;
  noise.emplace_back("progress", "1");
  for (const auto& [name, value] : without(answer, RESULT)) noise.emplace_back(name, "not yet: " + value);
  noise.emplace_back("empty", "");
  noise.emplace_back("colons", "a::b:c");
  return to_lines(noise) + "-action\n";
}

Answer with_noise(Answer answer) {
  answer.insert(answer.begin(), std::pair<std::string, std::string>("progress", "100"));
  return answer;
}

}  // namespace installer
