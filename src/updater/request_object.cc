#include "updater/request_object.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "fs/exception.h"
#include "fs/file.h"

namespace updater {
namespace {

constexpr char REQUESTS[] = "/pps/system/installer/upd/current";
constexpr char OPEN_OPTIONS[] = "?wait,delta";
constexpr mode_t REQUEST_MODE = 0660;

/// Unlike every other name this process has used, and unlike those of other processes.
std::string next_name() {
  static unsigned counter = 0;
  std::ostringstream name;
  name << "br_tmp" << ::getpid() << '_' << ::gettid() << '_' << counter++;
  return name.str();
}

}  // namespace

RequestObject::RequestObject() {
  errno = EEXIST;
  while (errno == EEXIST && !descriptor_.is_open()) {
    path_ = fs::Path(REQUESTS) / next_name();
    const std::string name = path_.text() + OPEN_OPTIONS;
    descriptor_ =
        base::FileDescriptor(::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, REQUEST_MODE));
  }
  if (!descriptor_.is_open()) throw fs::Exception(errno, "Failed to create file '" + path_.text() + "' ");
  interrupted_.emplace(path_);
}

RequestObject::~RequestObject() {
  // The installer may have taken it away itself.
  if (fs::exists(path_)) fs::File(path_, {}).unlink();
}

}  // namespace updater
