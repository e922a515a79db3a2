// Restores an archive of the device that it runs on again and again, each time damaged in another place, and
// holds what is there afterwards against what an undamaged restore leaves:
//
//   damage_sweep media|settings|app [SAMPLES [SEED]]
//
// Without SAMPLES the archive is cut at each 512 bytes and at 200 other places, and each byte of each header
// and manifest is changed in turn; otherwise so many of these, chosen at random. The status is 0 when all of
// this held:
// - a restore with status 0 left the device as the undamaged one does;
// - where a header is damaged, or the archive is cut, nothing was removed;
// - no restore crashed or took longer than half a minute;
// - nothing changed outside of the folders that are restored.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

namespace files = std::filesystem;

constexpr std::size_t RECORD_SIZE = 512;
constexpr std::size_t OTHER_CUTS = 200;
constexpr std::chrono::seconds LONGEST_RUN(30);
constexpr int STILL_RUNNING = -1;
constexpr char WHOLE[] = "/tmp/whole.tar";
constexpr char DAMAGED[] = "/tmp/damaged.tar";
constexpr char MESSAGES[] = "/tmp/messages";
constexpr char MARKER[] = "made since the backup";

/// What an archive of a keyword is restored to.
struct Keyword {
  std::string name;
  std::vector<files::path> places;  ///< folders and files that a restore may change
  files::path marked;  ///< a restore may remove what is in the folders below, once it knows the archive
};

const std::array KEYWORDS{
    Keyword{"media", {"/accounts/1000/shared", "/accounts/1000/sys/dtm"}, "/accounts/1000/shared"},
    Keyword{"app", {"/apps", "/accounts/1000/appdata"}, "/apps"},
    Keyword{"settings",
            {"/accounts/1000/settings", "/accounts/1000/sys/keyboard", "/base/etc/locale.conf", "/var/etc"},
            {}},
};

/// One way to damage an archive.
struct Damage {
  enum class Kind { CUT, HEADER, MANIFEST };

  Kind kind;
  std::size_t offset;  ///< the length of a cut archive; otherwise of the byte that is changed
  char flipped = 0;    ///< the bits that change
};

std::string describe(const Damage& damage) {
  constexpr std::array NAMES{"cut at ", "header changed at ", "manifest changed at "};
  return NAMES.at(static_cast<std::size_t>(damage.kind)) + std::to_string(damage.offset);
}

std::string read_file(const files::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void write_file(const files::path& path, std::string_view text) {
  std::ofstream stream(path, std::ios::binary);
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!stream.flush()) throw std::runtime_error("cannot write " + path.string());
}

/// A tree, by what can be compared between two restores.
using Picture = std::map<std::string, std::string>;

std::string describe_object(const files::path& path, const struct ::stat& record, bool with_content) {
  std::string text = std::to_string(record.st_mode) + ' ' + std::to_string(record.st_uid) + ' ' +
                     std::to_string(record.st_gid);
  if (S_ISLNK(record.st_mode)) return text + " -> " + files::read_symlink(path).string();
  if (!S_ISREG(record.st_mode)) return text;
  text += ' ' + std::to_string(record.st_size);
  if (with_content) return text + ' ' + std::to_string(std::hash<std::string>()(read_file(path)));
  return text + ' ' + std::to_string(record.st_mtim.tv_sec) + '.' + std::to_string(record.st_mtim.tv_nsec);
}

void add_object(Picture& picture, const files::path& path, bool with_content) {
  struct ::stat record {};
  // What has just gone is not there.
  if (::lstat(path.c_str(), &record) == -1) return;
  picture.emplace(path.string(), describe_object(path, record, with_content));
}

void add_to(Picture& picture, const files::path& folder, const std::set<files::path>& left_out,
            bool with_content) {
  for (auto item =
           files::recursive_directory_iterator(folder, files::directory_options::skip_permission_denied);
       item != files::recursive_directory_iterator(); ++item) {
    if (left_out.contains(item->path())) {
      item.disable_recursion_pending();
      continue;
    }
    add_object(picture, item->path(), with_content);
  }
}

Picture picture_of(const Keyword& keyword) {
  Picture picture;
  for (const files::path& place : keyword.places) {
    if (files::is_directory(place)) add_to(picture, place, {}, true);
    if (files::is_regular_file(place)) add_object(picture, place, true);
  }
  return picture;
}

/// What no restore of the keyword may change. The installer keeps its books below /var.
Picture picture_outside(const Keyword& keyword) {
  const std::set<files::path> inside(keyword.places.begin(), keyword.places.end());
  Picture picture;
  for (const char* folder : {"/accounts", "/apps", "/base", "/etc", "/root"}) {
    if (!inside.contains(folder)) add_to(picture, folder, inside, false);
  }
  return picture;
}

void print_difference(const Picture& expected, const Picture& found) {
  constexpr int MOST_LINES = 5;
  int lines = 0;
  const auto print = [&lines](std::string_view what, const std::string& path) {
    if (lines++ < MOST_LINES) std::cout << "    " << what << ' ' << path << '\n';
  };
  for (const auto& [path, object] : expected) {
    const auto same = found.find(path);
    if (same == found.end()) {
      print("missing:", path);
    } else if (same->second != object) {
      print("different:", path);
    }
  }
  for (const auto& [path, object] : found) {
    if (!expected.contains(path)) print("new:", path);
  }
}

std::uint64_t octal(std::string_view text) {
  std::uint64_t value = 0;
  for (const char digit : text) {
    if (digit >= '0' && digit <= '7') value = value * 8 + static_cast<std::uint64_t>(digit - '0');
  }
  return value;
}

/// Adds each byte of a part of the archive as a place to be damaged.
void add_bytes(std::vector<Damage>& plan, Damage::Kind kind, std::size_t begin, std::size_t size,
               std::mt19937_64& random) {
  for (std::size_t offset = begin; offset < begin + size; ++offset) {
    plan.push_back({kind, offset, static_cast<char>(1U << random() % 8)});
  }
}

/// Each byte of each header record and manifest, and the places to cut at. Extended headers carry no
/// checksum, and what most of their bytes say no other record repeats, so only those of the name are taken.
std::vector<Damage> plan_damage(std::string_view archive, std::mt19937_64& random) {
  constexpr std::size_t NAME_SIZE = 100;
  constexpr std::size_t SIZE_OFFSET = 124;
  constexpr std::size_t SIZE_LENGTH = 12;
  constexpr std::size_t TYPE_OFFSET = 156;
  std::vector<Damage> plan;
  for (std::size_t at = 0; at + RECORD_SIZE <= archive.size() && archive[at] != '\0';) {
    add_bytes(plan, Damage::Kind::HEADER, at, RECORD_SIZE, random);
    const std::size_t size = octal(archive.substr(at + SIZE_OFFSET, SIZE_LENGTH));
    const std::string_view name(archive.data() + at, ::strnlen(archive.data() + at, NAME_SIZE));
    const std::string_view content = archive.substr(at + RECORD_SIZE, size);
    if (archive[at + TYPE_OFFSET] == 'x') {
      const std::size_t path = content.find(" path=");
      if (path != std::string_view::npos) {
        const std::size_t length = content.find('\n', path) - path;
        add_bytes(plan, Damage::Kind::MANIFEST, at + RECORD_SIZE + path, length, random);
      }
    } else if (name.ends_with("/.backup.metadata")) {
      add_bytes(plan, Damage::Kind::MANIFEST, at + RECORD_SIZE, size, random);
    }
    at += RECORD_SIZE + (size + RECORD_SIZE - 1) / RECORD_SIZE * RECORD_SIZE;
  }
  for (std::size_t cut = 0; cut < archive.size(); cut += RECORD_SIZE)
    plan.push_back({Damage::Kind::CUT, cut});
  for (std::size_t i = 0; i < OTHER_CUTS; ++i) plan.push_back({Damage::Kind::CUT, random() % archive.size()});
  return plan;
}

std::string damaged(std::string archive, const Damage& damage) {
  if (damage.kind == Damage::Kind::CUT) {
    archive.resize(damage.offset);
  } else {
    archive[damage.offset] = static_cast<char>(archive[damage.offset] ^ damage.flipped);
  }
  return archive;
}

/// @return the exit status, 128 and the signal, or STILL_RUNNING after the longest time.
int run_harbix(const std::vector<std::string>& arguments) {
  const pid_t child = ::fork();
  if (child == -1) throw std::runtime_error("cannot start a process");
  if (child == 0) {
    const int messages = ::open(MESSAGES, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (messages == -1 || ::dup2(messages, STDERR_FILENO) == -1) ::_exit(EXIT_FAILURE);
    std::vector<const char*> words{"harbix"};
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    words.push_back(nullptr);
    ::execvp("harbix", const_cast<char* const*>(words.data()));  // which changes none of them
    ::_exit(EXIT_FAILURE);
  }
  const auto end = std::chrono::steady_clock::now() + LONGEST_RUN;
  int status = 0;
  while (::waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) {
      ::kill(child, SIGKILL);  // it cannot have been waited for
      ::waitpid(child, &status, 0);
      return STILL_RUNNING;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class Sweep {
 public:
  explicit Sweep(const Keyword& keyword) : keyword_(keyword) {
    if (run_harbix({"-f", WHOLE, keyword.name}) != 0) throw std::runtime_error("the backup failed");
    archive_ = read_file(WHOLE);
    restore_whole();
    // What is outside is compared with what a restore that is whole leaves there.
    expected_ = picture_of(keyword_);
    outside_ = picture_outside(keyword_);
  }

  [[nodiscard]] const std::string& archive() const noexcept { return archive_; }

  /// @return whether a restore of the damaged archive kept its promises; what it broke is printed.
  bool try_damage(const Damage& damage) {
    make_old();
    write_file(DAMAGED, damaged(archive_, damage));
    const int status = run_harbix({"-r", "-f", DAMAGED, keyword_.name});
    const bool is_right = judge(damage, status);
    ++statuses_[status];
    if (!is_right) std::cout << "    standard error: " << read_file(MESSAGES).substr(0, 300) << '\n';
    if (status != 0 || !is_right) restore_whole();
    return is_right;
  }

  void report(std::size_t tried, std::size_t wrong) const {
    std::cout << keyword_.name << ": " << tried << " damaged archives, " << wrong << " wrong; statuses:";
    for (const auto& [status, count] : statuses_) std::cout << ' ' << status << " (" << count << ')';
    std::cout << std::endl;
  }

 private:
  bool judge(const Damage& damage, int status) const {
    const auto fail = [&](std::string_view what) {
      std::cout << describe(damage) << ", status " << status << ": " << what << '\n';
      return false;
    };
    if (status == STILL_RUNNING) return fail("does not end");
    if (status >= 128) return fail("crashed");
    const Picture outside = picture_outside(keyword_);
    if (outside != outside_) {
      fail("changed something outside");
      print_difference(outside_, outside);
      return false;
    }
    if (status == 0) {
      const Picture found = picture_of(keyword_);
      if (found == expected_) return true;
      fail("not all came back");
      print_difference(expected_, found);
      return false;
    }
    if (damage.kind != Damage::Kind::MANIFEST &&
        !std::ranges::all_of(markers_, [](const auto& path) { return files::exists(path); })) {
      return fail("removed something");
    }
    return true;
  }

  void restore_whole() {
    make_old();
    if (run_harbix({"-r", "-f", WHOLE, keyword_.name}) != 0)
      throw std::runtime_error("a restore of the whole archive failed: " + read_file(MESSAGES));
  }

  /// Makes the device differ from the archive, so that what is not restored shows.
  void make_old() {
    markers_.clear();
    if (keyword_.marked.empty()) {
      for (const files::path& place : keyword_.places) make_settings_old(place);
      return;
    }
    for (const files::directory_entry& folder : files::directory_iterator(keyword_.marked)) {
      if (!folder.is_directory() || folder.is_symlink()) continue;
      const files::path marker = folder.path() / MARKER;
      if (!files::exists(marker)) write_file(marker, "");
      markers_.push_back(marker);
    }
  }

  static void make_settings_old(const files::path& place) {
    if (files::is_regular_file(place)) files::resize_file(place, 0);
    if (!files::is_directory(place)) return;
    for (const files::directory_entry& item : files::recursive_directory_iterator(place)) {
      if (item.is_regular_file() && !item.is_symlink()) files::resize_file(item.path(), 0);
    }
  }

  const Keyword& keyword_;
  std::string archive_;
  Picture expected_;
  Picture outside_;
  std::vector<files::path> markers_;
  std::map<int, std::size_t> statuses_;
};

int sweep(const Keyword& keyword, std::size_t samples, std::uint64_t seed) {
  constexpr std::size_t LINES_APART = 5000;
  std::mt19937_64 random(seed);
  Sweep sweep(keyword);
  std::vector<Damage> plan = plan_damage(sweep.archive(), random);
  if (samples != 0 && samples < plan.size()) {
    std::ranges::shuffle(plan, random);
    plan.resize(samples);
  }
  std::size_t tried = 0;
  std::size_t wrong = 0;
  for (const Damage& damage : plan) {
    if (!sweep.try_damage(damage)) ++wrong;
    if (++tried % LINES_APART == 0) sweep.report(tried, wrong);
  }
  sweep.report(tried, wrong);
  return wrong == 0 && tried > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char* argv[]) try {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  const auto keyword =
      arguments.empty() ? KEYWORDS.end() : std::ranges::find(KEYWORDS, arguments[0], &Keyword::name);
  if (keyword == KEYWORDS.end() || arguments.size() > 3) {
    std::cerr << "usage: damage_sweep media|settings|app [SAMPLES [SEED]]\n";
    return EXIT_FAILURE;
  }
  const std::size_t samples = arguments.size() > 1 ? std::stoul(arguments[1]) : 0;
  const std::uint64_t seed = arguments.size() > 2 ? std::stoull(arguments[2]) : 1;
  std::cout << "seed " << seed << '\n';
  return sweep(*keyword, samples, seed);
} catch (const std::exception& error) {
  std::cerr << "damage_sweep: " << error.what() << '\n';
  return EXIT_FAILURE;
}
