#include <string>

#include "device/content/contents.h"
#include "device/content/random.h"

namespace device {
namespace {

std::string on_device(const std::string& path) { return "/accounts/1000/sys/dtm/" + path; }

}  // namespace

void write_dtm_share(TreeWriter& tree) {
  for (const char* folder :
       {"contacts", "contacts/avatars", "contacts/groups", "sync", "sync/journal", "empty"}) {
    tree.folder(on_device(folder), SYS_OWNER, 0770);
  }
  for (int contact = 1; contact <= 10; ++contact) {
    const std::string number = std::to_string(contact);
    tree.file(on_device("contacts/contact" + number + ".vcf"), SYS_OWNER, 0660,
              "BEGIN:VCARD\nVERSION:3.0\nFN:Contact " + number + "\nEND:VCARD\n");
    const std::string avatar = on_device("contacts/avatars/" + number + ".png");
    tree.file(avatar, SYS_OWNER, 0660, Random(avatar).bytes(static_cast<std::size_t>(contact) * 600));
  }
  tree.file(on_device("contacts/groups/fam\u00efl\u00efe"), SYS_OWNER, 0640, "contact1\ncontact2\n");
  tree.file(on_device("sync/journal/state"), SYS_OWNER, 0600, "");
  tree.link(on_device("sync/current"), SYS_OWNER, "journal/state");
  tree.file(on_device("revision"), SYS_OWNER, 0660, "42\n");
  tree.link(on_device("latest"), SYS_OWNER, "contacts");
}

}  // namespace device
