#include "support/child_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <iostream>

namespace test {
namespace {

int run_body(const std::function<void()>& body) {
  try {
    body();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "left by an exception: " << error.what();
  }
  return ::testing::Test::HasFailure() ? 1 : 0;
}

}  // namespace

::testing::AssertionResult passes_in_child(const std::function<void()>& body) {
  std::cout << std::flush;
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == -1) return ::testing::AssertionFailure() << "fork failed, errno " << errno;
  if (child == 0) {
    const int status = run_body(body);
    std::cout << std::flush;
    std::fflush(nullptr);
    // Without the parent's clean-up: its folders are not this process's to remove.
    ::_exit(status);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) == -1) {
    if (errno != EINTR) return ::testing::AssertionFailure() << "waitpid failed, errno " << errno;
  }
  if (status == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "the child ended with wait status " << status;
}

}  // namespace test
