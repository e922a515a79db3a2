#include <array>
#include <string>
#include <string_view>

#include "device/content/contents.h"

namespace device {
namespace {

using namespace std::string_view_literals;

constexpr std::array APPLICATION_NAMES = {
    "a:b"sv,
    "colon:"sv,
    ":"sv,
    " blank in front"sv,
    "blank behind "sv,
    "  "sv,
    "-leading dash"sv,
    ".hidden"sv,
    "..two dots"sv,
    "new\nline"sv,
    "newline\n"sv,
    R"(back\slash)"sv,
    R"('quotes' "and" $HOME;*?)"sv,
    "File: 1 2 3"sv,
    // The same word twice: é as one character, and as e with a combining accent.
    "caf\u00e9"sv,
    "cafe\u0301"sv,
    // No UTF-8: Latin-1, a lone continuation byte.
    "caf\xe9 latin-1"sv,
    "\x80"sv,
    "\u6771\u4eac"sv,
};

void write_odd_names(ApplicationFolder& folder, const std::string& path) {
  folder.folder(path);
  for (const std::string_view name : APPLICATION_NAMES)
    folder.text_file(path + "/" + std::string(name), "odd\n");
  folder.folder(path + "/folder\xe9:");
  folder.text_file(path + "/folder\xe9:/inside:", "odd\n");
}

}  // namespace

void write_odd_binaries(ApplicationFolder& binaries) {
  write_odd_names(binaries, "assets/odd names");
  binaries.text_file("assets/odd names/" + std::string(LONGEST_NAME, 'l'), "long\n");
  binaries.folder("assets/links");
  binaries.link("assets/links/relative", "../licence.txt");
  binaries.link("assets/links/dangling", "../no such file");
  binaries.link("assets/links/to a folder", "../fonts");
  binaries.link("assets/links/odd target", "caf\xe9 \n: target");
  binaries.link("assets/links/outside", "/etc/passwd");
}

void write_odd_data(ApplicationFolder& data) {
  write_odd_names(data, "data/odd names");
  data.folder("data/links");
  data.link("data/links/relative", "../settings.conf");
  data.link("data/links/dangling", "not there");
  data.link("data/links/to a folder", "../books");
  data.link("data/links/outside", "/etc/passwd");
}

}  // namespace device
