#pragma once

namespace harbix {

/// Fills the numbers of standard streams that the caller has closed with something that refuses to be read
/// and written, as a closed stream does. Otherwise the next file to be opened takes the number, and messages
/// are written into an archive. Programs that this one starts find the streams closed.
/// @throws fs::Exception "Failed to occupy a closed standard stream" when that cannot be done.
void occupy_closed_streams();

}  // namespace harbix
