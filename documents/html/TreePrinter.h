// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "documents/html/Tree.h"

namespace zeph::html {

/// The tree as UTF-8 text in the form that the html5lib tree-construction tests expect: one node a line ("| <html>"),
/// two blanks deeper for each level, attributes in order of their names below their element, "content" above what is
/// in a template.
[[nodiscard]] std::string PrintTree(const Tree& tree);

}  // namespace zeph::html
