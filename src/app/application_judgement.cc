#include "app/application_judgement.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "app/layout.h"
#include "app/ownership.h"
#include "base/domains.h"
#include "base/places.h"
#include "fs/exception.h"
#include "fs/file.h"

namespace harbix {

ApplicationsThere::Standing ApplicationsThere::standing(const fs::Path& target) const try {
  return fs::File(target).is_directory() ? Standing::FOLDER : Standing::OTHER;
} catch (const fs::Exception&) {
  return Standing::NOTHING;
}

updater::Attributes ApplicationsThere::query(const fs::Path& target) {
  updater::ActionQuery query(target.text());
  query.exchange();
  return query.response();
}

bool ApplicationsThere::is_registered(const std::string& id) const {
  return std::ranges::find(registered_, id, &updater::RegisteredApplication::id) != registered_.end();
}

bool BinariesVerdict::is_failure() const noexcept {
  return answer == Answer::OTHER_BASENAME || answer == Answer::NOT_AT_APPS || answer == Answer::MISFIT ||
         answer == Answer::EXCHANGE_FAILED;
}

BinariesVerdict ApplicationJudgement::judge_binaries(const ApplicationPackage& package) {
  const fs::Path target = binary_folder(package.app_directory());
  BinariesVerdict verdict = verdict_on(package, target);
  if (!verdict.are_restored()) {
    refuse(package);
  } else if (keeps_installed_ && there_.standing(target) != ApplicationsThere::Standing::NOTHING) {
    // Its data can be restored all the same.
    return {Binaries::KEPT, "the application that is there stays"};
  }
  return verdict;
}

BinariesVerdict ApplicationJudgement::verdict_on(const ApplicationPackage& package, const fs::Path& target) {
  // The parts of the home screen are built in, and no list of the installer tells so.
  const std::string directory = package.app_directory();
  if (is_home_screen(directory))
    return {Binaries::HOME_SCREEN, "a part of the home screen, which is built in"};
  if (std::optional<BinariesVerdict> refusal = misfit(package, target)) return *std::move(refusal);
  if (there_.standing(target) != ApplicationsThere::Standing::NOTHING) {
    if (std::optional<BinariesVerdict> refusal = refusal_to_replace(target, directory))
      return *std::move(refusal);
  }
  if (package.has_valid_paths(target)) return {};
  return {Binaries::MISFIT, misfit_text(package)};
}

std::optional<BinariesVerdict> ApplicationJudgement::misfit(const ApplicationPackage& package,
                                                            const fs::Path& target) {
  const std::string directory = package.app_directory();
  if (target.basename() != fs::Path(directory).basename())
    return BinariesVerdict{Binaries::OTHER_BASENAME, misfit_text(package)};
  if (target.text().substr(0, target.last_separator().value_or(0)) != places::APPLICATIONS)
    return BinariesVerdict{Binaries::NOT_AT_APPS, misfit_text(package)};
  if (!package.has_plain_directory()) return BinariesVerdict{Binaries::MISFIT, misfit_text(package)};
  return std::nullopt;
}

std::optional<BinariesVerdict> ApplicationJudgement::refusal_to_replace(const fs::Path& target,
                                                                        const std::string& id) {
  // The installer makes folders only; owners would be set behind anything else.
  if (there_.standing(target) != ApplicationsThere::Standing::FOLDER)
    return BinariesVerdict{Binaries::NO_FOLDER, "something else than a folder stands in its place"};
  try {
    const std::string extras = updater::attribute_of(there_.query(target), "actual_extras");
    if (extras.find(domains::BUILT_IN_MARKER) == std::string::npos) return std::nullopt;
    return BinariesVerdict{Binaries::BUILT_IN, "the application is built in"};
  } catch (const fs::Exception& error) {
    return BinariesVerdict{Binaries::EXCHANGE_FAILED, failed_exchange_text(target, error.what())};
  } catch (const std::runtime_error& error) {
    // The installer says nothing of what it does not know: what is left of a restore that was cut short
    // before the registration.
    if (!there_.is_registered(id)) return std::nullopt;
    return BinariesVerdict{Binaries::EXCHANGE_FAILED, failed_exchange_text(target, error.what())};
  }
}

DataVerdict ApplicationJudgement::judge_data(const ApplicationPackage& package) {
  if (package.package() == refused_) {
    refused_.clear();
    return {.answer = Data::BINARIES_REFUSED, .reason = "the application's binaries are not restored"};
  }
  if (!package.has_plain_directory() || is_home_screen(package.app_directory()) ||
      !package.has_valid_paths(fs::Path(package.data_directory())))
    return {.answer = Data::MISFIT, .reason = misfit_text(package)};
  return ask_for_group(binary_folder(package.app_directory()));
}

DataVerdict ApplicationJudgement::ask_for_group(const fs::Path& target) {
  if (there_.standing(target) == ApplicationsThere::Standing::NOTHING) {
    early_data_.insert(target.text());
    return {.answer = Data::NO_BINARIES, .reason = "the application is not installed"};
  }
  DataVerdict verdict;
  try {
    const updater::Attributes answer = there_.query(target);
    std::string extras = updater::attribute_of(answer, "actual_extras");
    std::string folder = updater::attribute_of(answer, "actual_dname");
    verdict.told = DataVerdict::Told{std::move(extras), std::move(folder)};
    verdict.group = parse_application_group(updater::attribute_of(answer, "actual_gid"));
  } catch (const std::runtime_error& error) {
    verdict.answer = Data::EXCHANGE_FAILED;
    verdict.reason = failed_exchange_text(target, error.what());
    return verdict;
  }
  if (verdict.group < FIRST_APPLICATION_GROUP) {
    verdict.answer = Data::NO_APPLICATION;
    verdict.reason = "the application does not exist";
  }
  return verdict;
}

std::string misfit_text(const ApplicationPackage& package) {
  return "The package '" + package.name().text() + "' does not fit its description";
}

std::string failed_exchange_text(const fs::Path& target, const char* reason) {
  return "Installer request for '" + target.text() + "' failed: " + reason;
}

std::string incomplete_binaries_text(const ApplicationPackage& package) {
  return "The binaries of '" + package.package() +
         "' are not complete: the application is removed and not registered";
}

std::string early_data_text(const fs::Path& target) {
  return "The data of '" + target.text() + "' stands before its binaries in the archive: it was not restored";
}

std::string no_room_text(const fs::Path& data, std::uint64_t needed, std::uint64_t room) {
  return "The new data for '" + data.text() + "' needs " + std::to_string(needed) +
         " bytes, and there is room for " + std::to_string(room) + ": the old data stays";
}

std::string incomplete_data_text(const fs::Path& data) {
  return "The new data for '" + data.text() + "' is not complete: the old data stays";
}

}  // namespace harbix
