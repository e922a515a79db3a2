#include <algorithm>
#include <array>
#include <string>

#include "device/content/contents.h"
#include "device/content/random.h"

namespace device {
namespace {

constexpr std::uint64_t MIB = 1024 * KIB;

/// "007" for 7 and 3 places.
std::string numbered(unsigned int number, std::size_t places) {
  std::string digits = std::to_string(number);
  return std::string(places - std::min(places, digits.size()), '0') + digits;
}

struct Album {
  const char* path;
  unsigned int tracks;
};

void write_music(MediaShare& share) {
  // The accents are composed (NFC) here; odd_names.cc has decomposed ones.
  constexpr std::array ALBUMS = {
      Album{"Music/Blå timme/Första", 11},    Album{"Music/Blå timme/Långsamt", 9},
      Album{"Music/Ensemble Été/Façade", 12}, Album{"Music/Ensemble Été/Où aller", 8},
      Album{"Music/The Long Way/One", 10},    Album{"Music/The Long Way/Two", 10},
      Album{"Music/東京の音/夜", 9},          Album{"Music/Various/Compilation 2013", 21},
  };
  share.folder("Music");
  std::string artist;
  for (const Album& album : ALBUMS) {
    const std::string path = album.path;
    if (const std::string of = path.substr(0, path.rfind('/')); of != artist) share.folder(artist = of);
    share.folder(path);
    Random random(path);
    for (unsigned int track = 1; track <= album.tracks; ++track) {
      const char* extension = track % 5 == 0 ? ".ogg" : ".mp3";
      share.file(path + "/" + numbered(track, 2) + " Track" + extension, random.between(8 * KIB, 40 * KIB));
    }
    share.file(path + "/cover.jpg", random.between(2 * KIB, 6 * KIB));
  }
  share.text_file("Music/favourites.m3u", "The Long Way/One/01 Track.mp3\nThe Long Way/Two/03 Track.mp3\n");
}

void write_photos(MediaShare& share) {
  constexpr std::array MONTHS = {"2012/12", "2013/03", "2013/07", "2013/08", "2024/01", "2024/06"};
  constexpr unsigned int PHOTOS_A_MONTH = 18;
  share.folder("Photos");
  std::string year;
  unsigned int number = 0;
  for (const std::string month : MONTHS) {
    if (const std::string of = month.substr(0, 4); of != year) share.folder("Photos/" + (year = of));
    share.folder("Photos/" + month);
    Random random(month);
    for (unsigned int photo = 0; photo < PHOTOS_A_MONTH; ++photo) {
      const std::string name = "Photos/" + month + "/IMG_" + numbered(++number, 5) + ".jpg";
      share.file(name, random.between(10 * KIB, 60 * KIB));
    }
  }
  share.file("Photos/panorama.jpg", 2 * MIB + 1);
  share.folder("Photos/2024/empty album");
  share.folder("Photos/Screenshots");
  for (std::uint64_t shot = 1; shot <= 6; ++shot) {
    share.file("Photos/Screenshots/screen" + std::to_string(shot) + ".png", shot * 3 * KIB);
  }
}

void write_videos_and_recordings(MediaShare& share) {
  share.folder("Videos");
  share.file("Videos/birthday.mp4", 3 * MIB);
  share.file("Videos/seaside.mp4", MIB + 4321);
  share.file("Videos/kitten.mp4", 300 * KIB);
  share.sparse_file("Videos/unfinished download.mp4", 8 * MIB);
  share.folder("Recordings");
  for (std::uint64_t note = 1; note <= 8; ++note) {
    share.file("Recordings/Voice note " + std::to_string(note) + ".amr", note * 1777);
  }
}

void write_documents(MediaShare& share) {
  share.folder("Documents");
  share.folder("Documents/Letters");
  share.folder("Documents/Letters/Unsent");
  share.folder("Documents/Nothing in here");
  for (unsigned int letter = 1; letter <= 20; ++letter) {
    const std::string name = "Letter " + numbered(letter, 2) + ".txt";
    share.text_file("Documents/Letters/" + name, "Dear reader of " + name + ",\n\nall the best.\n");
  }
  // Around the block size of an archive.
  for (const unsigned int size : {0U, 1U, 511U, 512U, 513U, 1023U, 1024U, 10239U, 10240U, 10241U}) {
    share.file("Documents/" + std::to_string(size) + " bytes.bin", size);
  }
  share.file("Documents/read-only.pdf", 5 * KIB, 0440);
  share.file("Documents/run me", 700, 0770);
  share.folder("Documents/Deep");
  std::string deep = "Documents/Deep";
  for (unsigned int level = 1; level <= 12; ++level) share.folder(deep += "/level " + std::to_string(level));
  share.text_file(deep + "/bottom.txt", "twelve levels down\n");
  // A folder that its owner cannot change, with a file in it.
  share.folder("Documents/Archive 2012", 0550);
  share.text_file("Documents/Archive 2012/contract.txt", "signed\n", 0440);
}

void write_the_rest(MediaShare& share) {
  share.folder("Downloads");
  for (std::uint64_t item = 1; item <= 12; ++item) {
    share.file("Downloads/download-" + std::to_string(item) + ".zip", item * 911);
  }
  share.folder("bookmarks");
  share.folder("bookmarks/News");
  share.text_file("bookmarks/home.html", "<a href=\"http://home.example/\">Home</a>\n");
  share.text_file("bookmarks/News/today.html", "<a href=\"http://news.example/today\">Today</a>\n");
  share.folder("Camera");
  share.text_file("read me first.txt", "A plain file beside the media folders.\n");
}

}  // namespace

void write_media_collection(MediaShare& share) {
  write_music(share);
  write_photos(share);
  write_videos_and_recordings(share);
  write_documents(share);
  write_the_rest(share);
}

}  // namespace device
