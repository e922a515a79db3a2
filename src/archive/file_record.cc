#include "archive/file_record.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

namespace harbix {
namespace {

constexpr std::string_view RECORD_KEY = "File";
constexpr std::string_view RECORD_KEY_AFTER_PATH = "\nFile";
constexpr std::string_view SWALLOWED_RECORD = "File: ";
constexpr int OCTAL = 8;

/// Appends a path. A record is one line.
void append_escaped(std::string& text, std::string_view path) {
  for (const char byte : path) {
    if (byte == '\\') {
      text += "\\\\";
    } else if (byte == '\n') {
      text += "\\n";
    } else {
      text += byte;
    }
  }
}

/// Appends a number and a blank.
template <typename Number>
void append_number(std::string& text, Number number, int base = 10) {
  std::array<char, std::numeric_limits<std::uint64_t>::digits> digits{};
  const auto [end, error] = std::to_chars(digits.begin(), digits.end(), number, base);
  text.append(digits.begin(), end);
  text += ' ';
}

std::string unescaped(std::string_view text) {
  std::string path;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      ++i;
      path += text[i] == 'n' ? '\n' : text[i];
    } else {
      path += text[i];
    }
  }
  return path;
}

/// Takes a number, and the one blank behind it if there is one, off the front of a text.
template <typename Number>
bool take_number(std::string_view& text, Number& number, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  if (text.starts_with(' ')) text.remove_prefix(1);
  return true;
}

std::optional<FileRecord> parse_status_record(std::string_view text) {
  FileRecord record;
  RecordedStatus status;
  if (!take_number(text, record.size) || !take_number(text, status.mode, OCTAL) ||
      !take_number(text, status.user) || !take_number(text, status.group) ||
      !take_number(text, status.modified) || text.empty()) {
    return std::nullopt;
  }
  record.path = fs::Path(unescaped(text));
  record.status = status;
  return record;
}

FileRecord parse_value(std::string_view text) {
  if (std::optional<FileRecord> record = parse_status_record(text)) return *std::move(record);
  FileRecord record;
  // The rest of the line is the path. A continuation keeps its blank, which separates it where the path is
  // absolute.
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), record.size);
  if (error == std::errc()) text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  if (text.starts_with(" /")) text.remove_prefix(1);
  record.path = fs::Path(text);
  return record;
}

}  // namespace

meta::Attribute plain_record(const fs::File& file) {
  return {std::string(RECORD_KEY), std::to_string(file.record().st_size) + '\n' + file.path().text()};
}

meta::Attribute status_record(const fs::File& file) {
  constexpr std::size_t LONGEST_STATUS = 80;
  const struct ::stat& record = file.record();
  const std::string& path = file.path().text();
  std::string value;
  value.reserve(LONGEST_STATUS + path.size());
  append_number(value, record.st_size);
  append_number(value, record.st_mode, OCTAL);
  append_number(value, record.st_uid);
  append_number(value, record.st_gid);
  append_number(value, record.st_mtim.tv_sec);
  append_escaped(value, path);
  return {std::string(RECORD_KEY), std::move(value)};
}

meta::Attribute path_record(const fs::Path& path) { return {std::string(RECORD_KEY), path.text()}; }

bool begins_file_record(const meta::Attribute& attribute) {
  return attribute.key == RECORD_KEY || attribute.key.ends_with(RECORD_KEY_AFTER_PATH);
}

void RecordCollector::add(const meta::Attribute& attribute) {
  if (attribute.key == RECORD_KEY) {
    end_record();
    begin_record(attribute.value);
  } else if (attribute.key.ends_with(RECORD_KEY_AFTER_PATH)) {
    add_to_path(
        std::string_view(attribute.key).substr(0, attribute.key.size() - RECORD_KEY_AFTER_PATH.size()));
    end_record();
    begin_record(attribute.value);
  } else if (attribute.value.starts_with(SWALLOWED_RECORD) && awaits_path_) {
    add_to_path(attribute.key + ":");
    end_record();
    begin_record(std::string_view(attribute.value).substr(SWALLOWED_RECORD.size()));
  } else {
    add_to_path(attribute.key + ":" + attribute.value);
  }
}

void RecordCollector::add_to_path(std::string_view text) {
  // No path is as long, and a text that claims so must not take memory.
  if (awaits_path_ && path_.size() <= meta::LARGEST_ATTRIBUTE) path_ += text;
}

void RecordCollector::begin_record(std::string_view value) {
  records_.push_back(parse_value(value));
  awaits_path_ = records_.back().path.empty();
}

void RecordCollector::end_record() {
  if (awaits_path_) records_.back().path = fs::Path(path_);
  path_.clear();
  awaits_path_ = false;
}

std::vector<FileRecord> RecordCollector::take() {
  std::optional<FileRecord> unfinished;
  if (awaits_path_) {
    unfinished = std::move(records_.back());
    records_.pop_back();
  }
  std::vector<FileRecord> whole = std::exchange(records_, {});
  if (unfinished) records_.push_back(*std::move(unfinished));
  return whole;
}

std::vector<FileRecord> RecordCollector::finish() {
  end_record();
  return std::exchange(records_, {});
}

std::vector<FileRecord> read_file_records(const meta::Manifest& manifest) {
  RecordCollector collector;
  for (const meta::Attribute& attribute : manifest) collector.add(attribute);
  return collector.finish();
}

}  // namespace harbix
