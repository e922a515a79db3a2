#include "base/flags.h"

namespace harbix {

bool verbose = false;
bool pretend = false;

}  // namespace harbix
