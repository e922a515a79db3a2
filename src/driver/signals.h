#pragma once

namespace harbix {

/// Makes a closed pipe and a file size limit show as failed writes, which are reported, instead of ending the
/// process without a word. Programs that this one starts get the usual behaviour back.
void let_writes_fail();

}  // namespace harbix
