#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/pps_client.h"
#include "tests/support/tree.h"

namespace harbix::test {

/// A bare device that runs until stop(), and processes of this program on it. It is kept, so that
/// it can be started again and its files be looked at from outside.
class RunningDevice : public testing::Test {
 protected:
  void SetUp() override;
  /// Fails when the device has reported more on standard error than the test announced with expect_errors().
  void TearDown() override;

  void start();
  void stop();
  void expect_errors(const std::string& errors) { expected_errors_ += errors; }

  /// Runs `work` in a process on the device. @return what `work` returned; a text that begins with "threw: "
  /// when it threw.
  [[nodiscard]] std::string inside(const std::function<std::string()>& work) const;
  /// Runs a shell script on the device. @return all its output.
  [[nodiscard]] std::string shell(const std::string& script) const;
  /// Runs `work` on the device in a process that goes on beside this one. Its status is 0 when `work` is
  /// through, 99 when it threw.
  [[nodiscard]] std::unique_ptr<Process> beside(const std::function<void()>& work) const;

  /// One exchange in a process on the device: see exchange_here().
  [[nodiscard]] std::string exchange(const std::string& request) const;

  /// Makes a folder below /apps with a manifest.
  void make_application(const std::string& id, const std::string& package) const;
  /// Sets attributes of the control object.
  void control(const std::string& lines) const;

  /// Where a path of the device is outside.
  [[nodiscard]] std::string outside(const std::string& path) const { return state_ + path; }

 private:
  void enter() const;

  TemporaryFolder folder_;
  std::string state_ = folder_ / "state";
  std::unique_ptr<DeviceProcess> device_;
  std::string expected_errors_;
};

inline constexpr const char* REQUESTS = "/pps/system/installer/upd/current";

/// The text of a request to register an application.
[[nodiscard]] std::string enrollment(const std::string& id, const std::string& extras,
                                     const std::string& gid = "");

/// A request on its way: an object made exclusively, the request written in one piece.
class Exchange {
 public:
  explicit Exchange(const std::string& request);
  ~Exchange();
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  /// Writes more of the request.
  void write(const std::string& text) const { write_text(object_, text); }

  /// Reads until the result, or the end of the stream.
  /// @return the lines without those that begin with "@"; with a last line "(end)" when there was no result.
  [[nodiscard]] std::string answer() const;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
  base::FileDescriptor object_;
};

/// A whole exchange in this process, which has to be on the device. @return the answer.
[[nodiscard]] std::string exchange_here(const std::string& request);

/// The last value of each attribute in the lines of an answer.
[[nodiscard]] std::map<std::string, std::string> values_of(const std::string& answer);

}  // namespace harbix::test
