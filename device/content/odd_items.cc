#include <array>
#include <string>
#include <string_view>

#include "device/content/contents.h"

namespace device {
namespace {

void write_names(MediaShare& share) {
  using namespace std::string_view_literals;
  constexpr std::array NAMES = {
      " blank in front.txt"sv,
      "blank behind "sv,
      "  "sv,
      "-leading dash"sv,
      "--option=value"sv,
      "a:b"sv,
      "colon:"sv,
      ":"sv,
      R"(back\slash)"sv,
      R"(\)"sv,
      "new\nline"sv,
      "newline\n"sv,
      "tab\there"sv,
      "\x01\x7f control"sv,
      R"('single' "double" `back`)"sv,
      "$HOME;*?[x]{y}|&<>()!~#%"sv,
      ".hidden"sv,
      "..two dots"sv,
      "..."sv,
      ".backup.metadata.txt"sv,
      // The same word twice: é as one character, and as e with a combining accent.
      "caf\u00e9.txt"sv,
      "cafe\u0301.txt"sv,
      // Decomposed alone, so that composing it would be seen.
      "A\u030angstro\u0308m.txt"sv,
      // No UTF-8: Latin-1, a lone continuation byte, an overlong slash, a surrogate, a character cut short.
      "caf\xe9 latin-1.txt"sv,
      "\x80"sv,
      "overlong \xc0\xaf"sv,
      "surrogate \xed\xa0\x80"sv,
      "cut \xe6\x9d"sv,
      "\u6771\u4eac \U0001f3b5.mp3"sv,
  };
  share.folder("Documents/Odd names");
  for (const std::string_view name : NAMES) {
    share.text_file("Documents/Odd names/" + std::string(name), "odd\n");
  }
  share.text_file("Documents/Odd names/" + std::string(LONGEST_NAME, 'l'), "long\n");
  // The longest name in bytes, of two-byte characters and one more byte.
  std::string accented;
  while (accented.size() + 2 < LONGEST_NAME) accented += "\u00e9";
  share.text_file("Documents/Odd names/" + accented + "x", "long\n");
  const std::string long_folder = "Documents/Odd names/" + std::string(LONGEST_NAME, 'f');
  share.folder(long_folder);
  share.text_file(long_folder + "/" + std::string(LONGEST_NAME, 'x'), "long\n");

  share.folder("Fotos M\xfcnchen");
  share.file(
      "Fotos M\xfcnchen/Stra\xdf"
      "e.jpg",
      2048);
  share.folder("Fotos M\xfcnchen/leer");
}

void write_links(MediaShare& share) {
  share.folder("Documents/Links");
  share.link("Documents/Links/relative", "../Letters/Letter 01.txt");
  share.link("Documents/Links/dangling", "../no such file");
  share.link("Documents/Links/absolute", "/accounts/1000/shared/Documents/Letters/Letter 02.txt");
  share.link("Documents/Links/outside", "/etc/passwd");
  share.link("Documents/Links/to a folder", "../Letters");
  share.link("Documents/Links/to itself", "to itself");
  share.link("Documents/Links/odd target", "caf\xe9 \n: target");
  share.link("Documents/Links/long target",
             std::string(LONGEST_NAME, 't') + "/" + std::string(LONGEST_NAME, 'u'));
  share.link("Photos/latest", "2024/06");
  share.link("Link to Music", "Music");
}

void write_protected_items(MediaShare& share) {
  share.protected_file("Videos/rented film.mp4", 9000);
  share.protected_folder("Videos/Rentals");
  share.file("Videos/Rentals/ordinary.mp4", 4000);
  share.protected_file("Videos/Rentals/protected.mp4", 4000);
  share.protected_folder("Protected");
  share.protected_file("Protected/film.mp4", 6000);
}

void write_unreadable_items(MediaShare& share) {
  share.file("Documents/secret.txt", 100, 0000);
  share.file("Documents/Letters/secret.txt", 100, 0000);
  share.file("Photos/2024/06/secret.jpg", 100, 0000);
  share.folder("Documents/Letters/locked", 0000);
  share.hidden_file("Documents/Letters/locked/inside.txt", 100);
  share.folder("Photos/2013/07/locked", 0000);
  share.folder("Locked", 0000);
  share.hidden_file("Locked/inside.mp3", 100);
}

}  // namespace

void write_odd_items(MediaShare& share) {
  write_names(share);
  write_links(share);
  write_protected_items(share);
  write_unreadable_items(share);
}

}  // namespace device
