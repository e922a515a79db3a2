#include "device/installer/request_desk.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <thread>
#include <vector>

#include "device/installer/object.h"

namespace installer {
namespace {

Answer failure() { return {{std::string(RESULT), std::string(FAILURE)}}; }

Answer failure(const std::string& error) {
  return {{"error", error}, {std::string(RESULT), std::string(FAILURE)}};
}

std::vector<std::string> names_in(const std::string& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator item(directory, error), end; !error && item != end;
       item.increment(error)) {
    names.push_back(item->path().filename().string());
  }
  // Somebody may take the directory away, or mount something over it, at any time: no request is there then.
  if (error && error != std::errc::no_such_file_or_directory) throw std::system_error(error, directory);
  std::ranges::sort(names);
  return names;
}

/// The request in the object; nothing when there is none that waits for an answer.
std::optional<Attributes> read_request(const std::string& object) {
  // Between two writes of one client's stream lies no time to speak of. What is not complete by then is a
  // mistake, and answered as one.
  constexpr int LOOKS = 100;
  constexpr std::chrono::milliseconds PAUSE(10);
  for (int look = 1;; ++look) {
    const std::optional<std::string> text = read_object(object);
    if (!text) return std::nullopt;
    Attributes attributes = parse_attributes(*text);
    if (!is_pending(attributes)) return std::nullopt;
    if (is_complete(attributes) || look == LOOKS) return attributes;
    std::this_thread::sleep_for(PAUSE);
  }
}

/// Writes the answer as the faults ask. A client that has gone needs none.
void deliver(const std::string& object, const Answer& answer, const Faults& faults) {
  // Long enough for a reader to take the noise before the answer; one that is slower sees both at once.
  constexpr std::chrono::milliseconds BETWEEN(20);
  Answer given = without(answer, faults.omit);
  std::this_thread::sleep_for(faults.delay);
  if (faults.noise) {
    std::this_thread::sleep_for(BETWEEN);
    if (!write_object(object, noise_before(given))) return;
    std::this_thread::sleep_for(BETWEEN);
    given = with_noise(std::move(given));
  }
  if (!write_object(object, to_lines(given))) return;
  // Nothing more would ever come: the removal ends the stream that the client reads.
  if (faults.omit == RESULT) remove_object(object);
}

}  // namespace

void RequestDesk::look_at(const std::string& name) const {
  const std::string object = directory_ + "/" + name;
  try {
    if (const std::optional<Attributes> request = read_request(object)) answer(object, *request);
  } catch (const std::system_error& error) {
    if (is_unserved(error.code())) throw;
    std::cerr << "harbix-installer: no answer: " << error.what() << std::endl;
  }
}

void RequestDesk::look_at_all() const {
  for (const std::string& name : names_in(directory_)) look_at(name);
}

void RequestDesk::answer(const std::string& object, const Attributes& request) const {
  const std::string action = value_of(request, "action");
  const Faults faults = Faults::parse(parse_attributes(read_object(control_).value_or("")));
  if (faults.dies_of(action)) {
    // Once: the installer that is started next answers.
    write_object(control_, "-die\n");
    ::kill(::getpid(), SIGKILL);  // Cannot fail.
  }
  deliver(object, faults.refuses(action) ? failure() : answer_to(request), faults);
}

Answer RequestDesk::answer_to(const Attributes& request) const {
  try {
    return work_(parse_request(request));
  } catch (const std::exception& error) {
    return failure(error.what());
  }
}

}  // namespace installer
