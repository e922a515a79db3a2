# Runs on the simulated device: makes the two shares that are measured, and a media library for the small files.
# The same data on every machine. $1 is the folder to make them in.
set -euo pipefail

readonly work=$1
umask 007  # files 0660, folders 0770

make_large() {
  local share=$1 number
  mkdir -p "$share/videos"
  for number in {1..8}; do
    head -c $((64 * 1024 * 1024)) < <(yes "film $number") >"$share/videos/film $number.mp4"
  done
}

# Sizes of 0 to 8 KiB in a sequence that looks random and is not.
make_small() {
  local share=$1 text state=1 folder file
  text=$(printf '%08d' {1..1024})
  for folder in {000..099}; do
    mkdir -p "$share/photos/album $folder"
    for file in {000..199}; do
      state=$(((state * 1103515245 + 12345) & 0x7fffffff))
      printf '%s' "${text:0:(state >> 8) % 8193}" >"$share/photos/album $folder/IMG_$file.jpg"
    done
  done
}

# Type 4 is one of those that the size query counts.
make_library() {
  {
    echo 'create table files(fid integer primary key, ftype integer not null, size integer not null,'
    echo ' filename text not null);'
    echo 'begin;'
    find "$1" -type f -printf "insert into files values(null, 4, %s, '%f');\n"
    echo 'commit;'
  } | sqlite3 "$work/mmlibrary.db"
  chmod 0644 "$work/mmlibrary.db"
  mv "$work/mmlibrary.db" /accounts/1000/db/mmlibrary.db
}

make_large "$work/large"
make_small "$work/small"
chown -R media:1000_shared "$work/large" "$work/small"
make_library "$work/small"
