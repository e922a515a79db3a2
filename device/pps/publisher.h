#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "device/pps/open_object.h"
#include "device/pps/store.h"
#include "device/pps/tree.h"

namespace pps {

/// Carries attributes from writers to readers: every opening of an object, the reads that wait, and the
/// moments at which an object goes to the store (the end of a "flush", "fsync" or last close of anybody who
/// has it open).
///
/// Errors are std::system_error with the number that the client gets.
class Publisher {
 public:
  /// Answers a parked read; called exactly once for each, unless cancel() took it back. The text is good
  /// during the call.
  using Answer = std::function<void(ReaderToken token, std::string_view text)>;

  enum class Patience { wait, refuse };

  Publisher(Tree& tree, const Store& store, Answer answer)
      : tree_(tree), store_(store), answer_(std::move(answer)) {}

  /// Opens an object or a view.
  [[nodiscard]] OpenId open(Node& node, OpenOptions options);

  /// The next piece of what OpenObject::read() describes. A client that reads has finished the line that it
  /// was writing.
  /// @return nothing when the read is parked: `token` is answered later.
  /// @throws EAGAIN when it would have to be parked and `patience` is refuse; EINVAL when the unfinished line
  /// is malformed.
  [[nodiscard]] std::optional<std::string_view> read(OpenId id, std::size_t size, Patience patience,
                                                     ReaderToken token);

  /// Takes a parked read back, unanswered: its client was killed or got a signal.
  /// @return false when the token is not parked (any more).
  bool cancel(ReaderToken token);

  /// Takes every parked read back, so that the server can end it when it shuts down.
  [[nodiscard]] std::vector<ReaderToken> cancel_all();

  /// Merges the complete lines of what was written through this opening so far, as one change, and keeps the
  /// rest until its newline comes, or flush(), read() or close(). Writing to a view makes an object of it.
  /// @throws EINVAL when a line is malformed: the object is unchanged, and an unfinished line from before is
  /// lost too; EFBIG when an unfinished line grows beyond MAX_LINE; ENOENT for the view of a directory that
  /// was removed.
  void write(OpenId id, std::string_view bytes);

  /// Merges the unfinished line, and saves the object when it has changed since it was last saved.
  /// @throws EINVAL when that line is malformed (it is dropped), or what the store reports.
  void flush(OpenId id);

  /// The last close. The opening is over even when this throws what flush() throws.
  void close(OpenId id);

  /// Hands news to the readers that wait at `node`, and the end of the file when it was removed.
  void wake(Node& node);

  /// Notes that the objects of `directory` are others than before, and wakes who waits for that.
  void objects_changed(Node& directory);

  static constexpr std::size_t MAX_LINE = 1 << 20;  ///< bytes

 private:
  OpenObject& opening(OpenId id);
  void publish(OpenObject& open, const std::vector<AttributeLine>& lines);
  [[nodiscard]] bool finish_line(OpenObject& open);
  void forget_told_removals(Node& node);

  Tree& tree_;
  const Store& store_;
  Answer answer_;
  OpenId last_id_ = 0;
  std::unordered_map<OpenId, std::unique_ptr<OpenObject>> open_;
  std::unordered_map<ReaderToken, OpenId> parked_;
};

}  // namespace pps
