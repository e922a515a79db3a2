# Runs on the simulated device, in memory, behind measure.sh: one backup, size query, verification and
# restore of a million files.

readonly source=/var/tmp/source target=/var/tmp/target archive=/tmp/million.tar

# One file in eight has contents: memory is needed for the names.
make_share() {
  local folder file text=' ' path
  umask 007
  for folder in {000..999}; do
    path="$source/photos/2013 summer holidays $folder"
    mkdir -p "$path"
    for file in {000..999}; do
      printf '%s' "${text:$((10#$file % 8 != 0))}" >"$path/IMG_20130712_000$file.jpg"
    done
  done
  chown -R media:1000_shared "$source"
}

make_library() {
  sqlite3 /accounts/1000/db/mmlibrary.db <<'SQL'
create table files(fid integer primary key, ftype integer not null, size integer not null, filename text not null);
with recursive numbers(n) as (select 1 union all select n + 1 from numbers where n < 1000000)
insert into files select null, 4, n % 8 = 0, printf('IMG_20130712_%06d.jpg', n) from numbers;
SQL
}

back_up_and_size() {
  measure million backup harbix harbix -f "$archive" media
  measure_size million walk 1001001  # folders count as well
  make_library
  # The first one reads the library into memory.
  measure_size million size 1000000 >/dev/null
  measure_size million size 1000000
}

make_share
with_share "$source" back_up_and_size
take_time_quietly million verify inspect harbix-inspect verify "$archive"
take_time_quietly million verify bsdtar bsdtar -tf "$archive"
make_empty_share "$target"
with_share "$target" measure million restore harbix harbix -r -f "$archive" media
require_same "$source" "$target"
