// SPDX-License-Identifier: Apache-2.0
// How many links, images and scripts of a page lead to the sites of known brands. Computed when first asked for, once
// for a page. Each gives 1 and computes nothing while the page has no configuration.
#pragma once

#include <cstdint>

#include "DetectionEngine/page/PageData.h"

namespace zeph {

std::int32_t LinkBrandCount(PageData& pageData);
std::int32_t ImageBrandCount(PageData& pageData);
std::int32_t ScriptBrandCount(PageData& pageData);

}  // namespace zeph
