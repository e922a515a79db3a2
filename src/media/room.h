#pragma once

#include "archive/survey.h"

namespace harbix {

/// Makes sure, before anything is removed, that the media of an archive can find room: on the shared media
/// with what the restore removes there or leaves as it is, and on the dtm share with what it replaces. What
/// is in doubt counts as room, so that no archive is refused that would fit.
/// @throws std::runtime_error "The media of the archive take N bytes, but at most M bytes can be made free";
/// fs::Exception when a share cannot be looked at.
void require_room(const Survey& survey);

}  // namespace harbix
