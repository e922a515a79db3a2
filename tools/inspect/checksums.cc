#include "inspect/checksums.h"

#include <fmt/format.h>

#include <optional>

#include "inspect/archive_pass.h"
#include "inspect/json_lines.h"
#include "inspect/names.h"

namespace harbix::inspect {
namespace {

class Checksums : public Visitor {
 public:
  Checksums(bool is_json, Output& output) : is_json_(is_json), output_(output) {}

  void begin_package(const PackageName& /*package*/, const Item& item, ArchiveReader& reader) override {
    meet(item, reader);
  }

  void meet(const Item& item, ArchiveReader& reader) override {
    if (!item.entry.is_plain_file()) return;
    const Digest digest = digest_of_contents(reader, item.entry.size(), sha256_);
    const std::string_view name = listed_name(item.name);
    if (is_json_) {
      output_.line(json(digest, name, item.entry.size()));
    } else if (output_.is_terminal()) {
      // For a person alone: the format has no escape for other characters, which a terminal would obey.
      output_.line(hexadecimal(digest) + "  " + shown(name));
    } else {
      output_.line(checksum_line(digest, name));
    }
  }

 private:
  static std::string json(const Digest& digest, std::string_view name, std::int64_t size) {
    Json object;
    object["type"] = "checksum";
    set_name(object, "name", name);
    object["size"] = size;
    object["sha256"] = hexadecimal(digest);
    return json_line(object);
  }

  bool is_json_;
  Output& output_;
  Sha256 sha256_;
};

}  // namespace

int print_checksums(const Request& request, Output& output) {
  ArchiveReader reader(input_name(request.archives.front()));
  Checksums checksums(request.is_json, output);
  const std::optional<Damage> damage = read_archive(reader, checksums);
  if (!damage) return STATUS_GOOD;
  output.flush();
  complain(
      fmt::format("{}: {} (behind byte {})", request.archives.front(), damage->reason, damage->position));
  return STATUS_TROUBLE;
}

std::string_view listed_name(const fs::Path& name) {
  std::string_view text = name.text();
  if (text.size() > 1 && text.front() == fs::Path::SEPARATOR) text.remove_prefix(1);
  return text;
}

std::string checksum_line(const Digest& digest, std::string_view name) {
  std::string line;
  if (name.find_first_of("\\\n\r") != std::string_view::npos) line += '\\';
  line += hexadecimal(digest);
  line += "  ";
  for (const char byte : name) {
    if (byte == '\\') {
      line += "\\\\";
    } else if (byte == '\n') {
      line += "\\n";
    } else if (byte == '\r') {
      line += "\\r";
    } else {
      line += byte;
    }
  }
  return line;
}

}  // namespace harbix::inspect
