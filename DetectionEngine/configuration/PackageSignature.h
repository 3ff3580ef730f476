// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace zeph {

/// True when the package, a cabinet that lies in memory, bears a good signature (see VerifyCabinetSignature) by one of
/// the accepted signers: the display name is exactly the text of string table entry 0xBF, 0xC0 or 0xC1. refusal, if
/// given, receives the reason otherwise. The bytes that were verified are the ones to extract: a file could change
/// in between. authorities as for VerifyCabinetSignature.
[[nodiscard]] bool VerifyPackageSignature(std::string_view package, std::string* refusal = nullptr,
                                          const std::string& authorities = {});

}  // namespace zeph
