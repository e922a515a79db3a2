#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/root.h"
#include "tests/support/tree.h"

namespace harbix::test {

inline constexpr char REQUESTS[] = "/pps/system/installer/upd/current";

/// The name that a request object of this process has when it is the one with this number.
inline std::string request_name(int number) {
  return std::string(REQUESTS) + "/br_tmp" + std::to_string(::getpid()) + '_' + std::to_string(::gettid()) +
         '_' + std::to_string(number);
}

/// Where the text of a request object lies when a plain folder stands in for the installer's: open options
/// are then a part of the name.
inline std::string text_file(const std::string& object) { return object + "?wait,delta"; }

/// A root folder of its own, with a plain folder for the installer's requests. Request objects are numbered
/// from 0 in each process.
class InstallerFolder : public RootTest {
  void set_up_root() const override {
    std::filesystem::create_directories(REQUESTS);
    std::filesystem::create_directory("/tmp");
  }
};

}  // namespace harbix::test
