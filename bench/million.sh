# Runs on the simulated device, in memory, behind measure.sh: backups, restores and wipes of ten thousand, a hundred
# thousand and a million files. The million is also sized and verified.

readonly source=/var/tmp/source target=/var/tmp/target archive=/tmp/million.tar nothing=/tmp/nothing.tar

# One file in eight has contents: memory is needed for the names.
make_share() {
  local count=$1 folder file text=' ' path
  umask 007
  for ((folder = 0; folder < count / 1000; ++folder)); do
    printf -v path '%s/photos/2013 summer holidays %03d' "$source" "$folder"
    mkdir -p "$path"
    for file in {000..999}; do
      printf '%s' "${text:$((10#$file % 8 != 0))}" >"$path/IMG_20130712_000$file.jpg"
    done
  done
  chown -R media:1000_shared "$source"
}

# measure_share NAME RUNS: the share is there again behind each restore, and so the backups are the same.
measure_share() {
  local name=$1 runs=$2 run
  for ((run = 0; run < runs; ++run)); do
    with_share "$source" measure "$name" backup harbix harbix -f "$archive" media
    make_empty_share "$target"
    with_share "$target" measure "$name" restore harbix harbix -r -f "$archive" media
    require_same "$source" "$target"
    with_share "$target" measure "$name" wipe harbix harbix -r -f "$nothing" media
    require_wiped "$target"
  done
}

make_library() {
  sqlite3 /accounts/1000/db/mmlibrary.db <<'SQL'
create table files(fid integer primary key, ftype integer not null, size integer not null, filename text not null);
with recursive numbers(n) as (select 1 union all select n + 1 from numbers where n < 1000000)
insert into files select null, 4, n % 8 = 0, printf('IMG_20130712_%06d.jpg', n) from numbers;
SQL
  # It is asked as its owner, and root's as the media user.
  chown media:1000_shared /accounts/1000/db/mmlibrary.db
}

measure_sizes() {
  measure_size million walk 1001001  # folders count as well
  make_library
  # The first one reads the library into memory.
  measure_size million size 1000000 >/dev/null
  measure_size million size 1000000
}

tar -cf "$nothing" -T /dev/null
for share in '10^4 10000 5' '10^5 100000 3' 'million 1000000 2'; do
  read -r name count runs <<<"$share"
  rm -rf "$source"
  make_share "$count"
  measure_share "$name" "$runs"
done
take_time_quietly million verify inspect harbix-inspect verify "$archive"
take_time_quietly million verify bsdtar bsdtar -tf "$archive"
with_share "$source" measure_sizes
