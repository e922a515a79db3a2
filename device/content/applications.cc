#include <string>

#include "device/content/application_folders.h"
#include "device/content/contents.h"
#include "device/installer/ledger.h"
#include "device/installer/ledger_file.h"

namespace device {
namespace {

using installer::Application;

/// Odd names and links of every kind; logs and temporary files that are worth nothing.
void write_reader(TreeWriter& tree, const Application& application) {
  ApplicationFolder binaries = make_binaries(tree, application);
  binaries.file("native/reader", 90 * KIB, 0750);
  binaries.file("native/helper", 12 * KIB, 0777);
  binaries.folder("native/lib");
  binaries.file("native/lib/libpages.so.1.2", 30 * KIB, 0640);
  binaries.link("native/lib/libpages.so.1", "libpages.so.1.2");
  binaries.link("native/lib/libpages.so", "libpages.so.1");
  binaries.folder("assets");
  binaries.folder("assets/fonts");
  binaries.file("assets/fonts/serif.ttf", 40 * KIB);
  binaries.text_file("assets/licence.txt", "Do with it what you like.\n", 0600);
  binaries.text_file("assets/empty", "");
  binaries.folder("assets/empty folder");
  binaries.text_file("public/description.txt", "Reads books.\n", 0644);
  write_odd_binaries(binaries);
  ApplicationFolder data = make_data(tree, application);
  data.text_file("data/settings.conf", "font=serif\npage=312\n");
  data.folder("data/books");
  data.file("data/books/one.epub", 20 * KIB);
  data.file("data/books/two.epub", 33 * KIB + 1, 0640);
  data.folder("data/empty folder");
  write_odd_data(data);
  data.text_file("logs/reader.log", "opened one.epub\n");
  data.folder("logs/old");
  data.text_file("logs/old/reader.log", "opened two.epub\n");
  data.file("tmp/page.cache", 5 * KIB);
}

/// Thousands of small files.
void write_atlas(TreeWriter& tree, const Application& application) {
  constexpr int FOLDERS = 40;
  constexpr int TILES = 50;
  constexpr std::uint64_t SMALLEST_TILE = 64;
  ApplicationFolder binaries = make_binaries(tree, application);
  binaries.file("native/atlas", 40 * KIB, 0750);
  binaries.folder("assets");
  for (int row = 0; row < FOLDERS; ++row) {
    const std::string folder = "assets/row " + std::to_string(row);
    binaries.folder(folder);
    for (int tile = 0; tile < TILES; ++tile) {
      binaries.file(folder + "/" + std::to_string(tile) + ".tile",
                    SMALLEST_TILE + static_cast<std::uint64_t>(tile));
    }
  }
  ApplicationFolder data = make_data(tree, application);
  data.text_file("data/places.txt", "home\nwork\n");
  data.link("data/recent", "places.txt");
}

/// No data folder: it was never started.
void write_notes(TreeWriter& tree, const Application& application) {
  ApplicationFolder binaries = make_binaries(tree, application);
  binaries.file("native/notes", 8 * KIB, 0750);
  binaries.text_file("public/index.html", "<title>Notes</title>\n");
}

/// Large files, and folders far down.
void write_paint(TreeWriter& tree, const Application& application) {
  constexpr int DEPTH = 30;
  ApplicationFolder binaries = make_binaries(tree, application);
  binaries.file("native/paint", 3 * KIB * KIB, 0755);
  std::string deep = "assets";
  binaries.folder(deep);
  for (int level = 1; level <= DEPTH; ++level) binaries.folder(deep += "/level " + std::to_string(level));
  binaries.file(deep + "/brush.png", 700);
  ApplicationFolder data = make_data(tree, application);
  data.file("data/picture.raw", 2 * KIB * KIB + 511);
  std::string far = "data";
  for (int level = 1; level <= DEPTH; ++level) data.folder(far += "/layer " + std::to_string(level));
  data.file(far + "/pixels", 513);
}

/// What does not come from the storefront: a few files each.
void write_small(TreeWriter& tree, const Application& application) {
  ApplicationFolder binaries = make_binaries(tree, application);
  binaries.file("native/main", 6 * KIB, 0750);
  binaries.link("public/main", "../native/main");
  ApplicationFolder data = make_data(tree, application);
  data.text_file("data/state.txt", "of " + application.id + "\n");
  data.folder("data/more");
  data.file("data/more/bytes", 1000, 0600);
  data.text_file("logs/main.log", "started\n");
}

void write_ledger_file(const TreeWriter& tree, const installer::Ledger& ledger) {
  tree.file(std::string("/var/installer/") + installer::LEDGER_NAME, ROOT_OWNER, 0600, ledger.text());
}

}  // namespace

void write_applications(TreeWriter& tree) {
  const auto application = [](const char* id, const char* package, const char* version, const char* extras,
                              gid_t gid) {
    return Application{
        .id = id, .package = package, .version = version, .extras = extras, .gid = gid, .registered = true};
  };
  const Application reader =
      application("com.example.reader.r_eader1a2b3c4d", "com.example.reader.M3xqVd7TnKc2LwZ", "1.0.0.1",
                  "source::shopvale", 10200);
  const Application atlas =
      application("com.example.atlas.a_tlas5e6f7081", "com.example.atlas.Q9sWb4RkHj8uYtE", "2.14.0.388",
                  "signed:b:true,source::shopvale,price:n:299", 10201);
  const Application notes =
      application("com.example.notes.n_otes92a3b4c5", "com.example.notes.F1pLm6XzVoDa5Ni", "0.9.1.0",
                  "source::shopvale", 10202);
  const Application paint =
      application("com.example.paint.p_aintd6e7f809", "com.example.paint.U7cBh3GqJy0rSwK", "10.0.3.77",
                  "source::shopvale,trial:b:false", 10203);
  const Application lamp = application("org.example.lamp.l_amp0b1c2d3e", "org.example.lamp.T2vEf9MiPx6oCzA",
                                       "1.1.0.0", "source::sideload", 10204);
  const Application dice = application("org.example.dice", "org.example.dice.K8nRa5WlQu1dHbG", "3.0.0.5",
                                       "signed:b:false,source::sideload", 10205);
  const Application browser =
      application("sys.browser", "sys.browser.E4tOj7FyNs2vIcM", "7.2.0.1", "source::websl", 10206);
  // An item with an empty value marks a built-in application as well.
  const Application calculator = application("sys.calculator", "sys.calculator.L6xUk0PeZr3mBqD", "4.0.0.12",
                                             "websl::,source::system", 10207);
  const Application runtime =
      application("sys.android", "sys.android.A5dXg8ShVw1jToY", "1.6.0.4108", "source::websl", 10208);
  const Application gone = application("org.example.gone", "org.example.gone.I0bCm4KuLf9pQzR", "1.0.0.0",
                                       "source::sideload", 10209);

  write_reader(tree, reader);
  write_atlas(tree, atlas);
  write_notes(tree, notes);
  write_paint(tree, paint);
  for (const Application* small : {&lamp, &dice, &browser, &calculator}) write_small(tree, *small);
  installer::Ledger ledger;
  for (const Application* each :
       {&reader, &browser, &atlas, &runtime, &lamp, &notes, &calculator, &dice, &paint, &gone}) {
    ledger.enroll(*each);
  }
  ledger.strike(gone.id);
  write_ledger_file(tree, ledger);
}

}  // namespace device
