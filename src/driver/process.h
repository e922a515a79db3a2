#pragma once

namespace harbix {

/// Keeps some memory back for the time when there is no more: the first request for memory that fails gives
/// it back, and throws std::bad_alloc as ever. Where that cannot be caught any more, in the middle of
/// cleaning up, the process reports it and ends with status 2 instead of aborting.
void survive_lack_of_memory();

/// Gives the programs that this one starts nothing to read: what is on standard input is the archive, or the
/// caller's own. To be called when standard input has been opened where it is wanted.
void detach_standard_input();

/// Makes a closed pipe and a file size limit show as failed writes, which are reported, instead of ending the
/// process without a word. Programs that this one starts get the usual behaviour back. Lets programs be
/// waited for, whatever the caller did about their ends.
void let_writes_fail();

/// Fills the numbers of standard streams that the caller has closed with something that refuses to be read
/// and written, as a closed stream does. Otherwise the next file to be opened takes the number, and messages
/// are written into an archive. Programs that this one starts find the streams closed.
/// @throws fs::Exception "Failed to occupy a closed standard stream" when that cannot be done.
void occupy_closed_streams();

/// Makes "/" the working directory, and the user account's group and the system's the only supplementary
/// ones.
/// @throws fs::Exception when "/" cannot be entered; std::runtime_error when the system group does not exist.
void prepare_process();

/// Lets the library write names beyond ASCII, which it refuses in the "C" locale.
void use_utf8_names();

}  // namespace harbix
