#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "device/installer/answer.h"
#include "device/installer/attributes.h"

namespace installer {

/// What the service is asked to do wrong, so that its clients can be tried against it.
struct Faults {
  /// How much later than usual an answer is written.
  std::chrono::milliseconds delay{0};
  /// An action, or "all": such requests are answered with a failure and not carried out.
  std::string refuse;
  /// Answers come between attributes that mean nothing.
  bool noise = false;
  /// An attribute that answers lack.
  std::string omit;
  /// An action, or "all": the service kills itself when it takes such a request.
  std::string die;

  /// Source: the attributes "delay_ms", "refuse", "noise", "omit" and "die" of the installer's control
  /// object. An empty value is none; a "delay_ms" that is no number up to 600000 is 0.
  [[nodiscard]] static Faults parse(const Attributes& control);

  [[nodiscard]] bool refuses(std::string_view action) const { return refuse == action || refuse == "all"; }
  [[nodiscard]] bool dies_of(std::string_view action) const { return die == action || die == "all"; }
};

/// The answer without the attribute `name`.
[[nodiscard]] Answer without(Answer answer, std::string_view name);

/// What precedes an answer in one write of its own: attributes that no client asked for, those of the answer
/// except the result with values that will be replaced, and the removal of the request's "action", which a
/// reader sees as a line without a colon.
[[nodiscard]] std::string noise_before(const Answer& answer);

/// The answer with an attribute of the noise once more before it.
[[nodiscard]] Answer with_noise(Answer answer);

}  // namespace installer
