#pragma once

namespace harbix {

/// Whether an operation has done all of its work. What goes wrong for one item is reported, and the operation
/// goes on with the next one; this object remembers it until the operation ends with its result:
///
///   Completeness completeness;
///   { Extraction extraction(reader, role, place, Keep::NO, completeness); ... }
///   return completeness.result();
///
/// The piece of work that remembers an item here has reported it as well.
class Completeness {
 public:
  void note_missing() noexcept { is_complete_ = false; }

  [[nodiscard]] bool is_complete() const noexcept { return is_complete_; }
  /// What an operation answers: 0 when it is complete, else 1.
  [[nodiscard]] int result() const noexcept { return is_complete_ ? 0 : 1; }

 private:
  bool is_complete_ = true;
};

}  // namespace harbix
