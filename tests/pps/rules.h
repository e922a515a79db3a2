#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "device/pps/catalog.h"
#include "device/pps/publisher.h"
#include "device/pps/store.h"
#include "device/pps/tree.h"

namespace pps {

/// The error number that `operation` is refused with; 0 when it is not.
template <typename Operation>
int error_of(Operation&& operation) {
  try {
    operation();
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

/// The rules without a kernel: clients are openings, waiting reads are answered into a list.
class Rules : public testing::Test {
 protected:
  static constexpr const char* WAITS = "(waits)";

  /// Makes the object when it is missing. Shape: "obj?options", in the root.
  OpenId open(std::string_view name);
  OpenId open_in(Node& directory, std::string_view name);

  /// What a read hands over at once, or WAITS; a read that waits is answered into answers().
  std::string read(OpenId id, std::size_t size = 32768);

  /// Another client's "echo text >name".
  void put(std::string_view name, std::string_view text) { put_in(tree_.root(), name, text); }
  void put_in(Node& directory, std::string_view name, std::string_view text);

  /// Another client's "cat name".
  std::string cat(std::string_view name) { return cat_in(tree_.root(), name); }
  std::string cat_in(Node& directory, std::string_view name);

  Node& make_directory(std::string_view name);

  /// What waiting reads were answered since the last call.
  std::vector<std::string> answers() { return std::exchange(answers_, {}); }

  std::vector<std::string> answers_;
  std::deque<int> tokens_;  // whose addresses name the reads
  Tree tree_{new_metadata(0755, 0, 0)};
  Store store_;
  Publisher publisher_{tree_, store_,
                       [this](ReaderToken, std::string_view text) { answers_.emplace_back(text); }};
  Catalog catalog_{tree_, store_, publisher_};
};

}  // namespace pps
