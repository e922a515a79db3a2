# Runs on a simulated device in memory, behind measure.sh: $1 rounds with 20 applications of the storefront that have 1,000
# files each, 700 of them installed and 300 of data.

readonly rounds=$1 applications=20 largest_package=700
readonly requests=/pps/system/installer/upd/current

# exchange NAME LINE...: one request to the installer, and the wait for its answer.
exchange() {
  local object=$requests/$1 line
  shift
  exec 3<>"$object?wait,delta"
  printf '%s\n' "$@" >&3
  while read -r line <&3; do if [[ $line == result::* ]]; then break; fi; done
  exec 3>&-
  rm "$object"
  [ "$line" = result::0 ] && return
  echo "bench: the installer refused: $*" >&2
  exit 2
}

# Files of 0 to 8 KiB in folders of 100, in a sequence of sizes that looks random and is not.
make_files() {
  local folder=$1 count=$2 number path
  for ((number = 0; number < count; ++number)); do
    path=$folder/part$((number / 100))
    [ -d "$path" ] || mkdir -p "$path"
    state=$(((state * 1103515245 + 12345) & 0x7fffffff))
    printf '%s' "${text:0:(state >> 8) % 8193}" >"$path/resource_$number.dat"
  done
}

make_applications() {
  local number id text state=1
  text=$(printf '%08d' {1..1024})
  umask 027
  for ((number = 0; number < applications; ++number)); do
    id=com.example.bench$number
    mkdir -p "/apps/$id/META-INF"
    printf 'Package-Name: com.example.bench%d.package\nPackage-Version: 1.0.0.1\n' "$number" >"/apps/$id/META-INF/MANIFEST.MF"
    make_files "/apps/$id" "$largest_package"
    exchange "register$number" action::register "package_path::/apps/$id" extras::source::shopvale gid::
    make_files "/accounts/1000/appdata/$id/data" 300
    chown -R --reference="/accounts/1000/appdata/$id/data" "/accounts/1000/appdata/$id/data"
    chown -R "apps:$(stat -c %g "/accounts/1000/appdata/$id")" "/apps/$id"
  done
  chmod -R g+rwX /accounts/1000/appdata/*/data
}

archive_name() { echo "/tmp/$1.tar"; }

back_up() {
  local program=$1 archive
  archive=$(archive_name "$program")
  case $program in
    harbix) measure_backup applications harbix "$archive" bash -c "exec harbix -f $archive app 2>/tmp/log" ;;
    gnutar) measure_backup applications gnutar "$archive" tar -C / -cf "$archive" apps accounts/1000/appdata ;;
    bsdtar) measure_backup applications bsdtar "$archive" bsdtar -C / -cf "$archive" apps accounts/1000/appdata ;;
  esac
}

# Into an empty place: what is installed is uninstalled before, by the restore of an archive without packages.
restore() {
  local program=$1 target=/var/tmp/target
  rm -rf "$target" && mkdir "$target"
  case $program in
    harbix)
      harbix -r -f /tmp/nothing.tar app
      measure applications restore harbix bash -c "exec harbix -r -f $(archive_name harbix) app 2>/tmp/log"
      require_same /var/tmp/expected/apps /apps
      require_same /var/tmp/expected/accounts/1000/appdata /accounts/1000/appdata
      ;;
    gnutar) measure applications restore gnutar tar -C "$target" -xpf "$(archive_name gnutar)" ;;
    bsdtar) measure applications restore bsdtar bsdtar -C "$target" -xpf "$(archive_name gnutar)" ;;
  esac
}

make_applications
mkdir /var/tmp/expected
tar -C / -cf - apps accounts/1000/appdata | tar -C /var/tmp/expected -xpf -
tar -cf /tmp/nothing.tar -T /dev/null
readonly programs=(harbix gnutar bsdtar)
for ((round = 0; round < rounds; ++round)); do
  for turn in 0 1 2; do back_up "${programs[(round + turn) % 3]}"; done
done
for ((round = 0; round < rounds; ++round)); do
  for turn in 0 1 2; do restore "${programs[(round + turn) % 3]}"; done
done
