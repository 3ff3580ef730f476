// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "DetectionEngine/Document.h"
#include "DetectionEngine/page/PageData.h"

namespace zeph {

/// Reads target and text of every link and sorts the targets. Gives the status of the last operation.
Status CollectLinkData(IHTMLDocument2* document, LinkData& data);

}  // namespace zeph
