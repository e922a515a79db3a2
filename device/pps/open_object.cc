#include "device/pps/open_object.h"

#include <utility>

namespace pps {

bool OpenObject::has_text() const {
  if (!options_.wait && !started_) return true;
  return has_news(node_, cursor());
}

void OpenObject::take_text(Stamp now) {
  const bool news_only = options_.delta && (options_.wait || started_);
  text_ = news_only ? news_text(node_, cursor()) : whole_text(node_);
  position_ = 0;
  seen_ = now;
  started_ = true;
}

std::optional<std::string_view> OpenObject::read(std::size_t size, Stamp now) {
  if (position_ == text_.size()) {
    if (std::exchange(end_due_, false)) return "";
    if (has_text()) {
      take_text(now);
    } else {
      seen_ = now;  // this client itself made all changes since then
    }
  }
  const std::string_view piece = std::string_view(text_).substr(position_, size);
  position_ += piece.size();
  if (options_.wait) {
    // A directory whose last object went has no text to show: "" would be taken for the end.
    if (piece.empty() && node_.is_linked()) return std::nullopt;
    return piece;
  }
  end_due_ = !piece.empty() && position_ == text_.size();
  return piece;
}

}  // namespace pps
