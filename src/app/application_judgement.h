#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/application_package.h"
#include "fs/path.h"
#include "updater/installer_client.h"
#include "updater/registered_applications.h"

namespace harbix {

/// What a judgement asks of a device's applications. A restore asks the device itself, which it changes on
/// the way; who only foresees a restore answers with what the restore would have made of the device by then.
class ApplicationsThere {
 public:
  /// `registered` is the installer's list, and outlives this object.
  explicit ApplicationsThere(const std::vector<updater::RegisteredApplication>& registered)
      : registered_(registered) {}
  virtual ~ApplicationsThere() = default;
  ApplicationsThere(const ApplicationsThere&) = delete;
  ApplicationsThere& operator=(const ApplicationsThere&) = delete;
  ApplicationsThere(ApplicationsThere&&) = delete;
  ApplicationsThere& operator=(ApplicationsThere&&) = delete;

  /// What stands at a path below "/apps"; links are not followed.
  enum class Standing { NOTHING, FOLDER, OTHER };
  [[nodiscard]] virtual Standing standing(const fs::Path& target) const;

  /// The installer's answer to a query about the application in this folder.
  /// @throws std::runtime_error for an exchange that fails.
  [[nodiscard]] virtual updater::Attributes query(const fs::Path& target);

  [[nodiscard]] virtual bool is_registered(const std::string& id) const;

 private:
  const std::vector<updater::RegisteredApplication>& registered_;
};

/// What becomes of the binaries of an application, and why.
struct BinariesVerdict {
  enum class Answer {
    RESTORED,
    HOME_SCREEN,     ///< they are built in
    OTHER_BASENAME,  ///< these three do not fit their description
    NOT_AT_APPS,
    MISFIT,
    NO_FOLDER,  ///< something else stands in their place
    BUILT_IN,
    EXCHANGE_FAILED,  ///< the installer does not say whether they may be replaced
    KEPT,             ///< those that are there
  };
  Answer answer = Answer::RESTORED;
  std::string reason = {};  ///< for people, without the package's name where it is not part of a message

  [[nodiscard]] bool are_restored() const noexcept { return answer == Answer::RESTORED; }
  /// Whether the restore is not complete without them, and reports `reason`.
  [[nodiscard]] bool is_failure() const noexcept;
};

/// What becomes of the data of an application, and why.
struct DataVerdict {
  enum class Answer {
    RESTORED,
    BINARIES_REFUSED,  ///< its binaries stood before it, and were not restored
    MISFIT,
    NO_BINARIES,
    EXCHANGE_FAILED,  ///< the installer does not say to which group it belongs
    NO_APPLICATION,   ///< the group is no application's
  };
  Answer answer = Answer::RESTORED;
  std::string reason = {};
  gid_t group = 0;  ///< the application's, of data that is restored

  /// What the installer has told of it, if it has.
  struct Told {
    std::string extras;
    std::string folder;
  };
  std::optional<Told> told = {};

  [[nodiscard]] bool is_restored() const noexcept { return answer == Answer::RESTORED; }
  [[nodiscard]] bool is_failure() const noexcept {
    return answer == Answer::MISFIT || answer == Answer::EXCHANGE_FAILED;
  }
};

/// Judges the packages of applications, in the order of the archive. What becomes of one package can decide
/// about the next. Changes and says nothing.
class ApplicationJudgement {
 public:
  explicit ApplicationJudgement(ApplicationsThere& there) : there_(there) {}

  /// From here on, leaves the binaries of applications alone that are there.
  void keep_installed() noexcept { keeps_installed_ = true; }

  /// @throws std::runtime_error for a manifest without an attribute that it must have.
  [[nodiscard]] BinariesVerdict judge_binaries(const ApplicationPackage& package);
  [[nodiscard]] DataVerdict judge_data(const ApplicationPackage& package);

  /// Binaries that may be restored, and did not all get to disk.
  void refuse(const ApplicationPackage& package) { refused_ = package.package(); }
  /// Whether data was judged before the binaries of this folder.
  [[nodiscard]] bool has_early_data(const fs::Path& target) const {
    return early_data_.contains(target.text());
  }

 private:
  using Binaries = BinariesVerdict::Answer;
  using Data = DataVerdict::Answer;

  [[nodiscard]] BinariesVerdict verdict_on(const ApplicationPackage& package, const fs::Path& target);
  [[nodiscard]] static std::optional<BinariesVerdict> misfit(const ApplicationPackage& package,
                                                             const fs::Path& target);
  /// Why what is installed there may not be replaced.
  [[nodiscard]] std::optional<BinariesVerdict> refusal_to_replace(const fs::Path& target,
                                                                  const std::string& id);
  [[nodiscard]] DataVerdict ask_for_group(const fs::Path& target);

  ApplicationsThere& there_;
  bool keeps_installed_ = false;
  std::set<std::string> early_data_;  ///< applications whose data stood before their binaries
  std::string refused_;               ///< the last package whose binaries were refused
};

/// Where new data can be made that takes `needed` bytes.
enum class DataRoom {
  BESIDE,    ///< beside the old, which goes when it is complete
  IN_PLACE,  ///< only where the old data was, which goes first
  NONE,
};
/// `left` is free. `has_old` tells whether there is old data with files in it, and `with_old` what is free
/// once that is gone; both are asked only where it matters.
template <typename HasOld, typename WithOld>
[[nodiscard]] DataRoom judge_room(std::uint64_t needed, std::uint64_t left, const HasOld& has_old,
                                  const WithOld& with_old) {
  if (needed <= left || !has_old()) return DataRoom::BESIDE;
  return needed <= with_old() ? DataRoom::IN_PLACE : DataRoom::NONE;
}

/// What was made of new data.
struct MadeData {
  bool is_on_disk;   ///< all that the archive holds of it
  bool is_complete;  ///< also every record had its entry, and every entry its record
  bool is_empty;     ///< there is nothing of it
};
/// Whether the new data takes the place of the old; `has_old` as above.
template <typename HasOld>
[[nodiscard]] bool takes_place(const MadeData& made, const HasOld& has_old) {
  const bool is_worth_it = made.is_on_disk && (!made.is_empty || made.is_complete);
  return is_worth_it || !has_old();
}

// The words for what becomes of one package.
[[nodiscard]] std::string misfit_text(const ApplicationPackage& package);
[[nodiscard]] std::string failed_exchange_text(const fs::Path& target, const char* reason);
[[nodiscard]] std::string incomplete_binaries_text(const ApplicationPackage& package);
[[nodiscard]] std::string early_data_text(const fs::Path& target);
[[nodiscard]] std::string no_room_text(const fs::Path& data, std::uint64_t needed, std::uint64_t room);
[[nodiscard]] std::string incomplete_data_text(const fs::Path& data);

}  // namespace harbix
