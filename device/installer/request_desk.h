#pragma once

#include <functional>
#include <optional>
#include <string>

#include "device/installer/answer.h"
#include "device/installer/attributes.h"
#include "device/installer/faults.h"
#include "device/installer/request.h"

namespace installer {

/// Answers the requests that clients put into the objects of one PPS directory, and does it as badly as the
/// control object asks.
class RequestDesk {
 public:
  /// Carries a request out. @throws std::exception when it cannot be done; the text is the answer's "error".
  using Work = std::function<Answer(const Request& request)>;

  RequestDesk(std::string directory, std::string control, Work work)
      : directory_(std::move(directory)), control_(std::move(control)), work_(std::move(work)) {}

  /// Answers the object `name` if it waits for an answer. One that cannot be answered is reported on
  /// standard error. @throws std::system_error when the file system is not served any more.
  void look_at(const std::string& name) const;

  /// The same for each object that is there.
  void look_at_all() const;

 private:
  void answer(const std::string& object, const Attributes& request) const;
  [[nodiscard]] Answer answer_to(const Attributes& request) const;

  std::string directory_;
  std::string control_;
  Work work_;
};

}  // namespace installer
