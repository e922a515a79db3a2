#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "device/installer/answer.h"
#include "device/installer/ledger.h"
#include "device/installer/request.h"

namespace installer {

/// Where the installer keeps things.
struct Places {
  std::string applications = "/apps";
  std::string data = "/accounts/1000/appdata";
  /// The folder of the ledger.
  std::string own = "/var/installer";
};

/// Registers and removes applications: keeps the ledger in its file and the applications' folders in order,
/// and publishes the list of applications.
class Installer {
 public:
  struct Surroundings {
    /// Takes lines to be merged into the published list: "ID::PACKAGE,VERSION,EXTRAS", or "-ID".
    std::function<void(const std::string& lines)> publish;
    /// Whether a group means something else on this device.
    std::function<bool(gid_t)> is_reserved;
  };

  /// Reads the ledger; there may be none yet. @throws std::runtime_error when it cannot be read.
  Installer(Places places, Surroundings surroundings);

  /// Publishes the whole ledger: what is registered, and what no longer is.
  void publish_all() const;

  /// Carries the request out, as often as it is asked: one that was cut short can be repeated.
  /// @return the answer, "result" last. @throws Refusal when it cannot be done.
  Answer carry_out(const Request& request);

 private:
  Answer enroll(const Request& request);
  Answer unregister(const Request& request);
  Answer uninstall(const Request& request);
  [[nodiscard]] Answer query(const Request& request) const;

  void strike(const std::string& id);
  void make_data_folder(const Application& application) const;
  /// On disk first: what cannot be kept does not happen.
  void adopt(Ledger ledger);

  Places places_;
  Surroundings surroundings_;
  Ledger ledger_;
};

}  // namespace installer
