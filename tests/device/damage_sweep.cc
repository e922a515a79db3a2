// Restores an archive of the device that it runs on again and again, each time damaged in another place, and
// holds what is there afterwards against what an undamaged restore leaves:
//
//   damage_sweep media|settings|app [SAMPLES [SEED]] [--part K/N]
//
// Without SAMPLES the archive is cut at each 512 bytes and at 200 other places, and each byte of each header
// and manifest is changed in turn; otherwise so many of these, chosen at random. With --part only every N-th
// of them is tried, beginning with the K-th, so that N devices can share the work. The status is 0 when all
// of this held:
// - a restore with status 0 left the device as the undamaged one does;
// - where a header is damaged, or the archive is cut, nothing was removed;
// - no restore crashed or took longer than half a minute;
// - nothing changed outside of the folders that are restored.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_descriptor.h"
#include "tests/device/damage_plan.h"
#include "tests/device/device_picture.h"
#include "tests/support/require.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

namespace files = std::filesystem;

constexpr std::chrono::milliseconds LONGEST_RUN = std::chrono::seconds(30);
constexpr int STILL_RUNNING = -1;
constexpr char WHOLE[] = "/tmp/whole.tar";
constexpr char DAMAGED[] = "/tmp/damaged.tar";
constexpr char MESSAGES[] = "/tmp/messages";
constexpr char MARKER[] = "made since the backup";

/// How the device is made to differ from the archive, so that what is not restored shows.
enum class Old {
  WIPED,     ///< a file more in each folder, which goes only once the restore knows the archive
  REPLACED,  ///< a file more in each folder, which may go with the folder at any time
  EMPTIED,   ///< files without content, objects of PPS without attributes
  LISTED,    ///< as it is: the installer's list of applications
};

/// What a restore may change: a folder or file.
struct Place {
  std::string path;
  Old old;
};

struct Keyword {
  std::string name;
  std::vector<Place> places;
};

const std::array KEYWORDS{
    Keyword{"media", {{"/accounts/1000/shared", Old::WIPED}, {"/accounts/1000/sys/dtm", Old::EMPTIED}}},
    Keyword{"app",
            {{"/apps", Old::WIPED},
             {"/accounts/1000/appdata", Old::REPLACED},
             {"/accounts/1000/appdata/sys.navigator", Old::EMPTIED},
             {"/accounts/1000/appdata/sys.systemtray", Old::EMPTIED},
             {"/pps/system/navigator", Old::EMPTIED},
             {"/pps/system/installer/registeredapps/.all", Old::LISTED}}},
    Keyword{"settings",
            {{"/accounts/1000/settings", Old::EMPTIED},
             {"/accounts/1000/sys/keyboard", Old::EMPTIED},
             {"/base/etc/locale.conf", Old::EMPTIED},
             {"/var/etc", Old::EMPTIED},
             {"/pps/services", Old::EMPTIED},
             {"/pps/system/dictionary", Old::EMPTIED},
             {"/pps/system/locale", Old::EMPTIED},
             {"/pps/system/navigator", Old::EMPTIED}}},
};

/// @return the exit status, 128 and the signal, or STILL_RUNNING after the longest time.
int wait_for(pid_t child) {
  const base::FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  require(bool(process), "pidfd_open");
  ::pollfd end{.fd = process.get(), .events = POLLIN, .revents = 0};
  const int ended = ::poll(&end, 1, static_cast<int>(LONGEST_RUN.count()));
  require(ended != -1, "poll");
  if (ended == 0) ::kill(child, SIGKILL);  // it cannot have been waited for
  int status = 0;
  require(::waitpid(child, &status, 0) == child, "waitpid");
  if (ended == 0) return STILL_RUNNING;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int run_harbix(const std::vector<std::string>& arguments) {
  std::vector<const char*> words{"harbix"};
  for (const std::string& argument : arguments) words.push_back(argument.c_str());
  words.push_back(nullptr);
  ::posix_spawn_file_actions_t actions;
  errno = ::posix_spawn_file_actions_init(&actions);
  require(errno == 0, "posix_spawn_file_actions_init");
  errno = ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, MESSAGES, O_WRONLY | O_CREAT | O_TRUNC,
                                             0600);
  require(errno == 0, "posix_spawn_file_actions_addopen");
  pid_t child = -1;
  char** const changing_none = const_cast<char**>(words.data());  // NOLINT: the call's old type
  errno = ::posix_spawnp(&child, words[0], &actions, nullptr, changing_none, environ);
  require(errno == 0, "posix_spawnp");
  ::posix_spawn_file_actions_destroy(&actions);  // has nothing to report
  return wait_for(child);
}

/// What takes every attribute that persists away from an object of PPS when it is written there.
std::string removal_of_attributes(const std::string& object) {
  std::string removal;
  std::istringstream lines(read_file(object));
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with('@') && !line.starts_with('['))
      removal += '-' + line.substr(0, line.find(':')) + '\n';
  }
  return removal;
}

/// The lines of the installer's list, "ID::PACKAGE,VERSION,EXTRAS", but for the extras: they are known from a
/// manifest alone, which no checksum covers.
std::string listed_applications(const std::string& list) {
  std::vector<std::string> applications;
  std::istringstream lines(read_file(list));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t version = std::min(line.find(','), line.size());
    applications.push_back(line.substr(0, line.find(',', version + 1)) + '\n');
  }
  std::ranges::sort(applications);
  return std::accumulate(applications.begin(), applications.end(), std::string());
}

/// The folders in a place, in each of which a marker has its place.
std::vector<std::string> folders_in(const std::string& place) {
  std::vector<std::string> folders;
  for (const files::directory_entry& item : files::directory_iterator(place)) {
    if (item.is_directory() && !item.is_symlink()) folders.push_back(item.path().string());
  }
  return folders;
}

class Sweep {
 public:
  explicit Sweep(const Keyword& keyword) : keyword_(keyword) {
    if (run_harbix({"-f", WHOLE, keyword.name}) != 0) throw std::runtime_error("the backup failed");
    archive_ = read_file(WHOLE);
    copy_.emplace(DAMAGED, archive_);
    // What is outside is compared with what a restore that is whole leaves there.
    restore_whole(picture());
    expected_ = picture();
    expected_list_ = whole_list();
    outside_.emplace(watch_outside());
    make_old(expected_);
    old_ = picture();
    found_ = old_;
  }

  [[nodiscard]] const std::string& archive() const noexcept { return archive_; }

  /// @return whether a restore of the damaged archive kept its promises; what it broke is printed.
  bool try_damage(const Damage& damage) {
    make_old(found_);
    copy_->damage(damage);
    const int status = run_harbix({"-r", "-f", copy_->path(), keyword_.name});
    copy_->mend(damage);
    found_ = picture();
    const bool is_right = judge(damage, status);
    ++statuses_[status];
    if (!is_right) std::cout << "    standard error: " << read_file(MESSAGES).substr(0, 300) << '\n';
    if (!can_be_made_old() || whole_list() != expected_list_) bring_back();
    return is_right;
  }

  void report(std::size_t tried, std::size_t wrong) const {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin_;
    std::cout << keyword_.name << ": " << tried << " damaged archives, " << wrong << " wrong, "
              << static_cast<double>(tried) / time.count() << " a second, " << brought_back_
              << " times brought back; statuses:";
    for (const auto& [status, count] : statuses_) std::cout << ' ' << status << " (" << count << ')';
    std::cout << std::endl;
  }

 private:
  bool judge(const Damage& damage, int status) {
    const auto fail = [&](std::string_view what, const Picture& expected, const Picture& found) {
      std::cout << describe(damage) << ", status " << status << ": " << what << '\n';
      print_difference(expected, found);
      return false;
    };
    if (status == STILL_RUNNING) return fail("does not end", {}, {});
    if (status >= 128) return fail("crashed", {}, {});
    if (!outside_->is_undisturbed()) return fail("changed something outside", {}, {});
    if (status == 0) return all_came_back(damage) || fail("not all came back", expected_, found_);
    if (damage.kind == Damage::Kind::MANIFEST || has_all_that_was_there()) return true;
    return fail("removed something", old_, found_);
  }

  /// Whether everything is as an undamaged restore leaves it. The permissions that a manifest gives to an
  /// item are what counts, whatever they are: no checksum covers them.
  [[nodiscard]] bool all_came_back(const Damage& damage) const {
    if (damage.kind != Damage::Kind::MANIFEST) return found_ == expected_;
    return without_permissions(found_) == without_permissions(expected_);
  }

  [[nodiscard]] static Picture without_permissions(Picture picture) {
    for (auto& [path, object] : picture) object.mode &= S_IFMT;
    return picture;
  }

  /// Whether nothing was removed. The markers in data that is replaced whole go with the old data.
  [[nodiscard]] bool has_all_that_was_there() const {
    return std::ranges::all_of(old_, [this](const auto& object) {
      return found_.contains(object.first) || is_marker_of_replaced(object.first);
    });
  }

  [[nodiscard]] bool is_marker_of_replaced(const files::path& path) const {
    return path.filename() == MARKER && std::ranges::any_of(keyword_.places, [&path](const Place& place) {
             return place.old == Old::REPLACED && path.parent_path().parent_path() == place.path;
           });
  }

  /// Whether each object is as it was before, or as an undamaged restore leaves it: then make_old() takes the
  /// device back to where it was.
  [[nodiscard]] bool can_be_made_old() const {
    const auto object_in = [](const Picture& picture, const std::string& path) {
      const auto object = picture.find(path);
      return object == picture.end() ? nullptr : &object->second;
    };
    const auto are_equal = [](const PicturedObject* one, const PicturedObject* other) {
      return one == nullptr || other == nullptr ? one == other : *one == *other;
    };
    return std::ranges::all_of(std::array{&found_, &old_}, [&](const Picture* picture) {
      return std::ranges::all_of(*picture, [&](const auto& item) {
        const PicturedObject* found = object_in(found_, item.first);
        return are_equal(found, object_in(old_, item.first)) ||
               are_equal(found, object_in(expected_, item.first));
      });
    });
  }

  /// The installer's list with the extras, where the keyword has one.
  [[nodiscard]] std::string whole_list() const {
    std::string list;
    for (const Place& place : keyword_.places) {
      if (place.old == Old::LISTED) list += read_file(place.path);
    }
    return list;
  }

  void bring_back() {
    ++brought_back_;
    for (const auto& [path, object] : found_) {
      // What no backup has, no restore takes away.
      if (!old_.contains(path) && !expected_.contains(path)) files::remove_all(path);
    }
    restore_whole(picture());
    // What is registered with other extras is taken for an application of another source, and uninstalled
    // only once it has its own again.
    restore_whole(picture());
    found_ = picture();
    if (found_ == expected_ && whole_list() == expected_list_) return;
    print_difference(expected_, found_);
    throw std::runtime_error("the device is not what it was after a restore of the whole archive");
  }

  void restore_whole(const Picture& now) {
    make_old(now);
    if (run_harbix({"-r", "-f", WHOLE, keyword_.name}) != 0)
      throw std::runtime_error("a restore of the whole archive failed: " + read_file(MESSAGES));
  }

  /// Makes the device differ from the archive, so that what is not restored shows. What is as old as that
  /// already is left alone.
  void make_old(const Picture& now) {
    for (const Place& place : keyword_.places) {
      if (place.old == Old::WIPED || place.old == Old::REPLACED) add_markers(place.path);
      if (place.old == Old::EMPTIED) empty(place.path, now);
    }
  }

  static void add_markers(const std::string& place) {
    for (const std::string& folder : folders_in(place)) {
      const std::string marker = folder + '/' + MARKER;
      if (!files::exists(marker)) write_file(marker, "");
    }
  }

  void empty(const std::string& place, const Picture& now) {
    for (auto item = now.lower_bound(place); item != now.end() && item->first.starts_with(place); ++item) {
      const auto& [path, object] = *item;
      const auto old = old_.find(path);
      if (!S_ISREG(object.mode) || (old != old_.end() && old->second == object)) continue;
      if (is_below_pps(path)) {
        empty_object(path);
      } else {
        files::resize_file(path, 0);
      }
    }
  }

  /// An object has the attributes that it had at first, or fewer: they are asked for once.
  void empty_object(const std::string& object) {
    const auto [removal, is_new] = removals_.try_emplace(object);
    if (is_new) removal->second = removal_of_attributes(object);
    if (removal->second.empty()) return;
    const base::FileDescriptor opened(::open(object.c_str(), O_WRONLY | O_CLOEXEC));
    const std::string& text = removal->second;
    require(opened && ::write(opened.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()),
            object);
  }

  Picture picture() {
    Picture picture;
    for (const Place& place : keyword_.places) {
      if (place.old == Old::LISTED) {
        picture[place.path].target = listed_applications(place.path);
      } else {
        camera_.add(picture, place.path);
      }
    }
    return picture;
  }

  /// Over what no restore of the keyword may change. The installer keeps its books below /var.
  [[nodiscard]] Watch watch_outside() const {
    std::set<std::string> inside;
    for (const Place& place : keyword_.places) inside.insert(place.path);
    std::vector<std::string> folders{"/accounts", "/apps", "/base", "/etc", "/root"};
    std::erase_if(folders, [&inside](const std::string& folder) { return inside.contains(folder); });
    return {std::move(folders), std::move(inside)};
  }

  const Keyword& keyword_;
  std::string archive_;
  std::optional<DamagedCopy> copy_;
  Camera camera_;
  Picture expected_;           ///< what an undamaged restore leaves
  std::string expected_list_;  ///< of the installer, then
  Picture old_;                ///< what there is before a restore
  Picture found_;              ///< what the last restore left
  std::optional<Watch> outside_;
  std::map<std::string, std::string> removals_;  ///< of attributes, by the objects' paths
  std::map<int, std::size_t> statuses_;
  std::size_t brought_back_ = 0;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

/// What is asked for on the command line.
struct Request {
  const Keyword* keyword = nullptr;
  std::size_t samples = 0;  ///< 0: everything
  std::size_t seed = 1;
  std::size_t part = 1;
  std::size_t parts = 1;
};

/// The places to damage that are asked for. Each part has the same ones when the archives are alike.
std::vector<Damage> planned(const Request& request, std::string_view archive) {
  std::mt19937_64 random(request.seed);
  std::vector<Damage> plan = plan_damage(archive, random);
  std::cout << "seed " << request.seed << ", archive of " << archive.size() << " bytes with " << plan.size()
            << " places to damage" << std::endl;
  if (request.samples != 0 && request.samples < plan.size()) {
    std::ranges::shuffle(plan, random);
    plan.resize(request.samples);
  }
  std::vector<Damage> part;
  for (std::size_t i = request.part - 1; i < plan.size(); i += request.parts) part.push_back(plan[i]);
  return part;
}

int sweep(const Request& request) {
  constexpr std::size_t LINES_APART = 5000;
  Sweep sweep(*request.keyword);
  std::size_t tried = 0;
  std::size_t wrong = 0;
  for (const Damage& damage : planned(request, sweep.archive())) {
    if (!sweep.try_damage(damage)) ++wrong;
    if (++tried % LINES_APART == 0) sweep.report(tried, wrong);
  }
  sweep.report(tried, wrong);
  return wrong == 0 && tried > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

std::optional<std::size_t> number_of(std::string_view text) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), number);
  return error == std::errc() && end == text.end() ? std::optional(number) : std::nullopt;
}

/// Takes "K/N".
bool take_part(std::string_view text, Request& request) {
  const std::size_t slash = std::min(text.find('/'), text.size());
  request.part = number_of(text.substr(0, slash)).value_or(0);
  request.parts = number_of(text.substr(std::min(slash + 1, text.size()))).value_or(0);
  return request.part >= 1 && request.part <= request.parts;
}

std::optional<Request> parse(std::vector<std::string> arguments) {
  Request request;
  if (const auto option = std::ranges::find(arguments, "--part"); option != arguments.end()) {
    if (option + 1 == arguments.end() || !take_part(*(option + 1), request)) return std::nullopt;
    arguments.erase(option, option + 2);
  }
  if (arguments.empty() || arguments.size() > 3) return std::nullopt;
  const auto keyword = std::ranges::find(KEYWORDS, arguments[0], &Keyword::name);
  if (keyword == KEYWORDS.end()) return std::nullopt;
  request.keyword = &*keyword;
  const auto samples = arguments.size() > 1 ? number_of(arguments[1]) : request.samples;
  const auto seed = arguments.size() > 2 ? number_of(arguments[2]) : request.seed;
  if (!samples || !seed) return std::nullopt;
  request.samples = *samples;
  request.seed = *seed;
  return request;
}

}  // namespace
}  // namespace harbix::test

int main(int argc, char* argv[]) try {
  const auto request = harbix::test::parse({argv + 1, argv + argc});
  if (!request) {
    std::cerr << "usage: damage_sweep media|settings|app [SAMPLES [SEED]] [--part K/N]\n";
    return EXIT_FAILURE;
  }
  return harbix::test::sweep(*request);
} catch (const std::exception& error) {
  std::cerr << "damage_sweep: " << error.what() << '\n';
  return EXIT_FAILURE;
}
