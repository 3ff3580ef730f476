// SPDX-License-Identifier: Apache-2.0
// The engine's records as JSON: members under their own names, in the order of the record.
#pragma once

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/url/UrlRecord.h"
#include "judging/Json.h"

namespace zeph {

void Write(JsonWriter& json, const UrlRecord& record);
void Write(JsonWriter& json, const Configuration& configuration);
void Write(JsonWriter& json, const Indicators& indicators);
/// Without the pointer to the configuration.
void Write(JsonWriter& json, const PageData& pageData);

}  // namespace zeph
