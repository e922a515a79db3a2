#pragma once

#include <cstdint>
#include <string>

namespace harbix::test {

/// The size of a header, and what contents are filled up to.
inline constexpr std::size_t RECORD = 512;

/// Makes tar archives that no sane program writes: any name, any type, any size, any bytes.
class TarBuilder {
 public:
  static constexpr char FILE = '0';
  static constexpr char HARD_LINK = '1';
  static constexpr char SYMBOLIC_LINK = '2';
  static constexpr char CHARACTER_DEVICE = '3';
  static constexpr char BLOCK_DEVICE = '4';
  static constexpr char FOLDER = '5';
  static constexpr char FIFO = '6';

  /// An entry of up to 100 characters of name and target. `claimed_size` may differ from what `content`
  /// holds.
  TarBuilder& add(char type, const std::string& name, const std::string& content = "", unsigned mode = 0660,
                  const std::string& target = "", std::uint64_t claimed_size = MATCHING_SIZE);
  TarBuilder& file(const std::string& name, const std::string& content, unsigned mode = 0660) {
    return add(FILE, name, content, mode);
  }
  TarBuilder& folder(const std::string& name, unsigned mode = 0770) { return add(FOLDER, name, "", mode); }
  TarBuilder& link(const std::string& name, const std::string& target) {
    return add(SYMBOLIC_LINK, name, "", 0777, target);
  }

  /// The user and the group that own the entries from here on; 0 until then.
  TarBuilder& owner(unsigned user, unsigned group = 0) {
    owner_ = user;
    group_ = group;
    return *this;
  }

  /// When the entries from here on were modified, in seconds since 1970; 1 until then.
  TarBuilder& time(std::uint64_t seconds) {
    time_ = seconds;
    return *this;
  }

  /// The archive with its end mark.
  [[nodiscard]] std::string text() const;
  /// The archive as it is so far, without an end mark.
  [[nodiscard]] const std::string& truncated_text() const { return text_; }

 private:
  static constexpr std::uint64_t MATCHING_SIZE = ~std::uint64_t{0};

  std::string text_;
  unsigned owner_ = 0;
  unsigned group_ = 0;
  std::uint64_t time_ = 1;
};

}  // namespace harbix::test
