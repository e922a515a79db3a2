# Compares what 'inventory' of scripts/demo found before the loss and after the restore. Exits with 1 when an item that
# belongs into a backup is not back as it was, or when something is there that should not be.
#
# Some items do not belong into a backup, and a few come back elsewhere; the rules are those of harbix(1).

BEGIN {
  FS = "\t"
  LOST_AND_FOUND = "\"shared/misc/lost_and_found/bookmarks/"
}

# The quoted name, without the target of a link and without the quote at its end: a prefix of what is below it.
function path_of(name,    arrow) {
  arrow = index(name, "\" -> \"")  # quotes inside of a name are written \"
  return arrow ? substr(name, 1, arrow - 1) : substr(name, 1, length(name) - 1)
}

function target_of(name,    arrow) {
  arrow = index(name, "\" -> \"")
  return arrow ? substr(name, arrow + 5) : ""
}

function parent_of(path) {
  sub(/\/[^\/]*$/, "", path)
  return path
}

function is_media(path) { return index(path, "\"shared/") == 1 }

function is_top_level(path) { return path ~ /^"(shared|sys\/dtm)\/[^\/]*$/ }

# Readable for the user media, who owns the shared media. The dtm share is read by root.
function is_readable(path) { return !is_media(path) || int(mode[path] / 100) >= 4 }

function reason_to_leave_out(path,    parent) {
  if (group[path] == "protected_media") return "protected media"
  if (is_media(path) && is_top_level(path) && kind[path] != "directory") return "not in a top-level folder"
  if (!is_media(path) && is_top_level(path) && kind[path] == "symbolic link") return "link at the top of the dtm share"
  if (!is_readable(path)) return "not readable"
  for (parent = parent_of(path); parent ~ /\//; parent = parent_of(parent)) {
    if (parent in kind && !is_readable(parent)) return "in a folder that is not readable"
  }
  return ""
}

function place_after_restore(path) {
  if (index(path, "\"shared/bookmarks/") == 1) return LOST_AND_FOUND substr(path, length("\"shared/bookmarks/") + 1)
  return path
}

function complain(text, path) {
  if (++differences <= 20) printf "  %s: %s\"\n", text, path
}

function compare(path, place) {
  if (!(place in kind_now)) {
    complain("missing", path)
    return
  }
  back[kind[path]]++
  if (kind_now[place] != kind[path] || target_now[place] != target[path]) complain("kind or target differs", path)
  if (owner_now[place] != owner[path]) complain("owner is " owner_now[place] ", not " owner[path], path)
  if (mode_now[place] != mode[path]) complain("mode is " mode_now[place] ", not " mode[path], path)
  if (contents_now[place] != contents[path]) complain("contents differ", path)
  else if (kind[path] == "file") bytes_back += size[path]
  expected[place] = 1
}

FNR == NR {
  path = path_of($7)
  kind[path] = $1; mode[path] = $2; owner[path] = $3 ":" $4; group[path] = $4
  size[path] = $5; contents[path] = $5 " " $6; target[path] = target_of($7)
  order[++count] = path
  next
}

{
  path = path_of($7)
  kind_now[path] = $1; mode_now[path] = $2; owner_now[path] = $3 ":" $4
  contents_now[path] = $5 " " $6; target_now[path] = target_of($7)
}

function print_row(name, key) {
  printf "%-10s %12d %12d %12d %12d\n", name, total[key], left_out[key], total[key] - left_out[key], back[key]
}

# Folders that were not backed up, but had to be made for what is in them.
function expect_parents(    place, parent) {
  for (place in expected) wanted[place] = 1
  for (place in wanted) {
    for (parent = parent_of(place); parent ~ /\// && !(parent in expected) && parent != "\"sys/dtm";
         parent = parent_of(parent)) {
      expected[parent] = 1
      made[++made_count] = parent
      if (kind_now[parent] != "directory") complain("no folder", parent)
    }
  }
}

END {
  for (i = 1; i <= count; ++i) {
    path = order[i]
    total[kind[path]]++
    if (kind[path] == "file") total["bytes"] += size[path]
    reason = reason_to_leave_out(path)
    if (reason != "") {
      left_out[kind[path]]++
      if (kind[path] == "file") left_out["bytes"] += size[path]
      left_out_lines = left_out_lines sprintf("  %-33s %s\"\n", reason, path)
      continue
    }
    place = place_after_restore(path)
    if (place != path) moved_lines = moved_lines sprintf("  %s\" -> %s\"\n", path, place)
    compare(path, place)
  }
  back["bytes"] = bytes_back
  expect_parents()
  for (place in kind_now) if (!(place in expected)) complain("was not there before", place)

  printf "\n%-10s %12s %12s %12s %12s\n", "", "before", "left out", "backed up", "back"
  print_row("folders", "directory")
  print_row("files", "file")
  print_row("links", "symbolic link")
  print_row("bytes", "bytes")
  printf "\nLeft out of the backup, as it should be:\n%s", left_out_lines
  printf "\nBack in another place, as it should be:\n%s", moved_lines
  printf "\nFolders made for these, or for an ordinary file in a protected folder:\n"
  for (i = 1; i <= made_count; ++i) printf "  %s\"\n", made[i]
  printf "\nNot compared: times. A restored item is as new as the restore.\n"

  restored = back["directory"] + back["file"] + back["symbolic link"]
  if (differences > 0 || restored == 0) {
    printf "\nFAILED: %d differences\n", differences
    exit 1
  }
  printf "\nAll that was backed up is back, with names, contents, links, owners and modes as before: %d items.\n",
         restored
}
