#pragma once

namespace harbix {

/// Progress and trace lines go to standard error. Set by -v, read everywhere.
extern bool verbose;

/// Nothing is to be changed. Set by -p, which ends the run at once.
extern bool pretend;

}  // namespace harbix
