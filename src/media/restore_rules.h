#pragma once

#include <functional>
#include <optional>

#include "archive/entry_view.h"
#include "archive/extraction.h"
#include "archive/reader.h"
#include "archive/refusal.h"

namespace harbix {

/// Makes sure that there is something to put in the place of what is removed, and room for it. Of an archive
/// that can be read only once, nothing but the first header of media is known.
/// @return whether the shared media may be emptied: not for an archive that cannot be read to its end.
/// @throws std::runtime_error "Could not read next archive header", "The archive holds no media", or as
/// require_room does.
[[nodiscard]] bool look_before_wipe(ArchiveReader& reader);

/// What a restore says at the end of an archive whose survey shows damage.
[[nodiscard]] std::string damage_text(const Survey& survey);

/// The two places where media comes back.
enum class MediaPlace { SHARED, DTM };

/// Which of them an entry of this name belongs to; what is neither is refused by destination_of().
[[nodiscard]] MediaPlace place_of(const fs::Path& name);
[[nodiscard]] fs::Path folder_of(MediaPlace place);
/// For whom things are put there.
/// @throws std::runtime_error for an account that does not exist.
[[nodiscard]] Role role_in(MediaPlace place);

/// Makes sure that a share is where it should be, and not behind a link, and that the role may enter it.
/// @throws std::runtime_error "Could not chdir"; fs::Exception; fs::IdentityError.
void require_place(const fs::Path& path, const Role& role);

/// Where an entry goes.
struct MediaDestination {
  fs::Path below;             ///< its path as a manifest has it
  fs::Path target;            ///< relative to its place's folder
  bool is_relocated = false;  ///< to the folder of what is lost and found
};
/// @throws fs::Exception for a name that lies in neither place, which ends a restore.
[[nodiscard]] MediaDestination destination_of(const fs::Path& name);

/// Why an entry is not restored to its target; nothing for one that is. `is_taken` tells whether something
/// stands there, and is asked of shared media only.
[[nodiscard]] std::optional<Refusal> refusal_of(const EntryView& entry, MediaPlace place,
                                                const std::function<bool()>& is_taken);

}  // namespace harbix
