#include "platform/process.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <vector>

namespace platform {
namespace {

class SpawnAttributes {
 public:
  SpawnAttributes() : error_(::posix_spawnattr_init(&attributes_)), is_initialized_(error_ == 0) {
    ::sigset_t all{};
    // It fails for no set that is there.
    static_cast<void>(::sigfillset(&all));
    if (error_ == 0) error_ = ::posix_spawnattr_setsigdefault(&attributes_, &all);
    if (error_ == 0) error_ = ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnAttributes() {
    // Nothing that could still be done about a failure.
    if (is_initialized_) static_cast<void>(::posix_spawnattr_destroy(&attributes_));
  }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  SpawnAttributes(SpawnAttributes&&) = delete;
  SpawnAttributes& operator=(SpawnAttributes&&) = delete;

  [[nodiscard]] int error() const noexcept { return error_; }
  [[nodiscard]] const ::posix_spawnattr_t* get() const noexcept { return &attributes_; }

 private:
  ::posix_spawnattr_t attributes_{};
  int error_;
  bool is_initialized_;
};

int wait_for(::pid_t process) {
  int status = 0;
  while (::waitpid(process, &status, 0) == -1) {
    if (errno != EINTR) return -1;
  }
  return status;
}

}  // namespace

int spawnl(int mode, const char* path, std::initializer_list<const char*> arguments) {
  const SpawnAttributes attributes;
  std::vector<char*> vector;
  // The interface predates const; the arguments are only read.
  for (const char* argument : arguments) vector.push_back(const_cast<char*>(argument));
  vector.push_back(nullptr);
  int error = mode == P_WAIT ? attributes.error() : EINVAL;
  ::pid_t process = -1;
  if (error == 0) error = ::posix_spawn(&process, path, nullptr, attributes.get(), vector.data(), environ);
  if (error != 0) {
    errno = error;
    return -1;
  }
  return wait_for(process);
}

}  // namespace platform
