#pragma once

#include <cstdlib>
#include <random>
#include <string>

namespace harbix::test {

/// Another one in each run, unless the environment has HARBIX_TEST_SEED.
inline unsigned chosen_seed() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): tests have one thread
  const char* text = std::getenv("HARBIX_TEST_SEED");
  return text == nullptr ? std::random_device()() : static_cast<unsigned>(std::stoul(text));
}

}  // namespace harbix::test
