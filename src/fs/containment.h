#pragma once

#include <string_view>

#include "fs/folder.h"
#include "fs/path.h"

/// What an archive may name. Entries, links and manifests can come from anybody, and a restore runs as root:
/// every name that leads to the device passes one of these tests first. All but leads_inside() judge the text
/// alone; that nothing on disk leads elsewhere, and that no program swaps a folder meanwhile, is fs::Folder's
/// part, which follows no link below its root.
namespace fs {

/// Whether a name is one component and nothing else: not empty, no separator, not "." or "..".
/// Guards the folders that are made of a manifest's text: an application's binaries below "/apps" and its
/// data, which are removed, extracted into and given to an owner.
[[nodiscard]] bool is_plain_component(std::string_view name);

/// Whether a file record's path is one that its package may hold: in normal form, no '/' at its end, and
/// strictly below `base` on a component boundary.
/// Guards what the records of an application's package, or of a part of the home screen, are extracted to.
[[nodiscard]] bool is_record_path_below(const Path& path, const Path& base);

/// What an entry is called below `prefix`, the folder of the archive that the entry's keyword owns.
/// Guards the targets of media and settings, which are made of an entry's name: a name that only begins with
/// the same characters ("/mediax") has none.
/// @throws Exception "Path 'NAME' is not subdirectory of 'PREFIX'"
[[nodiscard]] Path name_below(const Path& name, const Path& prefix);

/// Whether the text of a symbolic link's target at `path` names something inside `folder`, both absolute. A
/// relative target counts from the link's own folder, and a ".." behind a name is refused: the name can be
/// another link by the time at which the link is used.
[[nodiscard]] bool names_inside(const Path& path, std::string_view link_target, const Path& folder);

/// Whether a symbolic link at `path` leads to something inside `folder`, both absolute. The target is judged
/// by its text, as names_inside does, and then followed on the device below `root`, which is "/": what exists
/// of it must lead inside as well. Guards the links of settings, PPS objects and the home screen: a link that
/// leads out would give its owner's files away, or have later writes land where it leads.
[[nodiscard]] bool leads_inside(Folder& root, const Path& path, std::string_view link_target,
                                const Path& folder);

}  // namespace fs
