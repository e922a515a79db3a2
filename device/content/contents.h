#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "device/content/application_folders.h"
#include "device/content/media_share.h"
#include "device/tree_writer.h"

// What write_sample_content() puts on a device, each in the file of its name: applications.cc has
// write_applications().

namespace device {

inline constexpr std::uint64_t KIB = 1024;
/// The most bytes that a Linux file system takes for one name.
inline constexpr std::size_t LONGEST_NAME = 255;

/// Puts installed applications into the tree, and the ledger of the installer that knows them: four from the
/// storefront, two of other sources, two built-in ones, the runtime that is listed like an application, and
/// one that was uninstalled.
void write_applications(TreeWriter& tree);

/// Names of any bytes and links of every kind, among the binaries and among the data.
void write_odd_binaries(ApplicationFolder& binaries);
void write_odd_data(ApplicationFolder& data);

/// Puts the home screen into the tree: the data of its components sys.navigator and sys.systemtray, the
/// navigator's two PPS objects, and the programs that stop and start it. Each of these appends a line to
/// /var/log/home-screen.log when it is run: its name and its arguments, separated by blanks.
/// To be called after write_settings_objects(), which makes /var/pps/system.
void write_home_screen(TreeWriter& tree);

/// Makes the SQLite database `path` of the system tray's clock: a table "alarms" with two rows.
/// @throws Failure quoting the path.
void write_clock_database(const TreeWriter& tree, const std::string& path, Owner owner, mode_t mode);

/// The media that an ordinary user would have: some 280 files in folders for music, photos, videos,
/// recordings, documents, downloads and bookmarks, of sizes from nothing to a few MiB, and folders without
/// files.
void write_media_collection(MediaShare& share);

/// What makes a backup hard: names of any bytes, links of every kind, protected items and unreadable ones.
/// Needs the folders of write_media_collection().
void write_odd_items(MediaShare& share);

/// Makes the media library /accounts/1000/db/mmlibrary.db, an SQLite database, with one row for each record
/// in the table files(fid, ftype, size, filename, folder, date_modified): "filename" is the name, "folder"
/// what is before it. Names are stored byte for byte, also where they are not UTF-8.
/// @throws Failure quoting the database's path and what SQLite says.
void write_media_library(TreeWriter& tree, const std::vector<MediaRecord>& records);

/// Fills the dtm share /accounts/1000/sys/dtm: a tree of folders, a plain file and a link at its top.
void write_dtm_share(TreeWriter& tree);

/// Fills /var/pps with some 200 objects of services: settings, states, "control" objects, accounts, profiles,
/// alarms, the wallpaper; of several owners and modes, some under odd names, some with an "@" part in the
/// name of their file. Every start of the device has them live below /pps.
void write_settings_objects(TreeWriter& tree);

/// Fills what the sample settings scripts name, and some of what they do not: plain files and folders of
/// several owners and modes below /accounts/1000/settings, /accounts/1000/sys/keyboard, /base/etc and
/// /var/etc, under odd names too, and links into and out of them.
void write_settings_files(TreeWriter& tree);

/// Puts settings scripts into /base/scripts/backup_and_restore/settings. Called with "whitelist" or
/// "blacklist" they print one line for each path, "whitelist /path", among lines of their own and lines that
/// are no good; called with any other word they append their name and that word to /var/log/subscribers.log.
void write_settings_scripts(TreeWriter& tree);

/// Puts subscriber scripts into /base/scripts/backup_and_restore and its folder settings. Each appends one
/// line to /var/log/subscribers.log when it is run: its name, a blank and its argument, "media-server
/// backup_start".
void write_subscriber_scripts(TreeWriter& tree);

/// The program that makes a sample device live, a service of it: publishes at each start what no store keeps.
inline constexpr const char* LIVE_STATE_PROGRAM = "/base/bin/live-state";

/// Puts it into the tree. To be called with the objects of write_settings_objects().
void write_live_state(TreeWriter& tree);

}  // namespace device
