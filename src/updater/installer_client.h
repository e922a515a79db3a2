#pragma once

#include <map>
#include <string>
#include <string_view>

#include "fs/path.h"
#include "updater/request_object.h"

namespace updater {

/// What the installer answers: attributes by their names.
using Attributes = std::map<std::string, std::string>;

/// @throws std::runtime_error "Attribute NAME not found"
[[nodiscard]] std::string attribute_of(const Attributes& attributes, const std::string& name);

/// One exchange with the installer. Always in this order: construct, write the request, read the response,
/// look at its attributes, destroy.
class UpdaterAction {
 public:
  /// Creates the object that the exchange goes through.
  /// @throws fs::Exception "Failed to create file 'PATH' "
  UpdaterAction() = default;
  virtual ~UpdaterAction() = default;
  UpdaterAction(const UpdaterAction&) = delete;
  UpdaterAction& operator=(const UpdaterAction&) = delete;
  UpdaterAction(UpdaterAction&&) = delete;
  UpdaterAction& operator=(UpdaterAction&&) = delete;

  /// @throws fs::Exception "Failed to write file 'PATH' " when the installer's folder does not take it whole.
  virtual void write_request() = 0;

  /// Waits for the attribute "result", or the end of the stream, for as long as it takes. What `result` says
  /// is not judged.
  virtual void read_response();

  /// Both of the above.
  void exchange();

  /// The value of an attribute of the response; of one that came several times, the last.
  /// @throws std::runtime_error "Attribute NAME not found"
  [[nodiscard]] std::string get_attribute(const std::string& name) const;
  /// All attributes of the response.
  [[nodiscard]] const Attributes& response() const noexcept { return response_; }

  [[nodiscard]] const fs::Path& object_path() const noexcept { return object_.path(); }

 protected:
  /// Hands over attribute lines, all at once.
  void send(std::string_view lines) const;

 private:
  /// @return whether the response is complete with this line.
  bool take_line(const std::string& line);

  Attributes response_;
  RequestObject object_;
};

/// Asks the installer to make an application of a folder below "/apps". The response has "actual_gid".
class ActionRegister : public UpdaterAction {
 public:
  /// `extras` as the installer gave them out when the application was backed up; `gid` may be empty: the
  /// installer then chooses.
  ActionRegister(fs::Path package, std::string extras, std::string gid);
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
