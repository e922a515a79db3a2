#pragma once

#include <string_view>

namespace harbix {

/// Why a restore leaves out an entry that it could read.
enum class Refusal {
  KIND,
  // Of applications.
  NO_KEPT_FOLDER,
  OTHER_KIND,
  LEADS_TO_OTHERS,
  // Of the home screen.
  MISPLACED,
  UNKNOWN_OBJECT,
  NO_CLOCK_DATABASE,
  // Of media, and of the home screen.
  EXISTS,
  // Of settings, and of the home screen.
  LINK_LEADS_OUT,
  NO_SETTING,
  TRICKS,
};

/// The reason for people, without names.
[[nodiscard]] std::string_view text_of(Refusal refusal);

}  // namespace harbix
