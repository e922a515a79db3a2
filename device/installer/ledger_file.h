#pragma once

#include <string>

#include "device/installer/ledger.h"

namespace installer {

/// The name of the ledger's file in the installer's folder.
inline constexpr const char* LEDGER_NAME = "applications";

/// @return an empty ledger when `folder` has none. @throws std::runtime_error when it cannot be read.
[[nodiscard]] Ledger read_ledger(const std::string& folder);

/// Puts the ledger into `folder`, which is made when it is missing. A reader sees the old ledger or the new
/// one. @throws std::system_error; the old one stays.
void write_ledger(const std::string& folder, const Ledger& ledger);

}  // namespace installer
