// SPDX-License-Identifier: Apache-2.0
#include "judging/Privacy.h"

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/engine/ServerCalls.h"

namespace zeph {

PrivacyGuard::PrivacyGuard(Privacy privacy)
    : before_(SetPrivacy(privacy == Privacy::kFull ? kFullUrl : privacy == Privacy::kPartial ? kPartialUrl : kNothing)) {}

PrivacyGuard::~PrivacyGuard() { SetPrivacy(static_cast<std::uint32_t>(before_)); }

}  // namespace zeph
