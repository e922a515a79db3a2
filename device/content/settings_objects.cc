#include <array>
#include <string>
#include <string_view>

#include "device/content/contents.h"
#include "device/content/random.h"

namespace device {
namespace {

struct Service {
  std::string_view name;
  Owner owner;
  mode_t mode;
};

constexpr std::array SERVICES = {
    Service{"audio", MEDIA_OWNER, 0644},      Service{"bluetooth", ROOT_OWNER, 0640},
    Service{"browser", ACCOUNT_OWNER, 0644},  Service{"calendar", ACCOUNT_OWNER, 0600},
    Service{"clock", ROOT_OWNER, 0644},       Service{"contacts", ACCOUNT_OWNER, 0640},
    Service{"display", ROOT_OWNER, 0664},     Service{"input", ROOT_OWNER, 0644},
    Service{"keyboard", ACCOUNT_OWNER, 0644}, Service{"location", ROOT_OWNER, 0640},
    Service{"mail", ACCOUNT_OWNER, 0600},     Service{"mediaplayer", MEDIA_OWNER, 0664},
    Service{"messages", ACCOUNT_OWNER, 0600}, Service{"navigator", ROOT_OWNER, 0644},
    Service{"network", ROOT_OWNER, 0640},     Service{"notify", APPS_OWNER, 0644},
    Service{"phone", ROOT_OWNER, 0644},       Service{"power", ROOT_OWNER, 0644},
    Service{"privacy", ROOT_OWNER, 0600},     Service{"search", APPS_OWNER, 0644},
    Service{"sensors", ROOT_OWNER, 0664},     Service{"store", APPS_OWNER, 0640},
    Service{"sync", ROOT_OWNER, 0644},        Service{"voice", MEDIA_OWNER, 0600},
};

// What an object's name may hold: no '?', '@' or newline.
constexpr std::array<std::string_view, 12> OBJECT_NAMES = {
    "a:b",
    "colon:",
    ":",
    " blank in front",
    "blank behind ",
    "two  blanks",
    "-leading dash",
    "'quotes' \"and\" $HOME;*",
    // The same word twice: é as one character, and as e with a combining accent.
    "caf\u00e9",
    "cafe\u0301",
    // No UTF-8: Latin-1, a lone continuation byte.
    "caf\xe9 latin-1",
    "\x80",
};

std::string in_store(const std::string& path) { return "/var/pps/" + path; }

/// "@name", and three to eight attributes that depend on the path alone.
std::string text_of(const std::string& path) {
  constexpr std::array<std::string_view, 8> ATTRIBUTES = {"enabled", "level",  "mode",   "label",
                                                          "address", "limits", "colour", "updated"};
  constexpr std::array<std::string_view, 4> MODES = {"auto", "manual", "off", "n\u00e4chtlich: ab 22:00"};
  Random random(path);
  std::string text = "@" + path.substr(path.rfind('/') + 1) + "\n";
  const std::uint64_t count = random.between(3, ATTRIBUTES.size());
  for (std::size_t i = 0; i < count; ++i) {
    text += ATTRIBUTES.at(i);
    const std::uint64_t number = random.between(0, 999);
    switch (i % 4) {
      case 0:
        text += number % 2 == 0 ? ":b:true" : ":b:false";
        break;
      case 1:
        text += ":n:" + std::to_string(number);
        break;
      case 2:
        text += "::" + std::string(MODES.at(number % MODES.size()));
        break;
      default:
        text += R"(:json:{"values":[)" + std::to_string(number) + R"(,1],"of":"a:b"})";
        break;
    }
    text += '\n';
  }
  return text;
}

/// `suffix` is a part of the file's name that is none of the object's: "@2".
void write_object(const TreeWriter& tree, const std::string& path, const Service& service,
                  const std::string& suffix = {}) {
  tree.file(in_store(path) + suffix, service.owner, service.mode, text_of(path));
}

void write_services(TreeWriter& tree) {
  unsigned int number = 0;
  for (const Service& service : SERVICES) {
    const std::string folder = "services/" + std::string(service.name);
    tree.folder(in_store(folder), service.owner, 0755);
    // Every third one comes from an older version that put its own in the name.
    write_object(tree, folder + "/settings", service, ++number % 3 == 0 ? "@" + std::to_string(number) : "");
    write_object(tree, folder + "/status", service);
    write_object(tree, folder + "/control", service);
  }
  // Two files of one object: the second one counts, and a backup meets the object twice.
  const Service display{"display", ROOT_OWNER, 0644};
  write_object(tree, "services/display/brightness", display, "@factory");
  tree.file("/var/pps/services/display/brightness@user", ROOT_OWNER, 0644,
            "@brightness\nlevel:n:70\nmode::auto\n");
}

void write_numbered(TreeWriter& tree, const std::string& folder, const std::string& name, int count,
                    const Service& service) {
  tree.folder(in_store(folder), service.owner, 0755);
  for (int number = 1; number <= count; ++number) {
    const std::string digits = (number < 10 ? "0" : "") + std::to_string(number);
    std::string path = folder;
    path.append("/").append(name).append(digits);
    write_object(tree, path, service, number % 7 == 0 ? "@a@b" : "");
  }
}

void write_lists(TreeWriter& tree) {
  write_numbered(tree, "services/network/profiles", "network ", 40, {"network", ROOT_OWNER, 0600});
  write_numbered(tree, "services/mail/accounts", "account", 15, {"mail", ACCOUNT_OWNER, 0600});
  write_numbered(tree, "services/clock/alarms", "alarm", 15, {"clock", ACCOUNT_OWNER, 0644});
  write_numbered(tree, "services/notify/apps", "com.example.app", 30, {"notify", APPS_OWNER, 0640});
  tree.folder("/var/pps/services/notify/odd names", APPS_OWNER, 0755);
  for (const std::string_view name : OBJECT_NAMES) {
    write_object(tree, "services/notify/odd names/" + std::string(name), {"notify", APPS_OWNER, 0644});
  }
}

void write_system_objects(TreeWriter& tree) {
  tree.folder("/var/pps/system", ROOT_OWNER, 0755);
  // A folder with a part of its own as well: the objects are /pps/system/locale/language and so on.
  tree.folder("/var/pps/system/locale@2", ROOT_OWNER, 0755);
  for (const char* name : {"language", "region", "timezone", "keyboards"}) {
    tree.file("/var/pps/system/locale@2/" + std::string(name), ROOT_OWNER, 0644,
              text_of("system/locale/" + std::string(name)));
  }
  // A long one that still fits into one read of a backup.
  std::string words = "@dictionary\n";
  for (int word = 1; word <= 800; ++word) words += "word" + std::to_string(word) + "::count: 1\n";
  tree.file("/var/pps/system/dictionary", ACCOUNT_OWNER, 0644, words);
  tree.file("/var/pps/system/empty", ROOT_OWNER, 0644, "");
}

}  // namespace

void write_settings_objects(TreeWriter& tree) {
  tree.folder("/var/pps/services", ROOT_OWNER, 0755);
  write_services(tree);
  write_lists(tree);
  write_system_objects(tree);
  tree.file("/var/pps/services/navigator/wallpaper", ROOT_OWNER, 0644,
            "@wallpaper\npath::/accounts/1000/settings/wallpaper/current.jpg\nfit::cover\n");
}

}  // namespace device
