// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/PackageSignature.h"

#include <algorithm>
#include <array>
#include <utility>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Signature.h"

namespace zeph {

bool VerifyPackageSignature(std::string_view package, std::string* refusal, const std::string& authorities) {
  constexpr std::array<std::uint32_t, 3> kAcceptedSigners = {0xBF, 0xC0, 0xC1};
  CabinetSignature signature = VerifyCabinetSignature(package, authorities);
  const std::u16string signer = Widen(signature.signer);
  const bool isAccepted = std::any_of(kAcceptedSigners.begin(), kAcceptedSigners.end(),
                                      [&](std::uint32_t entry) { return StringEntry(entry) == signer; });
  if (signature.IsGood() && isAccepted) return true;
  if (refusal != nullptr) {
    *refusal =
        signature.IsGood() ? "\"" + signature.signer + "\" isn't an accepted signer" : std::move(signature.refusal);
  }
  return false;
}

}  // namespace zeph
