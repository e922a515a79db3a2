#include "device/content/application_odd_items.h"

#include <array>
#include <string>
#include <string_view>

namespace device {
namespace {

using namespace std::string_view_literals;

constexpr std::array NAMES = {
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
// The most bytes that a Linux file system takes for one name.
constexpr std::size_t LONGEST_NAME = 255;

}  // namespace

void write_odd_binaries(ApplicationFolders& folders) {
  folders.folder("assets/odd names");
  for (const std::string_view name : NAMES) {
    folders.text_file("assets/odd names/" + std::string(name), "odd\n");
  }
  folders.text_file("assets/odd names/" + std::string(LONGEST_NAME, 'l'), "long\n");
  folders.folder("assets/odd names/folder\xe9:");
  folders.text_file("assets/odd names/folder\xe9:/inside:", "odd\n");
  folders.folder("assets/links");
  folders.link("assets/links/relative", "../licence.txt");
  folders.link("assets/links/dangling", "../no such file");
  folders.link("assets/links/to a folder", "../fonts");
  folders.link("assets/links/odd target", "caf\xe9 \n: target");
  folders.link("assets/links/outside", "/etc/passwd");
}

void write_odd_data(ApplicationFolders& folders) {
  folders.data_folder("data/odd names");
  for (const std::string_view name : NAMES) {
    folders.data_text_file("data/odd names/" + std::string(name), "odd\n");
  }
  folders.data_folder("data/odd names/folder\xe9:");
  folders.data_text_file("data/odd names/folder\xe9:/inside:", "odd\n");
  folders.data_folder("data/links");
  folders.data_link("data/links/relative", "../settings.conf");
  folders.data_link("data/links/dangling", "not there");
  folders.data_link("data/links/to a folder", "../books");
  folders.data_link("data/links/outside", "/etc/passwd");
}

}  // namespace device
