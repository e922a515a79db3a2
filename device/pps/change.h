#pragma once

#include <cstdint>

namespace pps {

/// Numbers every change of the whole file system, in order; 0 is before all of them.
using Stamp = std::uint64_t;

/// Numbers every opening of an object, in order; 0 stands for what was loaded from the store.
using OpenId = std::uint64_t;

/// Who changed something, and when.
struct Change {
  Stamp stamp = 0;
  OpenId writer = 0;
};

/// Where a reader stands: what it has seen, and whose changes are its own.
struct Cursor {
  Stamp seen = 0;
  OpenId self = 0;

  /// A change is news to everybody but the descriptor that wrote it: a client that writes a request and then
  /// reads through the same descriptor waits for the answer, not for its own words.
  [[nodiscard]] bool is_news(const Change& change) const {
    return change.stamp > seen && change.writer != self;
  }
};

}  // namespace pps
