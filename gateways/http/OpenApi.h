// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace zeph::http_door {

/// The description of the door in OpenAPI 3.1, as JSON.
[[nodiscard]] std::string OpenApiDocument(std::string_view version);

}  // namespace zeph::http_door
