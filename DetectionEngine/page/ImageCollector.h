// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "DetectionEngine/Document.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/url/UrlRecord.h"

namespace zeph {

/// Reads source and size of every image. pageUrl is the page's own URL, against which relative sources are read.
/// Fetches nothing. totalArea is held at the ends of its range. Gives the status of the last operation.
Status CollectImageData(IHTMLDocument2* document, const UrlRecord& pageUrl, ImageData& data);

}  // namespace zeph
