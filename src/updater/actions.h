#pragma once

#include <string>

#include "fs/file.h"
#include "updater/action.h"

namespace updater {

/// Asks the installer to make an application of a folder below "/apps". The response has "actual_gid".
class ActionRegister : public UpdaterAction {
 public:
  /// `extras` as the installer gave them out when the application was backed up; `gid` may be empty: the
  /// installer then chooses.
  ActionRegister(const fs::File& package, std::string extras, std::string gid);
  void write_request() override;

 private:
  fs::Path package_;
  std::string extras_;
  std::string gid_;
};

/// Asks the installer to forget an application.
class ActionUnregister : public UpdaterAction {
 public:
  explicit ActionUnregister(const std::string& package_path);
  void write_request() override;

 private:
  fs::Path package_;
};

/// Asks what the installer knows of an application. The response has "actual_extras", "actual_dname" and
/// "actual_gid".
class ActionQuery : public UpdaterAction {
 public:
  /// A relative path counts from the working directory.
  explicit ActionQuery(const std::string& package_path);
  void write_request() override;

 private:
  fs::Path package_;
};

/// Asks the installer to remove an application with its files.
class ActionUninstall : public UpdaterAction {
 public:
  explicit ActionUninstall(std::string package_id);
  void write_request() override;

 private:
  std::string package_id_;
};

}  // namespace updater
