#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "device/pps/change.h"
#include "device/pps/node.h"
#include "device/pps/open_name.h"

namespace pps {

/// What names one waiting read to the server that answers it; this library only carries it.
using ReaderToken = void*;

/// A read that found nothing to hand over yet.
struct ParkedRead {
  ReaderToken token;
  std::size_t size;
};

/// One opening of an object or view: what its reader has seen, and the line its writer has begun.
class OpenObject {
 public:
  /// `now` is the stamp of the last change before the opening: a waiting reader hears only of later ones.
  OpenObject(OpenId id, Node& node, OpenOptions options, Stamp now)
      : id_(id), node_(node), options_(options), seen_(now) {}

  [[nodiscard]] OpenId id() const { return id_; }
  [[nodiscard]] Node& node() const { return node_; }
  [[nodiscard]] Cursor cursor() const { return {.seen = seen_, .self = id_}; }

  /// The next piece of at most `size` bytes of the text that is being read. A text is taken whole when its
  /// first piece is asked for, so that a client that reads in small pieces sees one state and not a mixture.
  ///  - without "wait": the whole text, then "" once as the end of the file; after that "" until there is
  ///  news,
  ///    and then the text anew.
  ///  - with "wait": texts one after the other, each when there is news; "" only when the object was removed.
  ///  - with "delta": every text but a first one that did not wait holds the news only.
  /// @param now the stamp of the last change.
  /// @return nothing when the read has to wait. The view is good until the next call.
  [[nodiscard]] std::optional<std::string_view> read(std::size_t size, Stamp now);

  /// Whether a later read will ask what was removed since cursor().
  [[nodiscard]] bool needs_removals() const { return options_.wait || started_; }

  std::string unfinished_line;    ///< what was written after the last newline
  std::deque<ParkedRead> parked;  ///< reads that wait for news, the oldest first

 private:
  [[nodiscard]] bool has_text() const;
  void take_text(Stamp now);

  OpenId id_;
  Node& node_;
  OpenOptions options_;
  Stamp seen_;
  bool started_ = false;  // a first text was taken
  std::string text_;
  std::size_t position_ = 0;
  bool end_due_ = false;
};

}  // namespace pps
