#include "tests/support/toy_service.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <system_error>

#include "tests/support/require.h"

namespace harbix::test {
namespace {

struct StreamCloser {
  // Only read from: nothing can be lost.
  void operator()(FILE* stream) const noexcept { static_cast<void>(std::fclose(stream)); }
};

/// The lines of a descriptor, read as a stream.
class Lines {
 public:
  explicit Lines(base::FileDescriptor object) : stream_(::fdopen(object.get(), "r")) {
    if (!stream_) fail("no stream");
    static_cast<void>(object.release());  // the stream closes it
  }
  ~Lines() { std::free(line_); }
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;

  std::optional<std::string> next() {
    const ssize_t length = ::getline(&line_, &size_, stream_.get());
    if (length <= 0) return std::nullopt;
    std::string line(line_, static_cast<std::size_t>(length));
    if (line.back() == '\n') line.pop_back();
    return line;
  }

 private:
  std::unique_ptr<FILE, StreamCloser> stream_;
  char* line_ = nullptr;
  std::size_t size_ = 0;
};

void answer(const std::string& object, const std::string& package_path) {
  try {
    const auto opened = open_object(object, O_WRONLY | O_APPEND);
    write_text(opened, "actual_extras::of " + package_path + "\nactual_gid::1001\nresult::0\n");
  } catch (const std::system_error&) {
    // The client was killed, or took its object away.
    return;
  }
}

int serve(const std::string& directory, const base::FileDescriptor& ready) {
  Lines lines(open_object(directory + "/.all?wait,delta", O_RDONLY));
  write_text(ready, ".");
  std::string object;
  bool is_request = false;
  while (const auto line = lines.next()) {
    constexpr std::string_view PATH = "package_path::";
    if (line->front() == '@') {
      object = directory + "/" + line->substr(1);
      is_request = false;
    } else if (line->starts_with("action::")) {
      is_request = true;
    } else if (is_request && line->starts_with(PATH)) {
      answer(object, line->substr(PATH.size()));
    }
  }
  return 0;
}

std::array<base::FileDescriptor, 2> make_ends() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) == -1) fail("cannot make a pipe");
  return {base::FileDescriptor(ends[0]), base::FileDescriptor(ends[1])};
}

}  // namespace

ToyService::ToyService(const std::string& directory, std::array<base::FileDescriptor, 2> pipe)
    : process_([&] { return serve(directory, pipe[1]); }) {
  pipe[1].close();
  if (read_text(pipe[0], 1) != ".") throw std::runtime_error("the service could not start");
}

ToyService::ToyService(const std::string& directory) : ToyService(directory, make_ends()) {}

std::map<std::string, std::string> exchange(const std::string& object, const std::string& package_path) {
  auto opened = open_object(object + "?wait,delta", O_RDWR | O_CREAT | O_EXCL, 0660);
  write_text(opened, "action::query\npackage_path::" + package_path + "\n");
  if (::fsync(opened.get()) == -1) fail("cannot flush the request");

  std::map<std::string, std::string> response;
  Lines lines(std::move(opened));
  while (const auto line = lines.next()) {
    if (line->empty() || line->front() == '@') continue;
    const std::size_t first = line->find(':');
    const std::size_t second = line->find(':', first + 1);
    const std::string name = line->substr(0, first);
    response[name] = line->substr(second + 1);
    if (name == "result") break;
  }
  struct stat record {};
  if (::lstat(object.c_str(), &record) == 0 && ::unlink(object.c_str()) == -1)
    fail("cannot remove " + object);
  return response;
}

}  // namespace harbix::test
