# Compares what 'inventory' of scripts/demo found before the loss and after the restore. Exits with 1 when an item that
# belongs into a backup is not back as it should be, or when something is there that should not be.
#
# Some items do not belong into a backup, a few come back elsewhere, and some with fewer permissions; the rules are those
# of harbix(1).

BEGIN {
  FS = "\t"
  MEDIA = "\"accounts/1000/shared/"
  LOST_AND_FOUND = MEDIA "misc/lost_and_found/bookmarks/"
  part_count = split("applications,their data,home screen,shared media,dtm share,settings", parts, ",")
}

function begins_with(text, beginning) { return index(text, beginning) == 1 }

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

function part_of(path) {
  if (begins_with(path, "\"apps/")) return "applications"
  if (path ~ /^"accounts\/1000\/appdata\/sys\.(navigator|systemtray)(\/|$)/) return "home screen"
  if (begins_with(path, "\"accounts/1000/appdata/")) return "their data"
  if (begins_with(path, MEDIA)) return "shared media"
  if (begins_with(path, "\"accounts/1000/sys/dtm/")) return "dtm share"
  return "settings"
}

# The folder of the application that an item belongs to.
function application_of(path) {
  sub(/^"(apps|accounts\/1000\/appdata)\//, "", path)
  sub(/\/.*/, "", path)
  return path
}

function is_top_level(path) { return path ~ /^"accounts\/1000\/(shared|sys\/dtm)\/[^\/]*$/ }

# Readable for the user media, who owns the shared media. Everything else is read by root.
function is_readable(path) { return !begins_with(path, MEDIA) || int(mode[path] / 100) >= 4 }

function reason_of_media(path,    parent) {
  if (begins_with(group[path], "protected_media/")) return "protected media"
  if (is_top_level(path)) {
    if (part_of(path) == "shared media" && kind[path] != "directory") return "not in a top-level folder"
    if (part_of(path) == "dtm share" && kind[path] == "symbolic link") return "link at the top of the dtm share"
  }
  if (!is_readable(path)) return "not readable"
  for (parent = parent_of(path); parent ~ /shared\//; parent = parent_of(parent)) {
    if (parent in kind && !is_readable(parent)) return "in a folder that is not readable"
  }
  return ""
}

function reason_to_leave_out(path,    part) {
  part = part_of(path)
  if (part == "applications") return is_bought[application_of(path)] ? "" : "not from the storefront: stays installed"
  if (part == "their data") return path ~ /\/(logs|tmp)\// ? "log or temporary file" : ""
  if (part == "shared media" || part == "dtm share") return reason_of_media(path)
  if (part == "home screen" && path ~ /\/(logs|tmp)\//) return "log or temporary file"
  if (part != "home screen" || path !~ /\/data\//) return ""
  if (path ~ /systemtray/) return path ~ /\/ClockServices\.sqlite$/ ? "" : "of the tray, only the clocks come back"
  return target[path] ~ /^"?\// ? "link out of the home screen" : ""
}

function place_after_restore(path,    bookmarks) {
  bookmarks = MEDIA "bookmarks/"
  return begins_with(path, bookmarks) ? LOST_AND_FOUND substr(path, length(bookmarks) + 1) : path
}

function octal_and(left, right,    i, result, a, b, digit, bit) {
  for (i = 1; i <= 3; ++i) {
    a = substr(sprintf("%03d", left), i, 1) + 0
    b = substr(right, i, 1) + 0
    digit = 0
    for (bit = 1; bit <= 4; bit *= 2) if (int(a / bit) % 2 && int(b / bit) % 2) digit += bit
    result = result digit
  }
  return result + 0 ""
}

function mode_after_restore(path,    part) {
  part = part_of(path)
  if (kind[path] == "symbolic link") return mode[path]
  if (part == "applications") return octal_and(mode[path], "750")
  if (part == "their data") return octal_and(mode[path], "770")
  if (part != "home screen" || path !~ /\/data\//) return mode[path]
  if (path ~ /systemtray/) return octal_and(mode[path], "660")
  return kind[path] == "directory" ? "700" : octal_and(mode[path], "600")
}

# Settings are made anew under their owner and the group root. What is there already keeps its group, as do objects.
function is_group_right(path, now) {
  return now == group[path] || part_of(path) == "settings" && path !~ /^"settings\/pps\// && now == "root/0"
}

function complain(text, path) {
  if (++differences <= 20) printf "  %s: %s\"\n", text, path
}

function compare(path, place,    wanted_mode) {
  if (!(place in kind_now)) {
    complain("missing", path)
    return
  }
  back[part_of(path)]++
  wanted_mode = mode_after_restore(path)
  if (kind_now[place] != kind[path] || target_now[place] != target[path]) complain("kind or target differs", path)
  if (user_now[place] != user[path]) complain("owner is " user_now[place] ", not " user[path], path)
  if (!is_group_right(path, group_now[place])) complain("group is " group_now[place] ", not " group[path], path)
  if (mode_now[place] != wanted_mode) complain("mode is " mode_now[place] ", not " wanted_mode, path)
  if (contents_now[place] != contents[path]) complain("contents differ", path)
  else if (kind[path] == "file") back["bytes"] += size[path]
  if (wanted_mode != mode[path]) narrowed[part_of(path)]++
  expected[place] = 1
}

$1 == "application" {
  if ($3 == "shopvale") is_bought[$2] = 1
  next
}

FNR == NR {
  path = path_of($7)
  kind[path] = $1; mode[path] = $2; user[path] = $3; group[path] = $4
  size[path] = $5; contents[path] = $5 " " $6; target[path] = target_of($7)
  order[++count] = path
  next
}

{
  path = path_of($7)
  kind_now[path] = $1; mode_now[path] = $2; user_now[path] = $3; group_now[path] = $4
  contents_now[path] = $5 " " $6; target_now[path] = target_of($7)
}

# Folders that were not backed up, but had to be made for what is in them.
function expect_parents(    place, parent) {
  for (place in expected) wanted[place] = 1
  for (place in wanted) {
    if (part_of(place) != "shared media") continue
    for (parent = parent_of(place); begins_with(parent, MEDIA) && !(parent in expected); parent = parent_of(parent)) {
      expected[parent] = 1
      made[++made_count] = parent
      if (kind_now[parent] != "directory") complain("no folder", parent)
    }
  }
}

function print_row(name, key) {
  printf "%-14s %12d %12d %12d %12d\n", name, total[key], left_out[key], total[key] - left_out[key], back[key]
}

function print_reasons(    reason) {
  printf "\nLeft out of the backup, or of the restore, as it should be:\n"
  for (reason in reason_count) printf "  %5d  %s\n", reason_count[reason], reason | "sort -k 2"
  close("sort -k 2")
}

END {
  for (i = 1; i <= count; ++i) {
    path = order[i]
    part = part_of(path)
    total[part]++
    if (kind[path] == "file") total["bytes"] += size[path]
    reason = reason_to_leave_out(path)
    if (reason != "") {
      left_out[part]++
      if (kind[path] == "file") left_out["bytes"] += size[path]
      reason_count[reason]++
      if (part == "applications") expected[path] = 1
      continue
    }
    place = place_after_restore(path)
    if (place != path) moved_lines = moved_lines sprintf("  %s\" -> %s\"\n", path, place)
    compare(path, place)
  }
  expect_parents()
  for (place in kind_now) if (!(place in expected)) complain("was not there before", place)

  printf "\n%-14s %12s %12s %12s %12s\n", "items", "before", "left out", "backed up", "back"
  for (i = 1; i <= part_count; ++i) {
    print_row(parts[i], parts[i])
    restored += back[parts[i]]
    if (back[parts[i]] == 0) complain("nothing is back of this part", "\"" parts[i])
  }
  print_row("bytes", "bytes")
  print_reasons()
  printf "\nBack in another place, as it should be:\n%s", moved_lines
  printf "\nFolders made for these, or for an ordinary file in a protected folder:\n"
  for (i = 1; i <= made_count; ++i) printf "  %s\"\n", made[i]
  printf "\nBack with fewer permissions, as no application may give more: %d of the applications, %d of their data,\n",
         narrowed["applications"], narrowed["their data"]
  printf "%d of the home screen. Not compared: times. A restored item is as new as the restore.\n",
         narrowed["home screen"]

  if (differences > 0) {
    printf "\nFAILED: %d differences\n", differences
    exit 1
  }
  printf "\nAll that was backed up is back, with names, contents, links, owners and modes as they should be: %d items.\n",
         restored
}
