#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace installer {

/// One application that is registered, or once was.
struct Application {
  /// The name of its folders below /apps and /accounts/1000/appdata.
  std::string id;
  /// The package's own name, which differs from `id`.
  std::string package;
  std::string version;
  /// A list of "key:encoding:value" items separated by commas, as it was given at registration.
  std::string extras;
  gid_t gid = 0;
  /// False once it is unregistered: then `id` and `gid` are all that counts.
  bool registered = true;

  bool operator==(const Application&) const = default;
};

/// The applications that the installer knows, and the group that each of them ever had. No two have the same
/// group: what an application left behind never belongs to another one.
class Ledger {
 public:
  Ledger() = default;

  /// Reads what text() gave.
  /// @throws std::runtime_error naming the line that does not fit.
  [[nodiscard]] static Ledger parse(std::string_view text);

  /// Shape: for each application the lines "application::ID", "package::NAME", "version::VERSION",
  /// "extras::EXTRAS", "gid::NUMBER" and "registered::yes" or "registered::no".
  [[nodiscard]] std::string text() const;

  /// Those that are registered come in the order of their registration.
  [[nodiscard]] const std::vector<Application>& applications() const noexcept { return applications_; }

  /// nullptr when it is not registered. Good until the ledger changes.
  [[nodiscard]] const Application* find(std::string_view id) const;
  /// The first registered application with this package.
  [[nodiscard]] const Application* find_package(std::string_view package) const;

  /// The group for an application to be registered: `wanted` if it is a number from LOWEST_GID to HIGHEST_GID
  /// and free, else the one it ever had, else the next free one. Free is what no other application ever had
  /// and is not `reserved`.
  [[nodiscard]] gid_t gid_for(std::string_view id, std::string_view wanted,
                              const std::function<bool(gid_t)>& reserved) const;

  /// Adds a registered application, or puts it in the place of its older self.
  void enroll(const Application& application);

  /// Takes the registration of `id` away; its group stays its own.
  void strike(std::string_view id);

  static constexpr gid_t LOWEST_GID = 10000;
  /// The data of an application belongs to the user GID * 10000 + 1000, which has to be a number of 32 bits.
  static constexpr gid_t HIGHEST_GID = 429495;

 private:
  [[nodiscard]] const Application* find_any(std::string_view id) const;

  std::vector<Application> applications_;
};

}  // namespace installer
