#include "archive/refusal.h"

namespace harbix {

std::string_view text_of(Refusal refusal) {
  switch (refusal) {
    case Refusal::KIND:
      return "hard links, devices, fifos and sockets never come back";
    case Refusal::NO_KEPT_FOLDER:
      return "of an application's data only what lies in data, logs and tmp comes back";
    case Refusal::OTHER_KIND:
      return "its record describes another kind of item";
    case Refusal::LEADS_TO_OTHERS:
      return "other items of the package lie behind this link";
    case Refusal::MISPLACED:
      return "lies outside of its component's folder";
    case Refusal::UNKNOWN_OBJECT:
      return "no object of the navigator";
    case Refusal::NO_CLOCK_DATABASE:
      return "of the system tray only the clock's database comes back";
    case Refusal::EXISTS:
      return "exists already";
    case Refusal::LINK_LEADS_OUT:
      return "the link leads out";
    case Refusal::NO_SETTING:
      return "not allowed by the settings of this device";
    case Refusal::TRICKS:
      return "failed verification for restore";
  }
  return "";
}

}  // namespace harbix
