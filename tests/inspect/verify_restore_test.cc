// What harbix-inspect says of an archive against what a restore then makes of it.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/everything.h"
#include "tests/support/seed.h"

namespace harbix::test {
namespace {

constexpr std::size_t RECORD_SIZE = 512;

/// So few that the test stays short, unless the environment has another number.
std::size_t count_of_archives() {
  const char* text = std::getenv("HARBIX_DAMAGED_ARCHIVES");  // NOLINT(concurrency-mt-unsafe): one thread
  return text == nullptr ? 8 : std::stoul(text);
}

// verify_and_restore KEYWORD: a line for each archive in /tmp/damaged whose restore did something else than
// harbix-inspect had said, and at the end how many were judged good, and how many not. A restore is clean
// when it ends with 0, prints nothing that a restore of the whole archive does not print, changes nothing and
// leaves each item that there was. Of media and settings, an entry that is gone as a whole looks like that of
// an item that vanished during the backup: there it is clean when each item came back that the archive has an
// entry of, and harbix-inspect must have had something to note.
constexpr char VERIFY_AND_RESTORE[] = R"sh(
set -u
keyword=$1
places=(/accounts/1000/shared /accounts/1000/sys/dtm /apps /accounts/1000/appdata /accounts/1000/settings)
picture() { find "${places[@]}" -type f -printf '%p %s\n' -o -printf '%p %y %l\n' | LC_ALL=C sort; }
# restore ARCHIVE: everything that a restore of settings might leave as it was is gone before.
restore() {
  find /accounts/1000/settings -mindepth 1 -delete
  harbix -r -f "$1" "$keyword" >/dev/null 2>/tmp/errors
}
paths() { find "${places[@]}" | LC_ALL=C sort; }
entry_of() {
  case $1 in
    /accounts/1000/shared/*) echo "/media/${1#/accounts/1000/shared/}" ;;
    /accounts/1000/sys/dtm/*) echo "/dtm/${1#/accounts/1000/sys/dtm/}" ;;
    *) echo "/settings$1" ;;
  esac
}
# Whether all is there that the archive has an entry of, for applications all that there was.
misses_nothing() {
  local path
  LC_ALL=C comm -23 /tmp/usual_paths <(paths) >/tmp/lost
  [ -s /tmp/lost ] || return 0
  [ "$keyword" != app ] && grep -aq '^note: ' /tmp/verdict || return 1
  LC_ALL=C.UTF-8 bsdtar -tf "$archive" 2>/dev/null | sed 's|/$||' >/tmp/names
  while IFS= read -r path; do
    ! grep -aqxF -- "$(entry_of "$path")" /tmp/names || return 1
  done </tmp/lost
}
restore /tmp/whole.tar || exit 1
cp /tmp/errors /tmp/usual_errors
picture >/tmp/usual
paths >/tmp/usual_paths
good=0 bad=0
for archive in /tmp/damaged/*; do
  harbix-inspect verify --notes "$archive" >/tmp/verdict
  verdict=$?
  restore "$archive"
  status=$?
  news=$(grep -avxFf /tmp/usual_errors /tmp/errors)
  changes=$(picture | diff /tmp/usual -)
  clean=no
  [ "$status" = 0 ] && [ -z "$news" ] && ! grep -aq '^>' <<<"$changes" && misses_nothing && clean=yes
  case $verdict$clean in
    0yes) good=$((good + 1)) ;;
    [12]no) bad=$((bad + 1)) ;;
    *) echo "$archive: verify $verdict ($(head -c 300 /tmp/verdict)), restore $status" "${news:0:300}" "${changes:0:300}" ;;
  esac
  [ "$clean" = yes ] || restore /tmp/whole.tar || { echo "the whole archive does not come back"; exit 1; }
done
echo "$good good, $bad not"
)sh";

class VerifiedArchive : public testing::TestWithParam<const char*> {
 protected:
  VerifiedArchive() { add_a_little_of_everything(device_); }

  std::string damaged(std::string bytes) {
    const std::size_t place = random_() % bytes.size();
    const std::size_t record = place / RECORD_SIZE * RECORD_SIZE;
    switch (random_() % 6) {
      case 0:
        return bytes.substr(0, place);
      case 1:
        return bytes.erase(record, RECORD_SIZE * (1 + random_() % 4));
      case 2:
        return bytes.replace(record, RECORD_SIZE, std::string(RECORD_SIZE, '\0'));
      case 3:
        bytes[place] = static_cast<char>(random_());
        return bytes;
      default:
        bytes[place] ^= static_cast<char>(1U << random_() % 8);
        return bytes;
    }
  }

  ApplicationDevice device_;
  unsigned seed_ = chosen_seed();
  std::mt19937 random_{seed_};
};

TEST_P(VerifiedArchive, IsGoodExactlyWhenARestoreBringsBackAllOfIt) {
  RecordProperty("seed", std::to_string(seed_));
  ASSERT_EQ(device_.harbix({"-f", "/tmp/whole.tar", GetParam()}).status, 0);
  const std::string whole = device_.read("/tmp/whole.tar");
  const std::size_t count = count_of_archives();
  for (std::size_t i = 0; i < count; ++i) {
    device_.write("/tmp/damaged/" + std::to_string(i), damaged(whole));
  }
  device_.write("/tmp/damaged/whole", whole);
  device_.write("/tmp/damaged/cut", whole.substr(0, whole.size() - RECORD_SIZE));
  const Outcome outcome = device_.run({"bash", "-c", VERIFY_AND_RESTORE, "verify_and_restore", GetParam()});
  std::cout << "seed " << seed_ << ": " << outcome.output;
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  const std::vector<std::string> lines = lines_of(outcome.output);
  ASSERT_EQ(lines.size(), 1U) << "seed " << seed_;
  std::size_t good = 0;
  std::size_t bad = 0;
  ASSERT_EQ(std::sscanf(lines[0].c_str(), "%zu good, %zu not", &good, &bad), 2) << lines[0];
  EXPECT_EQ(good + bad, count + 2) << lines[0];
  EXPECT_GT(good, 0U) << "the whole archive is one of them";
  EXPECT_GT(bad, 0U) << "and so is one that is cut";
}

INSTANTIATE_TEST_SUITE_P(Keywords, VerifiedArchive, testing::Values("media", "settings", "app"),
                         [](const auto& keyword) { return std::string(keyword.param); });

}  // namespace
}  // namespace harbix::test
