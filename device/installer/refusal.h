#pragma once

#include <stdexcept>

namespace installer {

/// Why a request is not carried out; its text is the answer's "error". Nothing was changed unless the text
/// says that something could not be finished.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace installer
