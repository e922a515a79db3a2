#pragma once

namespace harbix {

/// Stops the navigator and the launcher, which would write over their data while it is restored. Waits for
/// the programs that do it; one that cannot be started is reported, in the log at level 1 as well.
void stop_home_screen();

}  // namespace harbix
